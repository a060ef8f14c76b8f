// SPDX-License-Identifier: Apache-2.0
// Writer-made files that place catalogue modules in the nodes of mode trees, and a manager that
// knows those modules, for the module lookup tests and the lookup benchmark.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parametermodule.h"
#include "tools/generator/schemaset.h"
#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/entryencoder.h"
#include "tools/writer/modesectionbuilder.h"
#include "tools/writer/symboltablebuilder.h"
#include "tools/writer/tuningfilewriter.h"

#include "paramgen/versionsA_1_0_0.h"
#include "paramgen/versionsB_1_0_0.h"
#include "paramgen/versionsC_1_0_0.h"
#include "paramgen/versionsD_1_0_0.h"
#include "tests/common/testsetmanager.h"

namespace ParamTest {

/// The kinds of TestSetManager::LookupModuleKinds by a letter: 'A' is "versionsA_sw".
inline char const* LookupModule(char letter)
{
    return TestSetManager::LookupModuleKinds[static_cast<size_t>(letter - 'A')];
}

/// The revision text of a module of kind A to D, where a file writes a tag to tell which entry a
/// lookup found; null once the module is unloaded, and for null.
inline char const* Revision(ParameterModule const* module)
{
    if (auto const* a =
            dynamic_cast<versionsA_1_0_0::varitonal_versionsA10TypeClass const*>(module))
        return a->parameter_version.revision;
    if (auto const* b =
            dynamic_cast<versionsB_1_0_0::varitonal_versionsB10TypeClass const*>(module))
        return b->parameter_version.revision;
    if (auto const* c =
            dynamic_cast<versionsC_1_0_0::varitonal_versionsC10TypeClass const*>(module))
        return c->parameter_version.revision;
    if (auto const* d =
            dynamic_cast<versionsD_1_0_0::varitonal_versionsD10TypeClass const*>(module))
        return d->parameter_version.revision;
    return nullptr;
}

/// A tuning file of version 7.0.0 with mode tables built from named paths and modules of the
/// lookup kinds A to D placed in their nodes, with a definition table for every kind used. The
/// first mode table is named tableName; NewTable starts the next one.
class LookupFile
{
public:
    explicit LookupFile(std::string const& tableName = "") : m_symbols(m_version)
    {
        NewTable(tableName);
        m_schema.Describe("versionsA_1_0_0::varitonal_versionsA10Type",
                          versionsA_1_0_0::varitonal_versionsA10Type::Descriptor);
        m_schema.Describe("versionsB_1_0_0::varitonal_versionsB10Type",
                          versionsB_1_0_0::varitonal_versionsB10Type::Descriptor);
        m_schema.Describe("versionsC_1_0_0::varitonal_versionsC10Type",
                          versionsC_1_0_0::varitonal_versionsC10Type::Descriptor);
        m_schema.Describe("versionsD_1_0_0::varitonal_versionsD10Type",
                          versionsD_1_0_0::varitonal_versionsD10Type::Descriptor);
        m_encoder = std::make_unique<TuningWriter::EntryEncoder>(m_version, m_schema.Structures(),
                                                                 m_symbols);
    }

    /// The builder of the current mode table, for raw children (links, flags, pipelines).
    TuningWriter::ModeSectionBuilder& Table() { return m_tables.back(); }
    void NewTable(std::string const& name)
    {
        m_tables.emplace_back(static_cast<uint8_t>(m_tables.size()), name);
    }

    /// Makes sure a named path exists ("Default|Usecase.Preview") in the current table; its last
    /// node's Mode ID.
    uint32_t Path(std::string const& namedPath) { return Table().AddPath(namedPath); }

    /// Places module kind letter in the node of modeId, its revision and reserve texts holding
    /// tag. duplicateOf, if not 0, makes it share the instance of that earlier entry; the record
    /// states version as the module's. Returns the entry's symbol ID.
    uint32_t AddModule(char letter, uint32_t modeId, std::string const& tag,
                       uint32_t duplicateOf = 0, TuningWriter::FileVersion version = {1, 0, 0})
    {
        using TuningWriter::EntryValue;
        std::string const ns = std::string("versions") + letter + "_1_0_0";
        std::string const type = ns + "::varitonal_versions" + letter + "10Type";
        std::string const reserve = std::string("varitonal_versions") + letter + "10_reserve";
        EntryValue const value = EntryValue::Struct(
            {{"module_version", EntryValue::Struct({{"major_revision", EntryValue::Int(1)}})},
             {"parameter_version", EntryValue::Struct({{"revision", EntryValue::Text(tag)}})},
             {reserve, EntryValue::Struct({{"xsd_version", EntryValue::Text(tag + "-xsd")}})}});
        TuningWriter::ModuleEntry entry;
        entry.name = LookupModule(letter);
        entry.moduleVersion = version;
        entry.modeId = modeId;
        entry.data = m_encoder->Encode(m_schema.Id(type), &value);
        entry.duplicateOf = duplicateOf;
        m_used.emplace(entry.name, type);
        return m_symbols.AddModule(std::move(entry));
    }

    /// The whole file, padded so that a file-mode load can read its first window, with the
    /// binary tag and damage given.
    std::vector<uint8_t> Build(std::string const& binaryTag = "sample",
                               TuningWriter::Damage const& damage = {}) const
    {
        TuningWriter::TuningFileWriter writer(m_version);
        writer.SetBinaryTag(binaryTag).SetDamage(damage);
        TuningWriter::DefinitionTableBuilder definitions;
        for (auto const& used : m_used)
            definitions.AddModule(m_schema.Module(used.first, used.second));
        m_schema.AddTo(definitions);
        writer.AddSection(TuningWriter::SectionType::Definition,
                          definitions.Build(writer.Alignment()));
        m_symbols.AddTo(writer);
        for (TuningWriter::ModeSectionBuilder const& table : m_tables)
            table.AddTo(writer);
        writer.SetMinimumFileSize(TuningWriter::FileModeWindow + 512);
        return writer.Build();
    }

private:
    TuningWriter::FileVersion m_version{};
    TuningWriter::SchemaSet m_schema;
    TuningWriter::SymbolTableBuilder m_symbols;
    std::unique_ptr<TuningWriter::EntryEncoder> m_encoder;
    std::vector<TuningWriter::ModeSectionBuilder> m_tables;
    std::map<std::string, std::string> m_used;
};

/// A branch from named steps: {{ModeUsecase, 0}, {ModeFeature1, 2}} after the Default root.
inline std::vector<TuningMode> Branch(std::vector<std::pair<uint32_t, uint16_t>> const& steps)
{
    std::vector<TuningMode> branch{{ModeDefault, 0, 0}};
    for (auto const& step : steps)
        branch.push_back(TuningMode{step.first, step.second, 0});
    return branch;
}

/// The node of a Mode ID in a loaded manager's first table; null if there is none.
inline ModeEntry* NodeOf(ParameterSetManager& manager, uint32_t modeId)
{
    ParameterModeTable* table = manager.GetModeTable(0);
    return table != nullptr && modeId < table->m_modeCount ? table->modes[modeId].mode : nullptr;
}

} // namespace ParamTest
