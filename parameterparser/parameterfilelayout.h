// SPDX-License-Identifier: Apache-2.0
// ParameterFileLayout: what a tuning file of one version looks like, decided once from its header.
#pragma once

#include <cstdint>

#include "parameterparser/parameterexport.h"
#include "parameterparser/versionunion.h"

/// The checksum behind a file's last byte.
enum class ParameterChecksumKind : uint8_t
{
    Crc32,
    Crc64,
};

/// Every version-dependent choice of the file format, computed from the version in the header.
/// Readers ask this description instead of comparing versions themselves, so a version gate is
/// written once. A default-constructed layout is that of version 0.0.0.
///
/// | From  | Change                                                                  |
/// |-------|-------------------------------------------------------------------------|
/// | 1.0.2 | CreatedBy and BinaryTag in the header; mode tables beyond Default       |
/// | 1.1.0 | every field padded to 8 bytes (up to 3.0.0)                             |
/// | 2.0.0 | mode entries carry a Link ID                                            |
/// | 3.0.0 | HeaderFlags in the header                                               |
/// | 3.0.1 | fields unpadded again; symbol entries lose their 8 spare bytes          |
/// | >3.0.1| symbol and data entries carry a DuplicateID                             |
/// | 4.0.0 | a data table; mode sections open with a 32-byte name                    |
/// | 5.0.0 | mode entries carry Flags                                                |
/// | 6.0.0 | name hashes and positional IDs; CRC-64; structures open with a length   |
/// | 7.0.0 | fixed arrays open with their count; mode table names of 128 bytes        |
struct PARAMETERPARSER_API ParameterFileLayout
{
    /// The layout of a file of version.
    static ParameterFileLayout For(VersionUnion const& version);
    /// The layout of a file of version read at alignment, which sizes its entries.
    static ParameterFileLayout For(VersionUnion const& version, unsigned char alignment);

    /// The newest version this build reads.
    static VersionUnion LatestSupported() { return VersionUnion(7, 0, 0); }

    // Header fields, read at alignment 1 whatever the version.
    static constexpr unsigned int HeaderTagLength = 28;
    static constexpr unsigned int CreatedByLength = 48;
    static constexpr unsigned int BinaryTagLength = 64;
    /// Records a section table holds at the least: a symbol and a data section.
    static constexpr unsigned int MinSectionCount = 2;
    /// The name field of a symbol entry of the formats without name hashes.
    static constexpr unsigned int SymbolNameLength = 32;
    /// Spare bytes behind the version of an unpadded symbol entry before 3.0.1.
    static constexpr unsigned int OldSymbolSpareBytes = 8;

    VersionUnion version;
    /// Bytes every field is padded to: 1, or 8 for 1.1.0 up to 3.0.0.
    unsigned char alignment = 1;
    /// The version is newer than this build reads.
    bool unsupported = false;
    /// CreatedBy and BinaryTag follow the version, and mode sections are read.
    bool hasBinaryTag = false;
    bool hasHeaderFlags = false;
    ParameterChecksumKind checksum = ParameterChecksumKind::Crc32;

    /// Symbol entries carry a name hash and take their ID from their position (from 0); before,
    /// they carry a name field and a stored ID (from 1).
    bool positionalIds = false;
    /// Symbol entries are followed by spare bytes (unpadded files before 3.0.1).
    bool symbolSpareBytes = false;
    bool hasDuplicateId = false;
    /// Bytes one symbol entry counts for in the table's size.
    unsigned int symbolEntrySize = 0;
    /// Bytes of one data table entry; 0 when the file has no data table.
    unsigned int dataEntrySize = 0;

    /// Bytes of the name at the start of a mode section; 0 when tables are unnamed.
    unsigned int modeNameLength = 0;
    unsigned int modeEntrySize = 0;
    bool modeHasLink = false;
    bool modeHasFlags = false;
    /// Mode table names can be searched in a file without loading it.
    bool modeNamesSearchable = false;

    /// Each structure in the data opens with a 4-byte length (the entry's load limit).
    bool structureLengthWord = false;
    /// Each fixed-length array in the data opens with its 4-byte count.
    bool fixedArrayCounts = false;
};
