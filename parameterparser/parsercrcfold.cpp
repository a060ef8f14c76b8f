// SPDX-License-Identifier: Apache-2.0
// Carry-less-multiply folding: four 128-bit lanes per step with PCLMULQDQ, four 512-bit registers
// per step with VPCLMULQDQ; the last 16 bytes are left to the table form.
#include "parameterparser/parsercrcfold.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define PARSER_CRC_FOLD_X86 1
#endif

namespace ParserCRCFold {

#ifdef PARSER_CRC_FOLD_X86

namespace {

#define PARSER_CRC_TARGET_128 __attribute__((target("sse4.1,pclmul")))
#define PARSER_CRC_TARGET_512 __attribute__((target("avx512f,vpclmulqdq,pclmul,sse4.1")))

PARSER_CRC_TARGET_128 inline __m128i Load128(unsigned char const* data)
{
    return _mm_loadu_si128(reinterpret_cast<__m128i const*>(data));
}

PARSER_CRC_TARGET_128 inline __m128i Pair(Multipliers const& m)
{
    return _mm_set_epi64x(static_cast<long long>(m.hi), static_cast<long long>(m.lo));
}

// Moves lane forward by the multipliers' distance: first eight bytes times lo, last eight times hi.
PARSER_CRC_TARGET_128 inline __m128i Advance(__m128i lane, __m128i multipliers)
{
    return _mm_xor_si128(_mm_clmulepi64_si128(lane, multipliers, 0x00),
                         _mm_clmulepi64_si128(lane, multipliers, 0x11));
}

// Folds the lanes standing one after another into one, then the remaining whole 16-byte blocks
// into it, and stores the result. Returns the bytes consumed from data.
PARSER_CRC_TARGET_128 size_t Finish(__m128i const lanes[4], unsigned char const* data,
                                    size_t length, Constants const& constants,
                                    unsigned char remainder[16])
{
    __m128i folded =
        _mm_xor_si128(_mm_xor_si128(Advance(lanes[0], Pair(constants.by384)),
                                    Advance(lanes[1], Pair(constants.by256))),
                      _mm_xor_si128(Advance(lanes[2], Pair(constants.by128)), lanes[3]));
    __m128i const by128 = Pair(constants.by128);
    size_t done = 0;
    while (length - done >= 16) {
        folded = _mm_xor_si128(Advance(folded, by128), Load128(data + done));
        done += 16;
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(remainder), folded);
    return done;
}

PARSER_CRC_TARGET_512 inline __m512i Load512(unsigned char const* data)
{
    return _mm512_loadu_si512(data);
}

PARSER_CRC_TARGET_512 inline __m512i Advance512(__m512i lanes, __m512i multipliers)
{
    return _mm512_xor_si512(_mm512_clmulepi64_epi128(lanes, multipliers, 0x00),
                            _mm512_clmulepi64_epi128(lanes, multipliers, 0x11));
}

PARSER_CRC_TARGET_512 inline __m512i Broadcast(Multipliers const& m)
{
    auto const lo = static_cast<long long>(m.lo);
    auto const hi = static_cast<long long>(m.hi);
    return _mm512_set_epi64(hi, lo, hi, lo, hi, lo, hi, lo);
}

} // namespace

bool Has128()
{
    static bool const available = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
    }();
    return available;
}

bool Has512()
{
    static bool const available = [] {
        __builtin_cpu_init();
        return Has128() && __builtin_cpu_supports("avx512f") &&
               __builtin_cpu_supports("vpclmulqdq");
    }();
    return available;
}

PARSER_CRC_TARGET_128 size_t Fold128(uint64_t crc, unsigned char const* data, size_t length,
                                     Constants const& constants, unsigned char remainder[16])
{
    // Four independent lanes keep the multiplier busy while each product is under way.
    __m128i lane0 = _mm_xor_si128(Load128(data), _mm_cvtsi64_si128(static_cast<long long>(crc)));
    __m128i lane1 = Load128(data + 16);
    __m128i lane2 = Load128(data + 32);
    __m128i lane3 = Load128(data + 48);
    size_t done = 64;
    __m128i const by512 = Pair(constants.by512);
    while (length - done >= 64) {
        unsigned char const* block = data + done;
        lane0 = _mm_xor_si128(Advance(lane0, by512), Load128(block));
        lane1 = _mm_xor_si128(Advance(lane1, by512), Load128(block + 16));
        lane2 = _mm_xor_si128(Advance(lane2, by512), Load128(block + 32));
        lane3 = _mm_xor_si128(Advance(lane3, by512), Load128(block + 48));
        done += 64;
    }
    __m128i const lanes[4] = {lane0, lane1, lane2, lane3};
    return done + Finish(lanes, data + done, length - done, constants, remainder);
}

PARSER_CRC_TARGET_512 size_t Fold512(uint64_t crc, unsigned char const* data, size_t length,
                                     Constants const& constants, unsigned char remainder[16])
{
    __m512i blocks[4];
    for (int i = 0; i < 4; ++i)
        blocks[i] = Load512(data + 64 * i);
    __m512i const seed = _mm512_inserti32x4(_mm512_setzero_si512(),
                                            _mm_cvtsi64_si128(static_cast<long long>(crc)), 0);
    blocks[0] = _mm512_xor_si512(blocks[0], seed);
    size_t done = 256;
    __m512i const by2048 = Broadcast(constants.by2048);
    while (length - done >= 256) {
        for (int i = 0; i < 4; ++i)
            blocks[i] =
                _mm512_xor_si512(Advance512(blocks[i], by2048), Load512(data + done + 64 * i));
        done += 256;
    }
    __m512i const by512 = Broadcast(constants.by512);
    __m512i folded = blocks[0];
    for (int i = 1; i < 4; ++i)
        folded = _mm512_xor_si512(Advance512(folded, by512), blocks[i]);
    while (length - done >= 64) {
        folded = _mm512_xor_si512(Advance512(folded, by512), Load512(data + done));
        done += 64;
    }
    // Through memory: the lane-extract intrinsics trip a false uninitialised-value warning.
    alignas(64) unsigned char spill[64];
    _mm512_store_si512(spill, folded);
    __m128i const lanes[4] = {Load128(spill), Load128(spill + 16), Load128(spill + 32),
                              Load128(spill + 48)};
    return done + Finish(lanes, data + done, length - done, constants, remainder);
}

#else

bool Has128()
{
    return false;
}

bool Has512()
{
    return false;
}

size_t Fold128(uint64_t, unsigned char const*, size_t, Constants const&, unsigned char[16])
{
    return 0;
}

size_t Fold512(uint64_t, unsigned char const*, size_t, Constants const&, unsigned char[16])
{
    return 0;
}

#endif

} // namespace ParserCRCFold
