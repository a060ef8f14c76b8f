// SPDX-License-Identifier: Apache-2.0
// TuningFileWriter: header, section table, sections and checksum, with optional damage.
#include "tools/writer/tuningfilewriter.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "parameterparser/parameterutils.h"
#include "parameterparser/parsercrc.h"
#include "tools/writer/bytesink.h"
#include "tools/writer/symboltablebuilder.h"

namespace TuningWriter {

namespace {

constexpr size_t HeaderTagWidth = 28;
constexpr size_t CreatedByWidth = 48;
constexpr size_t BinaryTagWidth = 64;

// Bytes of the one data block of a minimal file.
constexpr size_t MinimalBlockSize = 4;

bool HasTagFields(FileVersion version)
{
    return AtLeast(version, 1, 0, 2);
}

bool HasHeaderFlags(FileVersion version)
{
    return AtLeast(version, 3, 0, 0);
}

} // namespace

unsigned char AlignmentFor(FileVersion version)
{
    return AtLeast(version, 1, 1, 0) && !AtLeast(version, 3, 0, 1) ? 8 : 1;
}

bool UsesCrc64(FileVersion version)
{
    return AtLeast(version, 6, 0, 0);
}

TuningFileWriter::TuningFileWriter(FileVersion version) : m_version(version)
{
}

TuningFileWriter& TuningFileWriter::SetHeaderTag(std::string tag)
{
    m_headerTag = std::move(tag);
    return *this;
}

TuningFileWriter& TuningFileWriter::SetCreatedBy(std::string createdBy)
{
    m_createdBy = std::move(createdBy);
    return *this;
}

TuningFileWriter& TuningFileWriter::SetBinaryTag(std::string binaryTag)
{
    m_binaryTag = std::move(binaryTag);
    return *this;
}

TuningFileWriter& TuningFileWriter::SetHeaderFlags(uint64_t flags)
{
    m_headerFlags = flags;
    return *this;
}

TuningFileWriter& TuningFileWriter::AddSection(SectionType type, std::vector<uint8_t> bytes)
{
    uint32_t const size = static_cast<uint32_t>(bytes.size());
    m_sections.push_back({static_cast<uint32_t>(type), false, 0, size, std::move(bytes)});
    return *this;
}

TuningFileWriter& TuningFileWriter::AddRawSectionRecord(uint32_t type, uint32_t offset,
                                                        uint32_t size)
{
    m_sections.push_back({type, true, offset, size, {}});
    return *this;
}

TuningFileWriter& TuningFileWriter::AddMinimalSections()
{
    // One symbol entry that is no module, over a small data block: the tables are sound and hold
    // no module record, and the file has just the two sections every load needs.
    SymbolTableBuilder tables(m_version);
    ModuleEntry block;
    block.modeId = NoModuleModeId;
    block.data.assign(MinimalBlockSize, 0);
    tables.AddModule(std::move(block));
    SymbolTableBuilder::Sections sections = tables.Build();
    AddSection(SectionType::Symbol, std::move(sections.symbol));
    AddSection(SectionType::Data, std::move(sections.data));
    return *this;
}

TuningFileWriter& TuningFileWriter::SetDamage(Damage damage)
{
    m_damage = std::move(damage);
    return *this;
}

size_t TuningFileWriter::HeaderSize() const
{
    size_t size = HeaderTagWidth + 4 + 8 + 4 + 4;
    if (HasTagFields(m_version))
        size += CreatedByWidth + BinaryTagWidth;
    if (HasHeaderFlags(m_version))
        size += 8;
    return size;
}

size_t TuningFileWriter::SectionTableSize() const
{
    return m_sections.size() * 3 * FieldStep(4, Alignment());
}

size_t TuningFileWriter::ChecksumSize() const
{
    return UsesCrc64(m_version) ? 8 : 4;
}

std::vector<uint32_t> TuningFileWriter::PlacedOffsets() const
{
    unsigned char const alignment = Alignment();
    std::vector<uint32_t> offsets;
    size_t end = HeaderSize() + SectionTableSize();
    for (SectionRecord const& section : m_sections) {
        if (section.raw) {
            offsets.push_back(section.offset);
            continue;
        }
        size_t const offset = AlignUp(static_cast<unsigned int>(end), alignment);
        offsets.push_back(static_cast<uint32_t>(offset));
        end = offset + section.bytes.size();
    }
    return offsets;
}

uint32_t TuningFileWriter::SectionOffsetAt(size_t index) const
{
    std::vector<uint32_t> const offsets = PlacedOffsets();
    return index < offsets.size() ? offsets[index] : 0;
}

TuningFileWriter& TuningFileWriter::SetMinimumFileSize(size_t size)
{
    m_minimumFileSize = size;
    return *this;
}

std::vector<uint8_t> TuningFileWriter::Build() const
{
    unsigned char const alignment = Alignment();
    std::vector<uint32_t> const offsets = PlacedOffsets();

    // Where the checksum goes: behind the last placed section, or the table if none was placed.
    size_t payloadEnd = HeaderSize() + SectionTableSize();
    for (size_t i = 0; i < m_sections.size(); ++i)
        if (!m_sections[i].raw)
            payloadEnd = offsets[i] + m_sections[i].bytes.size();
    // Zero padding ahead of the checksum brings the file up to the minimum size asked for.
    if (payloadEnd + ChecksumSize() < m_minimumFileSize)
        payloadEnd = m_minimumFileSize - ChecksumSize();
    size_t const soundSize = payloadEnd + ChecksumSize();

    // The header is read byte-exactly whatever the version.
    ByteSink header(1);
    std::string const tag =
        m_damage.emptyHeaderTag ? std::string() : m_damage.headerTag.value_or(m_headerTag);
    header.PutFixedString(tag, HeaderTagWidth);
    header.PutU32(m_damage.fileSize.value_or(static_cast<uint32_t>(soundSize)));
    header.PutU16(m_version.major);
    header.PutU16(m_version.minor);
    header.PutU32(m_version.patch);
    if (HasTagFields(m_version)) {
        header.PutFixedString(m_createdBy, CreatedByWidth);
        header.PutFixedString(m_binaryTag, BinaryTagWidth);
    }
    if (HasHeaderFlags(m_version))
        header.PutU64(m_headerFlags);
    header.PutU32(m_damage.sectionOffset.value_or(static_cast<uint32_t>(HeaderSize())));
    header.PutU32(m_damage.sectionCount.value_or(static_cast<uint32_t>(m_sections.size())));

    // The section table follows at once and is stepped at the file's alignment.
    ByteSink table(alignment);
    for (size_t i = 0; i < m_sections.size(); ++i) {
        table.PutU32(m_sections[i].type);
        table.PutU32(offsets[i]);
        table.PutU32(m_sections[i].size);
    }

    std::vector<uint8_t> file = header.Take();
    std::vector<uint8_t> const tableBytes = table.Take();
    file.insert(file.end(), tableBytes.begin(), tableBytes.end());
    file.resize(payloadEnd, 0);
    for (size_t i = 0; i < m_sections.size(); ++i)
        if (!m_sections[i].raw)
            std::copy(m_sections[i].bytes.begin(), m_sections[i].bytes.end(),
                      file.begin() + offsets[i]);

    unsigned int const covered = static_cast<unsigned int>(payloadEnd);
    uint64_t checksum = UsesCrc64(m_version) ? ParserCRC64::GetCRC(file.data(), covered, true, 0)
                                             : ParserCRC32::GetCRC(file.data(), covered, 0);
    if (m_damage.badChecksum)
        checksum = ~checksum;
    for (size_t i = 0; i < ChecksumSize(); ++i)
        file.push_back(static_cast<uint8_t>(checksum >> (8 * i)));

    // Faults on the finished file: cut the end, then append, then cut to a fixed length.
    file.resize(m_damage.truncate < file.size() ? file.size() - m_damage.truncate : 0);
    file.insert(file.end(), m_damage.appended.begin(), m_damage.appended.end());
    if (m_damage.cutAt != 0 && m_damage.cutAt < file.size())
        file.resize(m_damage.cutAt);
    return file;
}

bool TuningFileWriter::WriteFile(std::string const& path) const
{
    std::vector<uint8_t> const bytes = Build();
    FILE* stream = std::fopen(path.c_str(), "wb");
    if (stream == nullptr)
        return false;
    if (std::fwrite(bytes.data(), 1, bytes.size(), stream) != bytes.size()) {
        int const writeErrno = errno;
        std::fclose(stream);
        errno = writeErrno;
        return false;
    }
    return std::fclose(stream) == 0;
}

} // namespace TuningWriter
