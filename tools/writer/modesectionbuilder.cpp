// SPDX-License-Identifier: Apache-2.0
// ModeSectionBuilder: mode tables from named paths and their section bytes.
#include "tools/writer/modesectionbuilder.h"

#include <cstdlib>

#include "tools/writer/bytesink.h"

namespace TuningWriter {

namespace {

// The file format's mode names, by value.
char const* const ModeNames[] = {"Default",  "Sensor", "Usecase", "Feature1",
                                 "Feature2", "Scene",  "Effect"};
constexpr unsigned int ModeNameCount = sizeof(ModeNames) / sizeof(ModeNames[0]);

// The few sub-mode names tests use by name; anything else is given as a number.
struct SubModeName
{
    uint16_t mode;
    uint16_t subMode;
    char const* name;
};

SubModeName const SubModeNames[] = {
    {2, 0, "Preview"},  {2, 1, "Snapshot"},   {2, 2, "Video"},  {2, 3, "ZSL"},
    {2, 6, "IDEALRAW"}, {3, 0, "None"},       {3, 1, "ISPHDR"}, {3, 2, "ADRC"},
    {4, 0, "None"},     {4, 1, "OISCapture"}, {4, 3, "HDR10"},  {5, 0, "None"},
    {5, 5, "Night"},    {5, 6, "Portrait"},   {6, 0, "None"},   {6, 1, "Mono"},
};

bool IsNumber(std::string const& text)
{
    if (text.empty())
        return false;
    for (char c : text) {
        if (c < '0' || c > '9')
            return false;
    }
    return true;
}

} // namespace

ModeSectionBuilder::ModeSectionBuilder(uint8_t tableIndex, std::string name)
    : m_tableIndex(tableIndex), m_name(std::move(name))
{
}

ModeSectionBuilder& ModeSectionBuilder::AddEntry(ModeEntryRecord const& entry)
{
    m_entries.push_back(entry);
    return *this;
}

uint32_t ModeSectionBuilder::NextModeId() const
{
    return (static_cast<uint32_t>(m_tableIndex) << 24) | static_cast<uint32_t>(m_entries.size());
}

uint32_t ModeSectionBuilder::AddChild(uint32_t parentId, uint16_t mode, uint16_t subMode,
                                      uint32_t pipeline, uint32_t flags, uint32_t linkId)
{
    ModeEntryRecord entry;
    entry.modeId = NextModeId();
    entry.parentId = parentId;
    entry.mode = mode;
    entry.subMode = subMode;
    entry.pipeline = pipeline;
    entry.flags = flags;
    entry.linkId = linkId;
    m_entries.push_back(entry);
    return entry.modeId;
}

bool ModeSectionBuilder::ParseStep(std::string const& text, Step& step)
{
    size_t const dot = text.find('.');
    std::string const modeText = text.substr(0, dot);
    std::string const subText = dot == std::string::npos ? "" : text.substr(dot + 1);
    bool found = false;
    if (IsNumber(modeText)) {
        step.mode = static_cast<uint16_t>(std::strtoul(modeText.c_str(), nullptr, 10));
        found = true;
    }
    for (unsigned int i = 0; i < ModeNameCount && !found; ++i) {
        if (modeText == ModeNames[i]) {
            step.mode = static_cast<uint16_t>(i);
            found = true;
        }
    }
    if (!found)
        return false;
    step.subMode = 0;
    if (subText.empty())
        return dot == std::string::npos;
    if (IsNumber(subText)) {
        step.subMode = static_cast<uint16_t>(std::strtoul(subText.c_str(), nullptr, 10));
        return true;
    }
    for (SubModeName const& name : SubModeNames) {
        if (name.mode == step.mode && subText == name.name) {
            step.subMode = name.subMode;
            return true;
        }
    }
    return false;
}

bool ModeSectionBuilder::ParsePath(std::string const& namedPath, std::vector<Step>& steps)
{
    size_t start = 0;
    while (start <= namedPath.size()) {
        size_t const bar = namedPath.find('|', start);
        size_t const end = bar == std::string::npos ? namedPath.size() : bar;
        Step step = {0, 0};
        if (!ParseStep(namedPath.substr(start, end - start), step))
            return false;
        steps.push_back(step);
        if (bar == std::string::npos)
            break;
        start = bar + 1;
    }
    return !steps.empty();
}

uint32_t ModeSectionBuilder::FindRoot() const
{
    for (ModeEntryRecord const& entry : m_entries) {
        if (entry.parentId == entry.modeId)
            return entry.modeId;
    }
    return InvalidModeId;
}

uint32_t ModeSectionBuilder::FindChild(uint32_t parentId, Step const& step) const
{
    for (ModeEntryRecord const& entry : m_entries) {
        if (entry.parentId == parentId && entry.modeId != parentId && entry.mode == step.mode &&
            entry.subMode == step.subMode && entry.pipeline == 0)
            return entry.modeId;
    }
    return InvalidModeId;
}

uint32_t ModeSectionBuilder::Find(std::string const& namedPath) const
{
    std::vector<Step> steps;
    if (!ParsePath(namedPath, steps))
        return InvalidModeId;
    uint32_t id = FindRoot();
    for (size_t i = 1; i < steps.size() && id != InvalidModeId; ++i)
        id = FindChild(id, steps[i]);
    return id;
}

uint32_t ModeSectionBuilder::AddPath(std::string const& namedPath)
{
    std::vector<Step> steps;
    if (!ParsePath(namedPath, steps))
        return InvalidModeId;
    uint32_t id = FindRoot();
    if (id == InvalidModeId) {
        ModeEntryRecord root;
        root.modeId = NextModeId();
        root.parentId = root.modeId;
        root.mode = steps[0].mode;
        root.subMode = steps[0].subMode;
        m_entries.push_back(root);
        id = root.modeId;
    } else {
        ModeEntryRecord const& root = m_entries[id & 0x00FFFFFF];
        if (root.mode != steps[0].mode || root.subMode != steps[0].subMode)
            return InvalidModeId;
    }
    for (size_t i = 1; i < steps.size(); ++i) {
        uint32_t const child = FindChild(id, steps[i]);
        id = child != InvalidModeId ? child : AddChild(id, steps[i].mode, steps[i].subMode);
    }
    return id;
}

size_t ModeSectionBuilder::NameFieldSize(FileVersion version)
{
    if (AtLeast(version, 7, 0, 0))
        return 128;
    if (AtLeast(version, 4, 0, 0))
        return 32;
    return 0;
}

size_t ModeSectionBuilder::EntrySize(FileVersion version)
{
    ByteSink sink(AlignmentFor(version));
    sink.PutU32(0);
    sink.PutU64(0);
    sink.PutU32(0);
    if (AtLeast(version, 2, 0, 0))
        sink.PutU32(0);
    if (AtLeast(version, 5, 0, 0))
        sink.PutU32(0);
    return sink.Size();
}

std::vector<uint8_t> ModeSectionBuilder::Build(FileVersion version) const
{
    ByteSink sink(AlignmentFor(version));
    size_t const nameField = NameFieldSize(version);
    if (nameField != 0)
        sink.PutFixedString(m_name, nameField);
    for (ModeEntryRecord const& entry : m_entries) {
        sink.PutU32(entry.modeId);
        // The mode field is mode (u16), sub-mode (u16) and pipeline (u32) as one 8-byte field.
        sink.PutU64(static_cast<uint64_t>(entry.mode) |
                    (static_cast<uint64_t>(entry.subMode) << 16) |
                    (static_cast<uint64_t>(entry.pipeline) << 32));
        sink.PutU32(entry.parentId);
        if (AtLeast(version, 2, 0, 0))
            sink.PutU32(entry.linkId);
        if (AtLeast(version, 5, 0, 0))
            sink.PutU32(entry.flags);
    }
    return sink.Take();
}

void ModeSectionBuilder::AddTo(TuningFileWriter& writer) const
{
    writer.AddSection(SectionType::Mode, Build(writer.Version()));
}

} // namespace TuningWriter
