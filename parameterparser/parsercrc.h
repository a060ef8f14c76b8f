// SPDX-License-Identifier: Apache-2.0
// The file checksums: CRC-32 for files below 6.0.0, and the 64-bit CRC that also hashes every name.
#pragma once

#include <cstdint>

#include "parameterparser/parameterexport.h"

class IParameterLoggingAPI;

/// The standard CRC-32 (reflected polynomial 0xEDB88320) over constant tables.
class PARAMETERPARSER_API ParserCRC32
{
public:
    /// CRC of length bytes continued from seed; length 0 returns seed unchanged. "123456789" with
    /// seed 0 gives 0xCBF43926.
    static unsigned int GetCRC(unsigned char const* data, unsigned int length, unsigned int seed);

    /// Checks the u32 checksum stored in the last 4 bytes against the bytes before it. Logs the
    /// failure at error level and returns false on a mismatch or a buffer below 5 bytes.
    static bool Validate(unsigned char const* data, unsigned int length, IParameterLoggingAPI* log);

    /// The byte-at-a-time form of GetCRC: the reference the fast form must equal.
    static unsigned int GetCRCBytewise(unsigned char const* data, unsigned int length,
                                       unsigned int seed);

    static uint32_t const m_table[256];
};

/// A right-shifting 64-bit CRC over the ECMA-182 polynomial value 0x42F0E1EBA9EA3693. It is the
/// name hash of the whole system: GetCRC(name, strlen(name), true, 0). It is neither
/// CRC-64/ECMA-182 nor CRC-64/XZ and must stay exactly as it is.
class PARAMETERPARSER_API ParserCRC64
{
public:
    /// CRC of length bytes continued from seed; with addLength the four bytes of length (least
    /// significant first) are run through the CRC behind the data.
    static unsigned long GetCRC(unsigned char const* data, unsigned int length, bool addLength,
                                unsigned long seed);

    /// Checks the u64 checksum stored in the last 8 bytes against the bytes before it. Logs the
    /// failure at error level and returns false on a mismatch or a buffer below 9 bytes.
    static bool Validate(unsigned char const* data, unsigned int length, bool addLength,
                         IParameterLoggingAPI* log);

    /// The byte-at-a-time form of GetCRC: the reference the fast form must equal.
    static unsigned long GetCRCBytewise(unsigned char const* data, unsigned int length,
                                        bool addLength, unsigned long seed);

    /// The name hash: GetCRC over the characters of name without its NUL, with the length added.
    static unsigned long HashName(char const* name);

    static uint64_t const m_table[256];
};
