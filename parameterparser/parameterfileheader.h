// SPDX-License-Identifier: Apache-2.0
// The header and the section table of a tuning file, read into records.
#pragma once

#include <cstdint>

#include "parameterparser/parameterexport.h"
#include "parameterparser/parameterfilelayout.h"
#include "parameterparser/parameterfilesection.h"
#include "parameterparser/plist.h"

class IParameterLoggingAPI;
class ParameterByteReader;

/// The fields of a file's header. Fields the header does not hold, or that a short header did
/// not reach, keep the values the caller gave them.
struct PARAMETERPARSER_API ParameterFileHeader
{
    ParameterFileHeader() = default;
    ParameterFileHeader(ParameterFileHeader const&) = delete;
    ParameterFileHeader& operator=(ParameterFileHeader const&) = delete;
    ~ParameterFileHeader();

    /// Hands the binary tag over to the caller, who frees it with VornFree; null when none.
    char* ReleaseBinaryTag();

    /// The file's layout, from the version field.
    ParameterFileLayout layout;
    /// The tag of a file of 1.0.2 or later (VornCalloc); owned until released.
    char* binaryTag = nullptr;
    unsigned long headerFlags = 0;
    uint32_t sectionOffset = 0;
    uint32_t sectionCount = 0;
    /// The position behind the last field read.
    unsigned int end = 0;
};

/// Where each section of a file stands, by the section table.
struct ParameterSectionTable
{
    using SectionInfo = ParameterSectionInfo;

    SectionInfo symbol = {};
    SectionInfo dataTable = {};
    SectionInfo data = {};
    SectionInfo definitions = {};
    /// The mode sections in the order of the table.
    PList<SectionInfo> modes;
};

/// Reads and checks the header of a whole file in buffer. The checks run in a fixed order, which
/// decides the message a damaged file gets: short header ("General error parsing binary header
/// data header"), tag, size against FileSize (not for a compressed file), version, checksum.
/// errorText, if not null, has room for 2048 characters, is cleared first and receives why the
/// header was refused; a file below 1.0.2 leaves a warning there while the result is true. Short
/// reads are logged at error level; log may be null.
[[nodiscard]] PARAMETERPARSER_API bool ReadFileHeader(unsigned char* buffer, unsigned int length,
                                                      ParameterFileHeader& header, char* errorText,
                                                      IParameterLoggingAPI* log);

/// Reads count records of the section table through reader, which moves on, into sections; the
/// other rules are those of ReadSectionTable, and the reader's log is the log.
[[nodiscard]] bool ReadSectionRecords(ParameterByteReader& reader, unsigned int count,
                                      ParameterSectionTable& sections, char* errorText);

/// ReadSectionRecords on buffer at pos (which moves on) at the given alignment, for callers that
/// keep the cursor of the whole file.
[[nodiscard]] PARAMETERPARSER_API bool
ReadSectionRecords(unsigned char* buffer, unsigned int length, unsigned int& pos,
                   unsigned char alignment, unsigned int count, ParameterSectionTable& sections,
                   char* errorText, IParameterLoggingAPI* log);

/// Reads header.sectionCount records of the section table at header.sectionOffset into sections
/// at the header's alignment. Fewer than 2 records or an unknown type is logged (when a logger is
/// given) and gives false, as does a short table, whose text goes to errorText (if not null).
/// Records before a failure stay stored.
[[nodiscard]] PARAMETERPARSER_API bool ReadSectionTable(unsigned char* buffer, unsigned int length,
                                                        ParameterFileHeader const& header,
                                                        ParameterSectionTable& sections,
                                                        char* errorText, IParameterLoggingAPI* log);

/// True if the named file can be searched for mode table names and holds one named tableName.
/// Any failure to read the file, its header or its section table gives false; nothing is logged.
[[nodiscard]] PARAMETERPARSER_API bool FileHasModeTable(char const* fileName,
                                                        char const* tableName);
