// SPDX-License-Identifier: Apache-2.0
// Fuzz target: every form of the two checksums agrees with its byte-at-a-time reference, over
// arbitrary data, seeds and split points, and Validate accepts a stamped buffer and refuses it
// after any one byte changed. Aborts on the first disagreement.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "parameterparser/parsercrc.h"

#include "fuzz/fuzzsupport.h"
#include <fuzzer/FuzzedDataProvider.h>

namespace {

constexpr unsigned int MaxSplits = 3;

using FuzzSupport::Require;

// Ends of the pieces of length bytes, ascending and ending at length: each split is a fraction
// of the length, so a mutation of the data keeps the pieces' shape. Pieces may be empty, so a
// continuation over zero bytes is also checked.
std::vector<unsigned int> PieceEnds(std::vector<uint16_t> const& fractions, unsigned int length)
{
    std::vector<unsigned int> ends;
    for (uint16_t fraction : fractions)
        ends.push_back(static_cast<unsigned int>((uint64_t{fraction} * length) >> 16));
    std::sort(ends.begin(), ends.end());
    ends.push_back(length);
    return ends;
}

// The forms compared with the byte-wise reference; a form this processor lacks computes as
// Sliced, so the list is the same on every host.
constexpr ParserCRCForm Forms[] = {ParserCRCForm::Sliced, ParserCRCForm::Clmul,
                                   ParserCRCForm::Clmul512};

void CheckCrc32(unsigned char const* data, unsigned int length, uint32_t seed,
                std::vector<unsigned int> const& ends)
{
    unsigned int const whole = ParserCRC32::GetCRCBytewise(data, length, seed);
    Require(ParserCRC32::GetCRC(data, length, seed) == whole, "CRC-32 fastest form");
    for (ParserCRCForm form : Forms) {
        Require(ParserCRC32::GetCRCWith(form, data, length, seed) == whole, "CRC-32 by form");
        unsigned int running = seed;
        unsigned int start = 0;
        for (unsigned int end : ends) {
            running = ParserCRC32::GetCRCWith(form, data + start, end - start, running);
            start = end;
        }
        Require(running == whole, "CRC-32 continued over pieces");
    }
}

void CheckCrc64(unsigned char const* data, unsigned int length, uint64_t seed,
                std::vector<unsigned int> const& ends)
{
    for (bool addLength : {false, true}) {
        unsigned long const whole = ParserCRC64::GetCRCBytewise(data, length, addLength, seed);
        Require(ParserCRC64::GetCRC(data, length, addLength, seed) == whole, "CRC-64 fastest form");
        for (ParserCRCForm form : Forms)
            Require(ParserCRC64::GetCRCWith(form, data, length, addLength, seed) == whole,
                    "CRC-64 by form");
    }
    // Without the length every piece continues the last; with it, only the last piece adds its
    // own length, in every form alike.
    for (ParserCRCForm form : Forms) {
        for (bool addLength : {false, true}) {
            unsigned long running = seed;
            unsigned long reference = seed;
            unsigned int start = 0;
            for (unsigned int end : ends) {
                bool const last = addLength && end == length;
                running = ParserCRC64::GetCRCWith(form, data + start, end - start, last, running);
                reference = ParserCRC64::GetCRCBytewise(data + start, end - start, last, reference);
                start = end;
            }
            Require(running == reference, "CRC-64 continued over pieces");
            Require(addLength ||
                        reference == ParserCRC64::GetCRCBytewise(data, length, false, seed),
                    "CRC-64 byte-wise continued over pieces");
        }
    }
}

// Stamps the checksum behind the data as a file carries it, then changes one byte of the
// stamped buffer: a single changed byte is always caught by both checksums.
void CheckValidate(unsigned char const* data, unsigned int length, unsigned int flipAt,
                   unsigned char flip, bool wide, bool addLength)
{
    unsigned int const width = wide ? 8 : 4;
    std::vector<unsigned char> file(data, data + length);
    uint64_t const checksum = wide ? ParserCRC64::GetCRCBytewise(data, length, addLength, 0)
                                   : ParserCRC32::GetCRCBytewise(data, length, 0);
    for (unsigned int i = 0; i < width; ++i)
        file.push_back(static_cast<unsigned char>(checksum >> (8 * i)));
    auto const size = static_cast<unsigned int>(file.size());
    auto validate = [&] {
        return wide ? ParserCRC64::Validate(file.data(), size, addLength, nullptr)
                    : ParserCRC32::Validate(file.data(), size, nullptr);
    };
    // A buffer of the checksum alone (or less) is too small to carry one.
    Require(validate() == (length > 0), "Validate of a stamped buffer");
    if (length == 0 || flip == 0)
        return;
    file[flipAt % size] ^= flip;
    Require(!validate(), "Validate after one byte changed");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* bytes, size_t size)
{
    // The controls come from the end of the input, the data is the rest.
    FuzzedDataProvider input(bytes, size);
    auto const seed32 = input.ConsumeIntegral<uint32_t>();
    auto const seed64 = input.ConsumeIntegral<uint64_t>();
    auto const flipAt = input.ConsumeIntegral<unsigned int>();
    auto const flip = input.ConsumeIntegral<unsigned char>();
    bool const wide = input.ConsumeBool();
    bool const addLength = input.ConsumeBool();
    std::vector<uint16_t> fractions(input.ConsumeIntegralInRange<unsigned int>(0, MaxSplits));
    for (uint16_t& fraction : fractions)
        fraction = input.ConsumeIntegral<uint16_t>();
    std::vector<unsigned char> const data = input.ConsumeRemainingBytes<unsigned char>();
    auto const length = static_cast<unsigned int>(data.size());
    std::vector<unsigned int> const ends = PieceEnds(fractions, length);

    CheckCrc32(data.data(), length, seed32, ends);
    CheckCrc64(data.data(), length, seed64, ends);
    CheckValidate(data.data(), length, flipAt, flip, wide, addLength);
    return 0;
}
