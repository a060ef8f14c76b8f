// SPDX-License-Identifier: Apache-2.0
// FileChecksum: reading and writing the trailing checksum of a tuning file.
#include "tools/paramctl/filechecksum.h"

#include <cstddef>

#include "parameterparser/parsercrc.h"

namespace ParamCtl {

FileChecksum ReadChecksum(std::vector<unsigned char> const& bytes, VersionUnion const& version)
{
    FileChecksum checksum;
    checksum.crc64 = version >= VersionUnion(6, 0, 0);
    size_t const width = checksum.crc64 ? 8 : 4;
    checksum.fits = bytes.size() >= width;
    if (!checksum.fits)
        return checksum;
    auto const covered = static_cast<unsigned int>(bytes.size() - width);
    for (size_t i = 0; i < width; ++i)
        checksum.stored |= static_cast<uint64_t>(bytes[covered + i]) << (8 * i);
    checksum.computed = checksum.crc64 ? ParserCRC64::GetCRC(bytes.data(), covered, true, 0)
                                       : ParserCRC32::GetCRC(bytes.data(), covered, 0);
    return checksum;
}

void PutChecksum(std::vector<unsigned char>& bytes, VersionUnion const& version)
{
    FileChecksum const checksum = ReadChecksum(bytes, version);
    if (!checksum.fits)
        return;
    size_t const width = checksum.crc64 ? 8 : 4;
    size_t const covered = bytes.size() - width;
    for (size_t i = 0; i < width; ++i)
        bytes[covered + i] = static_cast<unsigned char>(checksum.computed >> (8 * i));
}

} // namespace ParamCtl
