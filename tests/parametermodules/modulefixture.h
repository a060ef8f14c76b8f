// SPDX-License-Identifier: Apache-2.0
// Writer-made files holding instances of the test module, read into a symbol table of their own,
// and module records to create instances from, the way a set manager does.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/defaultmodule.h"
#include "parameterparser/imodetable.h"
#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parsercrc.h"
#include "tools/generator/schemaset.h"
#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/entryencoder.h"
#include "tools/writer/symboltablebuilder.h"

#include "paramgen/moduletest.h"
#include "tests/common/testsetmanager.h"

namespace ModuleTest {

using TuningWriter::EntryValue;
using TuningWriter::FileVersion;

constexpr char const* InstanceName = "moduleTest";
constexpr FileVersion SourceVersion{2, 3, 1};

/// Which generated module a file holds: its top type's descriptor and qualified name, its
/// instance name and version, and in place of the descriptor a hand-written description of
/// another schema where a test needs one.
struct ModuleSchema
{
    ParameterTypeDescriptor const* type;
    char const* topType;
    char const* instanceName;
    FileVersion version;
    void (*describe)(TuningWriter::SchemaSet&) = nullptr;
};

inline ModuleSchema TestModuleSchema()
{
    return {&moduletest::moduleTestType::Descriptor, "moduletest::moduleTestType", InstanceName,
            SourceVersion};
}

namespace Detail {

/// The one mode every module record of these files hangs on.
class SingleModeTable : public IModeTable
{
public:
    ModeSlot* GetModeEntry(unsigned int modeId) override { return modeId == 0 ? &m_slot : nullptr; }

private:
    ModeEntry m_mode{false, false};
    ModeSlot m_slot{&m_mode, 0};
};

} // namespace Detail

/// A file of modules written by the writer from a generated description (moduletest unless told
/// otherwise), loaded in buffer mode into a symbol table that keeps its definitions.
class ModuleFile
{
public:
    explicit ModuleFile(FileVersion version = {}, bool withDefinitions = true,
                        ModuleSchema schema = TestModuleSchema());

    /// The file's schema, as described by the module's generated description: a test may change
    /// it before the first AddModule to write a file of another schema than the compiled one.
    std::vector<TuningWriter::DefinitionStructure>& FileSchema() { return m_structures; }

    /// Adds a module entry holding value; returns its symbol ID.
    uint32_t AddModule(EntryValue const& value);

    /// The data table ID of the block written for a value named blockName; 0 if none.
    uint32_t BlockId(std::string const& name) const
    {
        return m_encoder != nullptr ? m_encoder->BlockId(name) : 0;
    }

    /// Damage the tables are written with (keyed by the IDs AddModule returned).
    void Damage(TuningWriter::TableDamage damage) { m_symbols.SetDamage(std::move(damage)); }

    /// Lays the sections out and reads them; false if the table refuses them.
    [[nodiscard]] bool Build();

    ParameterFileSymbolTable& Table() { return *m_table; }
    ParameterSetManager& Manager() { return m_manager; }

    /// A module record as the table would make it for entry id (the test's choice of name hash,
    /// version and duplicate ID). Owned by the file.
    ModuleData* Record(uint32_t id, uint32_t duplicateId = 0);
    ModuleData* Record(uint32_t id, uint32_t duplicateId, unsigned long nameHash,
                       VersionUnion version);

private:
    FileVersion m_version;
    bool m_withDefinitions;
    ModuleSchema m_module;
    TuningWriter::SchemaSet m_schema;
    std::vector<TuningWriter::DefinitionStructure> m_structures;
    TuningWriter::SymbolTableBuilder m_symbols;
    std::unique_ptr<TuningWriter::EntryEncoder> m_encoder;
    ParamTest::TestSetManager m_manager;
    Detail::SingleModeTable m_modes;
    std::vector<uint8_t> m_buffer;
    std::unique_ptr<ParameterFileSymbolTable> m_table;
    std::vector<std::unique_ptr<ModuleData>> m_records;
};

namespace Detail {

inline EntryValue Floats(std::vector<double> const& values)
{
    std::vector<EntryValue> items;
    for (double value : values)
        items.push_back(EntryValue::Real(value));
    return EntryValue::List(items);
}

inline EntryValue Trigger(double start, double end, std::vector<double> const& data)
{
    std::vector<EntryValue> rows;
    for (size_t i = 0; i < data.size(); ++i)
        rows.push_back(EntryValue::Struct(
            {{"triggerPt", EntryValue::Struct({{"start", EntryValue::Real(start + i)},
                                               {"end", EntryValue::Real(end + i)}})},
             {"triggerData", EntryValue::Struct({{"data", EntryValue::Real(data[i])}})}}));
    return EntryValue::Struct({{"triggerPt", EntryValue::Struct({{"start", EntryValue::Real(start)},
                                                                 {"end", EntryValue::Real(end)}})},
                               {"triggerData", EntryValue::List(rows)}});
}

inline EntryValue Landmark(uint64_t index, double margin)
{
    return EntryValue::Struct({{"landmarkIndex", EntryValue::UInt(index)},
                               {"shrinkMarginFactor", EntryValue::Real(margin)}});
}

inline EntryValue Corner(int64_t x, double weight)
{
    return EntryValue::Struct({{"x", EntryValue::Int(x)}, {"weight", EntryValue::Real(weight)}});
}

// Section placement of the table under test, as a file would give it.
inline ParameterFileSymbolTable::SectionInfo Append(std::vector<uint8_t>& buffer,
                                                    std::vector<uint8_t> const& bytes)
{
    ParameterFileSymbolTable::SectionInfo section{};
    section.Offset = static_cast<uint32_t>(buffer.size());
    section.Size = static_cast<uint32_t>(bytes.size());
    buffer.insert(buffer.end(), bytes.begin(), bytes.end());
    return section;
}

} // namespace Detail

/// The values a test writes unless it changes some: every member set, arrays of several elements.
inline EntryValue SampleValue()
{
    return EntryValue::Struct({
        {"module_version", EntryValue::Struct({{"major_revision", EntryValue::Int(2)},
                                               {"minor_revision", EntryValue::Int(3)},
                                               {"incr_revision", EntryValue::Int(1)}})},
        {"parameter_version", EntryValue::Struct({{"revision", EntryValue::Text("rev-A")}})},
        {"noise_threshold_g", EntryValue::Real(2.75)},
        {"frameCount", EntryValue::UInt(9007199254740993ull)},
        {"optionalGain", EntryValue::List({EntryValue::Real(1.25)})},
        {"levels", EntryValue::List({EntryValue::UInt(1), EntryValue::UInt(7)})},
        {"labels", EntryValue::List(
                       {EntryValue::Text("near"), EntryValue::Text("far"), EntryValue::Text("")})},
        {"table",
         EntryValue::List({EntryValue::Int(10), EntryValue::Int(20), EntryValue::Int(30)})},
        {"shrink",
         EntryValue::Struct({
             {"enable", EntryValue::Int(1)},
             {"faceNum", EntryValue::UInt(3)},
             {"landmarkPoints",
              EntryValue::List({Detail::Landmark(4, 0.5), Detail::Landmark(9, 0.25),
                                Detail::Landmark(12, 0.125)})},
             {"facePoseShrinkFactor",
              EntryValue::Struct({{"rollShrinkFactor", Detail::Trigger(1.5, 2.5, {0.9, 0.8})},
                                  {"yawShrinkFactor", Detail::Trigger(3, 4, {0.7})},
                                  {"pitchShrinkFactor", Detail::Trigger(5, 6, {0.6, 0.5, 0.4})}})},
             {"factorRoundingPrecision", EntryValue::Real(0.05)},
             {"factorFilterLength", EntryValue::UInt(6)},
             {"minShrinkFactor", EntryValue::Real(0.3)},
             {"roiSizeInCropWindow", EntryValue::Int(0)},
             {"minROISizeToShrink", EntryValue::Real(16)},
             {"faceMaskROIControl",
              EntryValue::Struct({{"enableMaskROIAdjustment", EntryValue::Int(1)},
                                  {"maskROISizeFactor", EntryValue::Real(1.5)},
                                  {"minROISizeToRemoveMask", Detail::Floats({8, 12})}})},
             {"reservedParameters", Detail::Floats({0, 1, 2, 3.5, 4, 5, 6, 7, 8, 9})},
         })},
        {"corners", EntryValue::List({Detail::Corner(-4, 0.5), Detail::Corner(11, 2.5)})},
        {"note", EntryValue::List({EntryValue::Text("spare")})},
    });
}

/// The registry entry of a module class and an instance of it created for entry id of file and
/// loaded from it, as a set manager does.
template <typename Class> struct LoadedModule
{
    LoadedModule(ModuleFile& file, uint32_t id, char const* name) : kind(new Class(name))
    {
        module = static_cast<Class*>(kind.module->Create(file.Record(id), &kind));
        if (module != nullptr)
            loadResult = module->LoadModule(&file.Table());
    }

    DefaultModule kind;
    Class* module = nullptr;
    bool loadResult = false;
};

inline ModuleFile::ModuleFile(FileVersion version, bool withDefinitions, ModuleSchema schema)
    : m_version(version), m_withDefinitions(withDefinitions), m_module(schema), m_symbols(version)
{
    if (m_module.describe != nullptr)
        m_module.describe(m_schema);
    else
        m_schema.Describe(m_module.topType, *m_module.type);
    m_structures = m_schema.Structures();
}

inline uint32_t ModuleFile::AddModule(EntryValue const& value)
{
    if (m_encoder == nullptr)
        m_encoder =
            std::make_unique<TuningWriter::EntryEncoder>(m_version, m_structures, m_symbols);
    TuningWriter::ModuleEntry entry;
    entry.name = m_module.instanceName;
    entry.moduleVersion = m_module.version;
    entry.modeId = TuningWriter::NoModuleModeId;
    entry.data = m_encoder->Encode(m_schema.Id(m_module.topType), &value);
    return m_symbols.AddModule(std::move(entry));
}

inline bool ModuleFile::Build()
{
    unsigned char const alignment = TuningWriter::AlignmentFor(m_version);
    std::vector<uint8_t> definitions;
    if (m_withDefinitions) {
        TuningWriter::DefinitionTableBuilder builder;
        builder.AddModule(m_schema.Module(m_module.instanceName, m_module.topType));
        for (TuningWriter::DefinitionStructure const& structure : m_structures)
            builder.AddStructure(structure);
        definitions = builder.Build(alignment);
    }
    TuningWriter::SymbolTableBuilder::Sections const sections = m_symbols.Build();
    ParameterFileSymbolTable::SectionInfo const definitionSection =
        Detail::Append(m_buffer, definitions);
    ParameterFileSymbolTable::SectionInfo const symbolSection =
        Detail::Append(m_buffer, sections.symbol);
    ParameterFileSymbolTable::SectionInfo const dataTableSection =
        Detail::Append(m_buffer, sections.dataTable);
    ParameterFileSymbolTable::SectionInfo const dataSection =
        Detail::Append(m_buffer, sections.data);
    VersionUnion const version(m_version.major, m_version.minor, m_version.patch);
    m_table = std::make_unique<ParameterFileSymbolTable>(&m_manager, alignment, version);
    auto const length = static_cast<unsigned int>(m_buffer.size());
    return m_table->Load(m_buffer.data(), length, nullptr, nullptr, length, symbolSection,
                         dataTableSection, dataSection, definitionSection, &m_modes, true);
}

inline ModuleData* ModuleFile::Record(uint32_t id, uint32_t duplicateId)
{
    VersionUnion const version(m_module.version.major, m_module.version.minor,
                               m_module.version.patch);
    return Record(id, duplicateId, ParserCRC64::HashName(m_module.instanceName), version);
}

inline ModuleData* ModuleFile::Record(uint32_t id, uint32_t duplicateId, unsigned long nameHash,
                                      VersionUnion version)
{
    m_records.push_back(std::make_unique<ModuleData>(nameHash, id, duplicateId, version, 0,
                                                     &m_modes, &m_manager, m_table.get()));
    return m_records.back().get();
}

} // namespace ModuleTest
