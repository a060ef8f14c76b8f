// SPDX-License-Identifier: Apache-2.0
// The file checksums: CRC-32 for files below 6.0.0, and the 64-bit CRC that also hashes every name.
#pragma once

#include <cstdint>

#include "parameterparser/parameterexport.h"

class IParameterLoggingAPI;

/// The ways a checksum can be computed. GetCRC takes the fastest one this processor has; tests
/// and benchmarks name one through GetCRCWith to compare it with the byte-wise reference.
enum class ParserCRCForm
{
    Bytewise, ///< one byte per table step: the reference
    Sliced,   ///< eight bytes per step over eight tables: the portable form
    Clmul,    ///< 128-bit carry-less-multiply folding (x86-64 with PCLMULQDQ)
    Clmul512, ///< 512-bit folding (x86-64 with VPCLMULQDQ and AVX-512)
};

/// Whether this processor can run form; Bytewise and Sliced always can.
PARAMETERPARSER_API bool ParserCRCFormAvailable(ParserCRCForm form);

/// The standard CRC-32 (reflected polynomial 0xEDB88320) over constant tables.
class PARAMETERPARSER_API ParserCRC32
{
public:
    /// CRC of length bytes (data must hold them) continued from seed; length 0 returns seed
    /// unchanged. "123456789" with seed 0 gives 0xCBF43926. Folds with carry-less multiplies
    /// where the processor has them, else eight bytes per step over sliced tables; the result
    /// always equals GetCRCBytewise.
    static unsigned int GetCRC(unsigned char const* data, unsigned int length, unsigned int seed);

    /// GetCRC computed by form; a form this processor cannot run computes as Sliced.
    static unsigned int GetCRCWith(ParserCRCForm form, unsigned char const* data,
                                   unsigned int length, unsigned int seed);

    /// Checks the little-endian u32 checksum stored in the last 4 bytes against the CRC (seed 0)
    /// of the bytes before it. A null or sub-5-byte buffer logs "Binary file CRC validation
    /// failed. Buffer too small"; a mismatch logs the computed and the stored value. Both at error
    /// level, returning false.
    [[nodiscard]] static bool Validate(unsigned char const* data, unsigned int length,
                                       IParameterLoggingAPI* log);

    /// The byte-at-a-time form of GetCRC: the reference the fast form must equal.
    static unsigned int GetCRCBytewise(unsigned char const* data, unsigned int length,
                                       unsigned int seed);

    /// The byte table, constant data built by the compiler.
    static uint32_t const m_table[256]; // NOLINT(readability-identifier-naming): public name
};

/// A right-shifting 64-bit CRC over the ECMA-182 polynomial value 0x42F0E1EBA9EA3693. It is the
/// name hash of the whole system: GetCRC(name, strlen(name), true, 0). It is neither
/// CRC-64/ECMA-182 nor CRC-64/XZ and must stay exactly as it is.
class PARAMETERPARSER_API ParserCRC64
{
public:
    /// CRC of length bytes (data must hold them) continued from seed; with addLength the four
    /// bytes of length (least significant first) are run through the CRC behind the data, even
    /// for length 0. Folds with carry-less multiplies where the processor has them, else eight
    /// bytes per step over sliced tables; the result always equals GetCRCBytewise.
    static unsigned long GetCRC(unsigned char const* data, unsigned int length, bool addLength,
                                unsigned long seed);

    /// GetCRC computed by form; a form this processor cannot run computes as Sliced.
    static unsigned long GetCRCWith(ParserCRCForm form, unsigned char const* data,
                                    unsigned int length, bool addLength, unsigned long seed);

    /// Checks the little-endian u64 checksum stored in the last 8 bytes against the CRC (seed 0,
    /// addLength as given) of the bytes before it. A null or sub-9-byte buffer logs "Binary file
    /// CRC validation failed. Buffer too small"; a mismatch logs the computed and the stored
    /// value. Both at error level, returning false.
    [[nodiscard]] static bool Validate(unsigned char const* data, unsigned int length,
                                       bool addLength, IParameterLoggingAPI* log);

    /// The byte-at-a-time form of GetCRC: the reference the fast form must equal.
    static unsigned long GetCRCBytewise(unsigned char const* data, unsigned int length,
                                        bool addLength, unsigned long seed);

    /// The name hash: GetCRC over the characters of name without its NUL, with the length added.
    /// A null name hashes as the empty name.
    static unsigned long HashName(char const* name);

    /// The byte table, constant data built by the compiler: entry i is i shifted right eight
    /// times, folding in the polynomial whenever a 1 bit drops out.
    static uint64_t const m_table[256]; // NOLINT(readability-identifier-naming): public name
};
