// SPDX-License-Identifier: Apache-2.0
// Writer-made files for the format layer's tests and benchmarks: a file of a given size with a
// recognisable byte at every position, and symbol tables read straight from their sections.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "parameterparser/imodetable.h"
#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "tools/writer/symboltablebuilder.h"
#include "tools/writer/tuningfilewriter.h"

namespace ParamTest {

inline std::vector<uint8_t> Bytes(std::string const& text)
{
    return std::vector<uint8_t>(text.begin(), text.end());
}

/// "V7_0_0" for a test name or trace.
inline std::string VersionName(TuningWriter::FileVersion const& v)
{
    return "V" + std::to_string(v.major) + "_" + std::to_string(v.minor) + "_" +
           std::to_string(v.patch);
}

/// A module entry of version 3.4.0 holding data as its bytes.
inline TuningWriter::ModuleEntry Module(std::string name, std::string const& data,
                                        uint32_t modeId = 0)
{
    TuningWriter::ModuleEntry entry;
    entry.name = std::move(name);
    entry.moduleVersion = {3, 4, 0};
    entry.modeId = modeId;
    entry.data = Bytes(data);
    return entry;
}

/// A sound tuning file whose data section of dataSize bytes counts up, so that every position
/// holds a recognisable byte.
inline std::vector<uint8_t> PatternFile(size_t dataSize)
{
    std::vector<uint8_t> data(dataSize);
    for (size_t i = 0; i < dataSize; ++i)
        data[i] = static_cast<uint8_t>(i * 7 + i / 251);
    TuningWriter::TuningFileWriter writer;
    writer.AddSection(TuningWriter::SectionType::Symbol, std::vector<uint8_t>(8, 0))
        .AddSection(TuningWriter::SectionType::Data, std::move(data));
    return writer.Build();
}

/// Every Mode ID names the one Default node: module records of table tests always find a mode.
class SingleModeTable : public IModeTable
{
public:
    SingleModeTable() : m_root(true, true) { m_slot.mode = &m_root; }
    ModeSlot* GetModeEntry(unsigned int) override { return &m_slot; }

private:
    ModeEntry m_root;
    ModeSlot m_slot = {};
};

/// A file holding a symbol builder's tables (and a definition section, if one is given), and
/// where they stand in it.
struct TableFile
{
    using Section = ParameterFileSymbolTable::SectionInfo;

    explicit TableFile(TuningWriter::SymbolTableBuilder const& builder,
                       std::vector<uint8_t> definitionSection = {})
    {
        TuningWriter::TuningFileWriter writer(builder.Version());
        builder.AddTo(writer);
        if (!definitionSection.empty())
            writer.AddSection(TuningWriter::SectionType::Definition, definitionSection);
        TuningWriter::SymbolTableBuilder::Sections const sections = builder.Build();
        // AddTo adds the symbol section, the data table where the version has one, then the data;
        // the definitions follow. Offsets are taken once every record is in the section table.
        size_t index = 0;
        auto section = [&](std::vector<uint8_t> const& content) {
            return Section{writer.SectionOffsetAt(index++), static_cast<uint32_t>(content.size())};
        };
        symbol = section(sections.symbol);
        if (TuningWriter::SymbolTableBuilder::DataEntrySize(builder.Version()) != 0)
            dataTable = section(sections.dataTable);
        data = section(sections.data);
        if (!definitionSection.empty())
            definitions = section(definitionSection);
        bytes = writer.Build();
    }

    /// Reads the tables into table in buffer mode.
    [[nodiscard]] bool LoadInto(ParameterFileSymbolTable& table, IModeTable* modes)
    {
        return table.Load(bytes.data(), static_cast<unsigned int>(bytes.size()), nullptr, nullptr,
                          0, symbol, dataTable, data, definitions, modes, true);
    }

    std::vector<uint8_t> bytes;
    Section symbol = {};
    Section dataTable = {};
    Section data = {};
    Section definitions = {};
};

} // namespace ParamTest
