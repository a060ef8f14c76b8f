// SPDX-License-Identifier: Apache-2.0
// Module files for the generated-module tests and benchmarks: module entries written by the
// writer from a generated type's description, read into a symbol table of their own, and module
// records to create instances from, the way a set manager does.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

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

namespace ParamTest {

/// Which generated module a file holds: its top type's descriptor and qualified name, its
/// instance name and version.
struct ModuleSchema
{
    ParameterTypeDescriptor const* type;
    char const* topType;
    char const* instanceName;
    TuningWriter::FileVersion version;
};

/// A file of module entries of one schema, loaded in buffer mode into a symbol table that keeps
/// its definitions (or has none, when written without them). The table and the records log
/// through manager, when one is given.
class ModuleFile
{
public:
    explicit ModuleFile(ModuleSchema const& schema, TuningWriter::FileVersion version = {},
                        bool withDefinitions = true, ParameterSetManager* manager = nullptr)
        : m_version(version), m_withDefinitions(withDefinitions), m_module(schema),
          m_symbols(version), m_manager(manager)
    {
        m_schema.Describe(schema.topType, *schema.type);
        m_structures = m_schema.Structures();
    }

    /// The file's schema, the module's generated description until a test changes it (before the
    /// first AddModule) to write a file of another schema than the compiled one.
    std::vector<TuningWriter::DefinitionStructure>& FileSchema() { return m_structures; }

    /// Adds a module entry holding value; returns its symbol ID.
    uint32_t AddModule(TuningWriter::EntryValue const& value)
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

    /// The data table ID of the block written for a value named blockName; 0 if none.
    uint32_t BlockId(std::string const& name) const
    {
        return m_encoder != nullptr ? m_encoder->BlockId(name) : 0;
    }

    /// Damage the tables are written with (keyed by the IDs AddModule returned).
    void Damage(TuningWriter::TableDamage damage) { m_symbols.SetDamage(std::move(damage)); }

    /// Lays the sections out and reads them; false if the table refuses them.
    [[nodiscard]] bool Build()
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
        m_dataBytes = sections.data.size();
        auto const definitionSection = Append(definitions);
        auto const symbolSection = Append(sections.symbol);
        auto const dataTableSection = Append(sections.dataTable);
        auto const dataSection = Append(sections.data);
        VersionUnion const version(m_version.major, m_version.minor, m_version.patch);
        m_table = std::make_unique<ParameterFileSymbolTable>(m_manager, alignment, version);
        auto const length = static_cast<unsigned int>(m_buffer.size());
        return m_table->Load(m_buffer.data(), length, nullptr, nullptr, length, symbolSection,
                             dataTableSection, dataSection, definitionSection, &m_modes, true);
    }

    ParameterFileSymbolTable& Table() { return *m_table; }
    /// Size of the data section: the module entries and the blocks of their arrays.
    size_t DataBytes() const { return m_dataBytes; }

    /// A module record as the table would make it for entry id, under the schema's name and
    /// version unless told otherwise. Owned by the file.
    ModuleData* Record(uint32_t id, uint32_t duplicateId = 0, char const* name = nullptr,
                       TuningWriter::FileVersion const* version = nullptr)
    {
        TuningWriter::FileVersion const& v = version != nullptr ? *version : m_module.version;
        m_records.push_back(std::make_unique<ModuleData>(
            ParserCRC64::HashName(name != nullptr ? name : m_module.instanceName), id, duplicateId,
            VersionUnion(v.major, v.minor, v.patch), 0, &m_modes, m_manager, m_table.get()));
        return m_records.back().get();
    }

private:
    /// The one mode every module record of these files hangs on.
    class SingleModeTable : public IModeTable
    {
    public:
        ModeSlot* GetModeEntry(unsigned int modeId) override
        {
            return modeId == 0 ? &m_slot : nullptr;
        }

    private:
        ModeEntry m_mode{false, false};
        ModeSlot m_slot{&m_mode, 0};
    };

    ParameterFileSymbolTable::SectionInfo Append(std::vector<uint8_t> const& bytes)
    {
        ParameterFileSymbolTable::SectionInfo section{};
        section.Offset = static_cast<uint32_t>(m_buffer.size());
        section.Size = static_cast<uint32_t>(bytes.size());
        m_buffer.insert(m_buffer.end(), bytes.begin(), bytes.end());
        return section;
    }

    TuningWriter::FileVersion m_version;
    bool m_withDefinitions;
    ModuleSchema m_module;
    TuningWriter::SchemaSet m_schema;
    std::vector<TuningWriter::DefinitionStructure> m_structures;
    TuningWriter::SymbolTableBuilder m_symbols;
    ParameterSetManager* m_manager;
    std::unique_ptr<TuningWriter::EntryEncoder> m_encoder;
    SingleModeTable m_modes;
    std::vector<uint8_t> m_buffer;
    std::unique_ptr<ParameterFileSymbolTable> m_table;
    std::vector<std::unique_ptr<ModuleData>> m_records;
    size_t m_dataBytes = 0;
};

/// A list of real numbers, as a member of floats is written.
inline TuningWriter::EntryValue Reals(std::vector<double> const& values)
{
    std::vector<TuningWriter::EntryValue> items;
    for (double value : values)
        items.push_back(TuningWriter::EntryValue::Real(value));
    return TuningWriter::EntryValue::List(std::move(items));
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

} // namespace ParamTest
