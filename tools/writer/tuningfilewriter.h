// SPDX-License-Identifier: Apache-2.0
// TuningFileWriter: writes binary tuning files of any supported version, with optional damage.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace TuningWriter {

/// Section types of the section table.
enum class SectionType : uint32_t
{
    Symbol = 0,
    Data = 1,
    Mode = 2,
    DataTable = 3,
    Definition = 4,
};

/// A file version major.minor.patch.
struct FileVersion
{
    uint16_t major = 7;
    uint16_t minor = 0;
    uint32_t patch = 0;
};

/// True when version is major.minor.patch or later (parts compared in that order).
inline bool AtLeast(FileVersion version, uint16_t major, uint16_t minor = 0, uint32_t patch = 0)
{
    if (version.major != major)
        return version.major > major;
    if (version.minor != minor)
        return version.minor > minor;
    return version.patch >= patch;
}

/// The alignment a reader applies behind the header of a file of this version: 1 below 1.1.0,
/// 8 from 1.1.0 up to but not including 3.0.1, 1 from 3.0.1 on.
unsigned char AlignmentFor(FileVersion version);

/// True when the file carries a 64-bit checksum (6.0.0 and later), else a 32-bit one.
bool UsesCrc64(FileVersion version);

/// Deliberate faults for tests. Every field left at its default writes a sound file.
struct Damage
{
    std::optional<std::string> headerTag;  ///< replaces the tag text (28-byte field, cut)
    bool emptyHeaderTag = false;           ///< the tag field is all NUL
    std::optional<uint32_t> fileSize;      ///< replaces the FileSize field
    std::optional<uint32_t> sectionOffset; ///< replaces SectionOffset
    std::optional<uint32_t> sectionCount;  ///< replaces SectionCount
    bool badChecksum = false;              ///< flips every bit of the stored checksum
    size_t truncate = 0;                   ///< bytes cut from the end after the checksum
    size_t cutAt = 0;                      ///< if not 0, the file is cut to this many bytes
    std::vector<uint8_t> appended;         ///< bytes added behind the checksum
    // The last three act on the finished file in this order: truncate, then appended (so the two
    // together replace the tail), then cutAt. FileSize keeps the undamaged length unless fileSize
    // is given.
};

/// Builds a tuning file: header (fields present per version), section table directly behind the
/// header, the sections in the order they were added, and the checksum over everything before it.
/// The checksum is CRC-32 below 6.0.0 and the 64-bit CRC with the length added from 6.0.0 on.
class TuningFileWriter
{
public:
    explicit TuningFileWriter(FileVersion version = {});

    TuningFileWriter& SetHeaderTag(std::string tag);
    TuningFileWriter& SetCreatedBy(std::string createdBy);
    TuningFileWriter& SetBinaryTag(std::string binaryTag);
    TuningFileWriter& SetHeaderFlags(uint64_t flags);

    /// Adds a section whose bytes the writer places and whose record it writes.
    TuningFileWriter& AddSection(SectionType type, std::vector<uint8_t> bytes);

    /// Adds a section record with any type, offset and size, pointing wherever the test wants.
    TuningFileWriter& AddRawSectionRecord(uint32_t type, uint32_t offset, uint32_t size);

    /// Adds the least a file needs to load with its tables: a sound symbol table holding no
    /// module, a data section with one small block (and its data table from 4.0.0). What most
    /// tests start from.
    TuningFileWriter& AddMinimalSections();

    TuningFileWriter& SetDamage(Damage damage);

    /// Pads the file with zeros ahead of the checksum up to size bytes. A loader that keeps the
    /// file on disk reads the first FileModeWindow bytes whole, so files meant for that mode need
    /// at least that size.
    TuningFileWriter& SetMinimumFileSize(size_t size);

    FileVersion Version() const { return m_version; }
    unsigned char Alignment() const { return AlignmentFor(m_version); }

    /// The whole file.
    std::vector<uint8_t> Build() const;

    /// Builds and writes the file; false (with errno set) if it cannot be written.
    bool WriteFile(std::string const& path) const;

    /// Size of the header of this writer's version: 48, 160 or 168 bytes. The section table
    /// starts here.
    size_t HeaderSize() const;

    /// Bytes of the section table: 12 a record at alignment 1, 24 at alignment 8.
    size_t SectionTableSize() const;

    /// Bytes of the trailing checksum: 8 from 6.0.0 on, else 4.
    size_t ChecksumSize() const;

    /// The Offset that the section record at index (in the order added) carries: where the
    /// writer placed the section, or the offset given to AddRawSectionRecord. 0 past the end.
    uint32_t SectionOffsetAt(size_t index) const;

private:
    struct SectionRecord
    {
        uint32_t type;
        bool raw; ///< offset and size as given rather than placed
        uint32_t offset;
        uint32_t size;
        std::vector<uint8_t> bytes;
    };

    std::vector<uint32_t> PlacedOffsets() const;

    FileVersion m_version;
    std::string m_headerTag = "ZEL Varitonal Header";
    std::string m_createdBy = "TuningWriter";
    std::string m_binaryTag = "sample";
    uint64_t m_headerFlags = 0;
    std::vector<SectionRecord> m_sections;
    Damage m_damage;
    size_t m_minimumFileSize = 0;
};

/// Bytes a file-mode load reads in one piece at the start of a file.
constexpr size_t FileModeWindow = 3388;

} // namespace TuningWriter
