// SPDX-License-Identifier: Apache-2.0
// Helpers of the mode tree tests: writer-made files and reading their mode sections.
#pragma once

#include <cstdint>
#include <vector>

#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/parametermodetable.h"
#include "tools/writer/modesectionbuilder.h"
#include "tools/writer/tuningfilewriter.h"

#include "tests/common/testsetmanager.h"

namespace ParamTest {

/// A file of version holding one mode section per table and empty symbol and data records,
/// which is all a file needs to pass the section table and load with nothing but its trees.
inline std::vector<uint8_t> ModeFile(std::vector<TuningWriter::ModeSectionBuilder> const& tables,
                                     TuningWriter::FileVersion version = {})
{
    TuningWriter::TuningFileWriter writer(version);
    writer.AddRawSectionRecord(static_cast<uint32_t>(TuningWriter::SectionType::Symbol), 0, 0);
    writer.AddRawSectionRecord(static_cast<uint32_t>(TuningWriter::SectionType::Data), 0, 0);
    for (TuningWriter::ModeSectionBuilder const& table : tables)
        table.AddTo(writer);
    return writer.Build();
}

/// Reads header, section table and mode sections of a whole file the way a load from a buffer
/// does; length, if not 0, bounds the mode section reading. Returns the mode sections' result.
inline bool ReadModeTree(TestSetManager& manager, std::vector<uint8_t>& bytes,
                         unsigned int length = 0)
{
    unsigned int pos = 0;
    unsigned int sectionOffset = 0;
    unsigned char alignment = 1;
    auto const size = static_cast<unsigned int>(bytes.size());
    if (!manager.ReadHeader(bytes.data(), size, pos, sectionOffset, alignment))
        return false;
    pos = sectionOffset;
    if (!manager.ReadSectionInfo(bytes.data(), size, pos, alignment))
        return false;
    return manager.ReadModeSections(bytes.data(), length != 0 ? length : size, nullptr, alignment);
}

/// The node in slot of table; null if the slot or the table does not exist.
inline ModeEntry* SlotNode(TestSetManager& manager, unsigned int table, unsigned int slot)
{
    ParameterModeTable* modeTable = manager.GetModeTable(table);
    if (modeTable == nullptr || slot >= modeTable->m_modeCount)
        return nullptr;
    return modeTable->modes[slot].mode;
}

/// The children of node in order.
inline std::vector<ModeEntry*> Children(ModeEntry* node)
{
    std::vector<ModeEntry*> children;
    for (ModeEntry* child = node->firstChild; child != nullptr; child = child->nextSibling)
        children.push_back(child);
    return children;
}

} // namespace ParamTest
