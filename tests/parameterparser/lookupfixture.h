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
#include "paramgen/versionsE_1_0_0.h"
#include "paramgen/versionsF_1_0_0.h"
#include "paramgen/versionsG_1_0_0.h"
#include "paramgen/versionsH_1_0_0.h"
#include "tests/common/testsetmanager.h"

namespace ParamTest {

/// The kinds of TestSetManager::LookupModuleKinds by a letter: 'A' is "versionsA_sw".
inline char const* LookupModule(char letter)
{
    return TestSetManager::LookupModuleKinds[static_cast<size_t>(letter - 'A')];
}

namespace Detail {

template <typename ModuleClass> bool RevisionOf(ParameterModule const* module, char const*& text)
{
    auto const* typed = dynamic_cast<ModuleClass const*>(module);
    if (typed == nullptr)
        return false;
    text = typed->parameter_version.revision;
    return true;
}

} // namespace Detail

/// Every lookup kind holds a parameter_version.revision text; a test writes a tag there to tell
/// which entry a lookup found, and finds it null once the module is unloaded. Null for null.
inline char const* Revision(ParameterModule const* module)
{
    char const* text = nullptr;
    static_cast<void>(
        Detail::RevisionOf<versionsA_1_0_0::varitonal_versionsA10TypeClass>(module, text) ||
        Detail::RevisionOf<versionsB_1_0_0::varitonal_versionsB10TypeClass>(module, text) ||
        Detail::RevisionOf<versionsC_1_0_0::varitonal_versionsC10TypeClass>(module, text) ||
        Detail::RevisionOf<versionsD_1_0_0::varitonal_versionsD10TypeClass>(module, text) ||
        Detail::RevisionOf<versionsE_1_0_0::varitonal_versionsE10TypeClass>(module, text) ||
        Detail::RevisionOf<versionsF_1_0_0::varitonal_versionsF10TypeClass>(module, text) ||
        Detail::RevisionOf<versionsG_1_0_0::varitonal_versionsG10TypeClass>(module, text) ||
        Detail::RevisionOf<versionsH_1_0_0::varitonal_versionsH10TypeClass>(module, text));
    return text;
}

/// A tuning file of version 7.0.0 with mode tables built from named paths and modules of the
/// lookup kinds placed in their nodes, with a definition table for every kind used.
class LookupFile
{
public:
    LookupFile() : m_symbols(m_version)
    {
        m_schema.Describe("versionsA_1_0_0::varitonal_versionsA10Type",
                          versionsA_1_0_0::varitonal_versionsA10Type::Descriptor);
        m_schema.Describe("versionsB_1_0_0::varitonal_versionsB10Type",
                          versionsB_1_0_0::varitonal_versionsB10Type::Descriptor);
        m_schema.Describe("versionsC_1_0_0::varitonal_versionsC10Type",
                          versionsC_1_0_0::varitonal_versionsC10Type::Descriptor);
        m_schema.Describe("versionsD_1_0_0::varitonal_versionsD10Type",
                          versionsD_1_0_0::varitonal_versionsD10Type::Descriptor);
        m_schema.Describe("versionsE_1_0_0::varitonal_versionsE10Type",
                          versionsE_1_0_0::varitonal_versionsE10Type::Descriptor);
        m_schema.Describe("versionsF_1_0_0::varitonal_versionsF10Type",
                          versionsF_1_0_0::varitonal_versionsF10Type::Descriptor);
        m_schema.Describe("versionsG_1_0_0::varitonal_versionsG10Type",
                          versionsG_1_0_0::varitonal_versionsG10Type::Descriptor);
        m_schema.Describe("versionsH_1_0_0::varitonal_versionsH10Type",
                          versionsH_1_0_0::varitonal_versionsH10Type::Descriptor);
        m_encoder = std::make_unique<TuningWriter::EntryEncoder>(m_version, m_schema.Structures(),
                                                                 m_symbols);
        m_tables.emplace_back(0, "");
    }

    /// Adds a mode table (index in order of addition) named name; returns its index.
    uint8_t AddTable(std::string const& name)
    {
        if (m_tables.size() == 1 && m_tables[0].Entries().empty()) {
            m_tables[0] = TuningWriter::ModeSectionBuilder(0, name);
            return 0;
        }
        auto const index = static_cast<uint8_t>(m_tables.size());
        m_tables.emplace_back(index, name);
        return index;
    }

    /// The builder of a table, for raw children (links, flags, pipelines).
    TuningWriter::ModeSectionBuilder& Table(uint8_t index = 0) { return m_tables[index]; }

    /// Makes sure a named path exists ("Default|Usecase.Preview"); its last node's Mode ID.
    uint32_t Path(std::string const& namedPath, uint8_t table = 0)
    {
        return m_tables[table].AddPath(namedPath);
    }

    /// Places module kind letter in the node of modeId, its revision and reserve texts holding
    /// tag. duplicateOf, if not 0, makes it share the instance of that earlier entry. Returns the
    /// entry's symbol ID.
    uint32_t AddModule(char letter, uint32_t modeId, std::string const& tag,
                       uint32_t duplicateOf = 0)
    {
        std::string const ns = std::string("versions") + letter + "_1_0_0";
        std::string const type = std::string("varitonal_versions") + letter + "10Type";
        std::string const reserve = std::string("varitonal_versions") + letter + "10_reserve";
        TuningWriter::EntryValue const value = TuningWriter::EntryValue::Struct(
            {{"module_version", TuningWriter::EntryValue::Struct(
                                    {{"major_revision", TuningWriter::EntryValue::Int(1)}})},
             {"parameter_version", TuningWriter::EntryValue::Struct(
                                       {{"revision", TuningWriter::EntryValue::Text(tag)}})},
             {reserve, TuningWriter::EntryValue::Struct(
                           {{"xsd_version", TuningWriter::EntryValue::Text(tag + "-xsd")}})}});
        TuningWriter::ModuleEntry entry;
        entry.name = LookupModule(letter);
        entry.moduleVersion = TuningWriter::FileVersion{1, 0, 0};
        entry.modeId = modeId;
        entry.data = m_encoder->Encode(m_schema.Id(ns + "::" + type), &value);
        entry.duplicateOf = duplicateOf;
        m_used.emplace(entry.name, ns + "::" + type);
        return m_symbols.AddModule(std::move(entry));
    }

    /// The whole file, padded so that a file-mode load can read its first window.
    std::vector<uint8_t> Build() const
    {
        TuningWriter::TuningFileWriter writer(m_version);
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

/// The node of a Mode ID in a loaded manager; null if there is none.
inline ModeEntry* NodeOf(ParameterSetManager& manager, uint32_t modeId)
{
    ParameterModeTable* table = manager.GetModeTable(modeId >> 24);
    if (table == nullptr || (modeId & 0xFFFFFF) >= table->m_modeCount)
        return nullptr;
    return table->modes[modeId & 0xFFFFFF].mode;
}

} // namespace ParamTest
