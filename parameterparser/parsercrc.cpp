// SPDX-License-Identifier: Apache-2.0
// The file checksums and the name hash, over tables that the compiler builds.
#include "parameterparser/parsercrc.h"

#include <cstring>

#include "parameterparser/parameterlogging.h"
#include "parameterparser/parsercrcfold.h"

namespace {

constexpr uint32_t Crc32Polynomial = 0xEDB88320u;

// The ECMA-182 polynomial value, deliberately run in the right-shifting direction. Every name hash
// in the files and in generated code depends on exactly this table.
constexpr uint64_t Crc64Polynomial = 0x42F0E1EBA9EA3693ull;

// Slice k of a reflected CRC table gives the effect of a byte followed by k zero bytes, so eight
// bytes can be folded in with eight independent lookups (slicing-by-8). Slice 0 is the ordinary
// byte table.
template <typename Word> struct SliceTables
{
    Word slice[8][256];
};

template <typename Word> constexpr SliceTables<Word> MakeSliceTables(Word polynomial)
{
    SliceTables<Word> tables{};
    for (unsigned int i = 0; i < 256; ++i) {
        Word c = i;
        for (int bit = 0; bit < 8; ++bit)
            c = (c & 1) != 0 ? (c >> 1) ^ polynomial : c >> 1;
        tables.slice[0][i] = c;
    }
    for (unsigned int k = 1; k < 8; ++k) {
        for (unsigned int i = 0; i < 256; ++i) {
            Word const previous = tables.slice[k - 1][i];
            tables.slice[k][i] = (previous >> 8) ^ tables.slice[0][previous & 0xFF];
        }
    }
    return tables;
}

constexpr SliceTables<uint32_t> Crc32Slices = MakeSliceTables<uint32_t>(Crc32Polynomial);
constexpr SliceTables<uint64_t> Crc64Slices = MakeSliceTables<uint64_t>(Crc64Polynomial);

static_assert(Crc32Slices.slice[0][1] == 0x77073096u, "CRC-32 table differs from the standard");
static_assert(Crc32Slices.slice[0][255] == 0x2D02EF8Du, "CRC-32 table differs from the standard");
static_assert(Crc64Slices.slice[0][1] == 0x3C3B78E888D80FE1ull, "name hash table changed");
static_assert(Crc64Slices.slice[0][128] == 0x42F0E1EBA9EA3693ull, "name hash table changed");
static_assert(Crc64Slices.slice[0][255] == 0x1416D7A787B7FAA0ull, "name hash table changed");

// Loads eight bytes as a little-endian value from any alignment.
inline uint64_t LoadLittleEndian64(unsigned char const* bytes)
{
    uint64_t value;
    std::memcpy(&value, bytes, sizeof(value));
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    value = __builtin_bswap64(value);
#endif
    return value;
}

inline uint32_t LoadLittleEndian32(unsigned char const* bytes)
{
    uint32_t value;
    std::memcpy(&value, bytes, sizeof(value));
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    value = __builtin_bswap32(value);
#endif
    return value;
}

inline uint32_t Crc32Step(uint32_t crc, unsigned char byte)
{
    return ParserCRC32::m_table[(byte ^ crc) & 0xFF] ^ (crc >> 8);
}

inline uint64_t Crc64Step(uint64_t crc, unsigned char byte)
{
    return ParserCRC64::m_table[(byte ^ crc) & 0xFF] ^ (crc >> 8);
}

// The running (not yet complemented) CRC-32 over length bytes, eight at a time.
uint32_t Crc32Sliced(uint32_t crc, unsigned char const* data, unsigned int length)
{
    auto const& t = Crc32Slices.slice;
    while (length >= 8) {
        uint32_t const low = LoadLittleEndian32(data) ^ crc;
        uint32_t const high = LoadLittleEndian32(data + 4);
        crc = t[7][low & 0xFF] ^ t[6][(low >> 8) & 0xFF] ^ t[5][(low >> 16) & 0xFF] ^
              t[4][low >> 24] ^ t[3][high & 0xFF] ^ t[2][(high >> 8) & 0xFF] ^
              t[1][(high >> 16) & 0xFF] ^ t[0][high >> 24];
        data += 8;
        length -= 8;
    }
    while (length-- > 0)
        crc = Crc32Step(crc, *data++);
    return crc;
}

// The running (not yet complemented) 64-bit CRC over length bytes, eight at a time.
uint64_t Crc64Sliced(uint64_t crc, unsigned char const* data, unsigned int length)
{
    auto const& t = Crc64Slices.slice;
    while (length >= 8) {
        uint64_t const word = LoadLittleEndian64(data) ^ crc;
        crc = t[7][word & 0xFF] ^ t[6][(word >> 8) & 0xFF] ^ t[5][(word >> 16) & 0xFF] ^
              t[4][(word >> 24) & 0xFF] ^ t[3][(word >> 32) & 0xFF] ^ t[2][(word >> 40) & 0xFF] ^
              t[1][(word >> 48) & 0xFF] ^ t[0][word >> 56];
        data += 8;
        length -= 8;
    }
    while (length-- > 0)
        crc = Crc64Step(crc, *data++);
    return crc;
}

constexpr ParserCRCFold::Constants Crc32Fold = ParserCRCFold::MakeConstants(Crc32Polynomial, 32);
constexpr ParserCRCFold::Constants Crc64Fold = ParserCRCFold::MakeConstants(Crc64Polynomial, 64);

template <typename Word> Word Bytewise(Word crc, unsigned char const* data, unsigned int length)
{
    for (unsigned int i = 0; i < length; ++i) {
        if constexpr (sizeof(Word) == 4)
            crc = Crc32Step(crc, data[i]);
        else
            crc = Crc64Step(crc, data[i]);
    }
    return crc;
}

template <typename Word> Word Sliced(Word crc, unsigned char const* data, unsigned int length)
{
    if constexpr (sizeof(Word) == 4)
        return Crc32Sliced(crc, data, length);
    else
        return Crc64Sliced(crc, data, length);
}

// The running (not yet complemented) register over length bytes by form. A fold leaves 16 bytes
// standing for everything it consumed; their CRC from a zero register, continued over the bytes
// the fold left, is the register. Inputs too short for a fold, or a form this processor lacks,
// take the sliced tables.
template <typename Word>
Word Run(ParserCRCForm form, Word crc, unsigned char const* data, unsigned int length)
{
    ParserCRCFold::Constants const& constants = sizeof(Word) == 4 ? Crc32Fold : Crc64Fold;
    unsigned char remainder[16];
    size_t folded = 0;
    if (form == ParserCRCForm::Bytewise)
        return Bytewise(crc, data, length);
    if (form == ParserCRCForm::Clmul512 && length >= ParserCRCFold::MinimumLength512 &&
        ParserCRCFold::Has512())
        folded = ParserCRCFold::Fold512(crc, data, length, constants, remainder);
    else if (form != ParserCRCForm::Sliced && length >= ParserCRCFold::MinimumLength128 &&
             ParserCRCFold::Has128())
        folded = ParserCRCFold::Fold128(crc, data, length, constants, remainder);
    if (folded == 0)
        return Sliced(crc, data, length);
    crc = Sliced(Word{0}, remainder, sizeof(remainder));
    return Sliced(crc, data + folded, length - static_cast<unsigned int>(folded));
}

// The widest form this processor runs, decided once.
ParserCRCForm FastestForm()
{
    static ParserCRCForm const fastest = ParserCRCFold::Has512()   ? ParserCRCForm::Clmul512
                                         : ParserCRCFold::Has128() ? ParserCRCForm::Clmul
                                                                   : ParserCRCForm::Sliced;
    return fastest;
}

// The length goes in behind the data as four bytes, least significant first, whatever the host
// byte order.
uint64_t Crc64AddLength(uint64_t crc, unsigned int length)
{
    for (int i = 0; i < 4; ++i)
        crc = Crc64Step(crc, static_cast<unsigned char>(length >> (8 * i)));
    return crc;
}

} // namespace

// The public byte tables are slice 0 of the compile-time tables, spelled out entry by entry so
// that they stay constant-initialised arrays.
#define PARSER_CRC_ROW4(s, n) (s)[(n)], (s)[(n) + 1], (s)[(n) + 2], (s)[(n) + 3]
#define PARSER_CRC_ROW16(s, n)                                                                     \
    PARSER_CRC_ROW4(s, n), PARSER_CRC_ROW4(s, (n) + 4), PARSER_CRC_ROW4(s, (n) + 8),               \
        PARSER_CRC_ROW4(s, (n) + 12)
#define PARSER_CRC_ROW64(s, n)                                                                     \
    PARSER_CRC_ROW16(s, n), PARSER_CRC_ROW16(s, (n) + 16), PARSER_CRC_ROW16(s, (n) + 32),          \
        PARSER_CRC_ROW16(s, (n) + 48)
#define PARSER_CRC_TABLE(s)                                                                        \
    PARSER_CRC_ROW64(s, 0), PARSER_CRC_ROW64(s, 64), PARSER_CRC_ROW64(s, 128),                     \
        PARSER_CRC_ROW64(s, 192)

uint32_t const ParserCRC32::m_table[256] = {PARSER_CRC_TABLE(Crc32Slices.slice[0])};
uint64_t const ParserCRC64::m_table[256] = {PARSER_CRC_TABLE(Crc64Slices.slice[0])};

#undef PARSER_CRC_TABLE
#undef PARSER_CRC_ROW64
#undef PARSER_CRC_ROW16
#undef PARSER_CRC_ROW4

bool ParserCRCFormAvailable(ParserCRCForm form)
{
    switch (form) {
    case ParserCRCForm::Clmul:
        return ParserCRCFold::Has128();
    case ParserCRCForm::Clmul512:
        return ParserCRCFold::Has512();
    default:
        return true;
    }
}

unsigned int ParserCRC32::GetCRCWith(ParserCRCForm form, unsigned char const* data,
                                     unsigned int length, unsigned int seed)
{
    if (length == 0)
        return seed;
    return ~Run<uint32_t>(form, ~seed, data, length);
}

unsigned int ParserCRC32::GetCRC(unsigned char const* data, unsigned int length, unsigned int seed)
{
    return GetCRCWith(FastestForm(), data, length, seed);
}

unsigned int ParserCRC32::GetCRCBytewise(unsigned char const* data, unsigned int length,
                                         unsigned int seed)
{
    return GetCRCWith(ParserCRCForm::Bytewise, data, length, seed);
}

bool ParserCRC32::Validate(unsigned char const* data, unsigned int length,
                           IParameterLoggingAPI* log)
{
    if (data == nullptr || length < 5) {
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "Binary file CRC validation failed. Buffer too small\n");
        return false;
    }
    unsigned int const covered = length - 4;
    unsigned int const actual = GetCRC(data, covered, 0);
    unsigned int const stored = LoadLittleEndian32(data + covered);
    if (actual != stored) {
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "Binary file CRC validation failed. Expected: %08x, Actual: %08x\n",
                                actual, stored);
        return false;
    }
    return true;
}

unsigned long ParserCRC64::GetCRCWith(ParserCRCForm form, unsigned char const* data,
                                      unsigned int length, bool addLength, unsigned long seed)
{
    uint64_t crc = Run<uint64_t>(form, ~static_cast<uint64_t>(seed), data, length);
    if (addLength)
        crc = Crc64AddLength(crc, length);
    return ~crc;
}

unsigned long ParserCRC64::GetCRC(unsigned char const* data, unsigned int length, bool addLength,
                                  unsigned long seed)
{
    return GetCRCWith(FastestForm(), data, length, addLength, seed);
}

unsigned long ParserCRC64::GetCRCBytewise(unsigned char const* data, unsigned int length,
                                          bool addLength, unsigned long seed)
{
    return GetCRCWith(ParserCRCForm::Bytewise, data, length, addLength, seed);
}

unsigned long ParserCRC64::HashName(char const* name)
{
    if (name == nullptr)
        name = "";
    return GetCRC(reinterpret_cast<unsigned char const*>(name),
                  static_cast<unsigned int>(std::strlen(name)), true, 0);
}

bool ParserCRC64::Validate(unsigned char const* data, unsigned int length, bool addLength,
                           IParameterLoggingAPI* log)
{
    if (data == nullptr || length < 9) {
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "Binary file CRC validation failed. Buffer too small\n");
        return false;
    }
    unsigned int const covered = length - 8;
    unsigned long const actual = GetCRC(data, covered, addLength, 0);
    unsigned long const stored = LoadLittleEndian64(data + covered);
    if (actual != stored) {
        ParameterLogging::Write(
            log, ParameterLogging::LogError,
            "Binary file CRC validation failed. Expected: %016llx, Actual: %016llx\n",
            static_cast<unsigned long long>(actual), static_cast<unsigned long long>(stored));
        return false;
    }
    return true;
}
