// SPDX-License-Identifier: Apache-2.0
// Carry-less-multiply folding for the reflected file checksums, on processors that have it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ParserCRCFold {

/// Multipliers that move a 128-bit lane of a reflected CRC's message forward by one distance:
/// lo multiplies the lane's first eight bytes, hi its last eight.
struct Multipliers
{
    uint64_t lo;
    uint64_t hi;
};

/// The multipliers a reflected CRC needs for every folding distance the fold paths use.
struct Constants
{
    Multipliers by128;
    Multipliers by256;
    Multipliers by384;
    Multipliers by512;
    Multipliers by2048;
};

/// x^n modulo P, in normal bit order (bit i is the coefficient of x^i), where P is x^width plus
/// the polynomial whose lower coefficients low holds in normal bit order.
constexpr uint64_t PowerOfXModulo(unsigned int n, uint64_t low, unsigned int width)
{
    uint64_t const top = uint64_t{1} << (width - 1);
    uint64_t const mask = width == 64 ? ~uint64_t{0} : (uint64_t{1} << width) - 1;
    uint64_t remainder = 1;
    for (unsigned int i = 0; i < n; ++i) {
        bool const carry = (remainder & top) != 0;
        remainder = (remainder << 1) & mask;
        if (carry)
            remainder ^= low;
    }
    return remainder;
}

constexpr uint64_t ReverseBits(uint64_t value, unsigned int width)
{
    uint64_t reversed = 0;
    for (unsigned int i = 0; i < width; ++i)
        reversed |= ((value >> i) & 1) << (width - 1 - i);
    return reversed;
}

/// A lane's first eight bytes stand 64 bits ahead of its last eight, and a carry-less product of
/// two reflected values comes out one power of x short, hence the exponents distance + 63 and
/// distance - 1. Both multipliers are written in the reflected order the lanes are loaded in.
constexpr Multipliers MakeMultipliers(unsigned int distance, uint64_t reflectedPolynomial,
                                      unsigned int width)
{
    uint64_t const low = ReverseBits(reflectedPolynomial, width);
    return {ReverseBits(PowerOfXModulo(distance + 63, low, width), 64),
            ReverseBits(PowerOfXModulo(distance - 1, low, width), 64)};
}

constexpr Constants MakeConstants(uint64_t reflectedPolynomial, unsigned int width)
{
    return {MakeMultipliers(128, reflectedPolynomial, width),
            MakeMultipliers(256, reflectedPolynomial, width),
            MakeMultipliers(384, reflectedPolynomial, width),
            MakeMultipliers(512, reflectedPolynomial, width),
            MakeMultipliers(2048, reflectedPolynomial, width)};
}

/// The shortest input each path folds; shorter ones go to the table forms.
constexpr size_t MinimumLength128 = 64;
constexpr size_t MinimumLength512 = 256;

/// Whether this processor can run the 128-bit path (PCLMULQDQ) and the 512-bit path (VPCLMULQDQ
/// with AVX-512), decided once.
bool Has128();
bool Has512();

/// Folds the whole 16-byte blocks at the start of data (length at least the path's minimum),
/// with the running CRC register xored into its first bytes, down to 16 bytes whose CRC from a
/// zero register equals the register the blocks would have left. Writes those bytes to
/// remainder and returns how many bytes of data were folded. Call only where the path is
/// available.
size_t Fold128(uint64_t crc, unsigned char const* data, size_t length, Constants const& constants,
               unsigned char remainder[16]);
size_t Fold512(uint64_t crc, unsigned char const* data, size_t length, Constants const& constants,
               unsigned char remainder[16]);

} // namespace ParserCRCFold
