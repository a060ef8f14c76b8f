// SPDX-License-Identifier: Apache-2.0
// Fuzz target: every form of the two checksums agrees with its byte-at-a-time reference over
// arbitrary data, and Validate reads any buffer as a stamped one. Aborts on the first
// disagreement.
#include <cstdint>

#include "parameterparser/parsercrc.h"

#include "fuzz/fuzzsupport.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    using FuzzSupport::Require;
    auto const length = static_cast<unsigned int>(size);
    // The length bit of the 64-bit checksum follows the input, so both kinds are reached.
    bool const addLength = size % 2 == 1;
    unsigned int const crc32 = ParserCRC32::GetCRCBytewise(data, length, 0);
    unsigned long const crc64 = ParserCRC64::GetCRCBytewise(data, length, addLength, 0);
    // A form this processor lacks computes as Sliced, so the list is the same on every host.
    for (ParserCRCForm form :
         {ParserCRCForm::Sliced, ParserCRCForm::Clmul, ParserCRCForm::Clmul512}) {
        Require(ParserCRC32::GetCRCWith(form, data, length, 0) == crc32, "CRC-32 by form");
        Require(ParserCRC64::GetCRCWith(form, data, length, addLength, 0) == crc64,
                "CRC-64 by form");
    }
    (void)ParserCRC32::Validate(data, length, nullptr);
    (void)ParserCRC64::Validate(data, length, addLength, nullptr);
    return 0;
}
