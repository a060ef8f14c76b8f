// SPDX-License-Identifier: Apache-2.0
// ModeSectionBuilder: describes mode tables and lays out one mode section per table.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/writer/tuningfilewriter.h"

namespace TuningWriter {

/// Link ID of an entry without a link.
constexpr uint32_t NoModeLink = 0xFFFFFFFF;
/// Flag bit 0 of an entry: its node may never be unloaded.
constexpr uint32_t ModeFlagResident = 0x1;
/// What the named-step helpers return for a step they cannot read.
constexpr uint32_t InvalidModeId = 0xFFFFFFFF;

/// One mode entry as the file stores it. Link and flags are written only where the version's
/// format has them (link from 2.0.0, flags from 5.0.0).
struct ModeEntryRecord
{
    uint32_t modeId = 0;   ///< bits 31-24 the table index, 23-0 the slot
    uint32_t parentId = 0; ///< equal to modeId for the root
    uint16_t mode = 0;
    uint16_t subMode = 0;
    uint32_t pipeline = 0;
    uint32_t linkId = NoModeLink;
    uint32_t flags = 0;
};

/// One mode table: a name and its entries in file order. Entries can be given raw (any IDs, any
/// order, for faults) or built from named paths, which number slots in the order they appear.
class ModeSectionBuilder
{
public:
    explicit ModeSectionBuilder(uint8_t tableIndex = 0, std::string name = "");

    /// Appends an entry as given.
    ModeSectionBuilder& AddEntry(ModeEntryRecord const& entry);

    /// Makes sure every step of a named path ("Default|Sensor.0|Usecase.Preview") has an entry,
    /// adding the missing ones below their predecessors; the first step is the root. A step is
    /// a mode name or value, optionally "." and a sub-mode name or value ("Feature1.8", "3.2").
    /// Returns the Mode ID of the last step, or InvalidModeId for an unreadable step or a first
    /// step that differs from an existing root.
    uint32_t AddPath(std::string const& namedPath);

    /// Appends a child entry below parentId and returns its Mode ID. A child with the parent's
    /// mode and sub-mode is a pipeline variant of the parent.
    uint32_t AddChild(uint32_t parentId, uint16_t mode, uint16_t subMode, uint32_t pipeline = 0,
                      uint32_t flags = 0, uint32_t linkId = NoModeLink);

    /// The Mode ID of a named path's last step; InvalidModeId if some step has no entry.
    uint32_t Find(std::string const& namedPath) const;

    /// The Mode ID of the next slot of this table.
    uint32_t NextModeId() const;

    /// The section's bytes for a file of this version: the name field (128 bytes from 7.0.0,
    /// 32 from 4.0.0, none before), then the entries at the version's alignment.
    std::vector<uint8_t> Build(FileVersion version) const;

    /// Adds the section to writer for the writer's version.
    void AddTo(TuningFileWriter& writer) const;

    /// Bytes of the name field and of one entry for a file of this version.
    static size_t NameFieldSize(FileVersion version);
    static size_t EntrySize(FileVersion version);

    std::vector<ModeEntryRecord>& Entries() { return m_entries; }
    std::vector<ModeEntryRecord> const& Entries() const { return m_entries; }
    uint8_t TableIndex() const { return m_tableIndex; }

private:
    struct Step
    {
        uint16_t mode;
        uint16_t subMode;
    };

    static bool ParseStep(std::string const& text, Step& step);
    static bool ParsePath(std::string const& namedPath, std::vector<Step>& steps);
    /// The entry below parentId with this step and pipeline 0; InvalidModeId if none.
    uint32_t FindChild(uint32_t parentId, Step const& step) const;
    uint32_t FindRoot() const;

    uint8_t m_tableIndex;
    std::string m_name;
    std::vector<ModeEntryRecord> m_entries;
};

} // namespace TuningWriter
