// SPDX-License-Identifier: Apache-2.0
// FileChecksum: the checksum a tuning file stores in its last bytes, checked and written.
#pragma once

#include <cstdint>
#include <vector>

#include "parameterparser/versionunion.h"

namespace ParamCtl {

/// The stored and the computed checksum of a file: CRC-64 (with the length added) over all but
/// the last 8 bytes from 6.0.0 on, CRC-32 over all but the last 4 below.
struct FileChecksum
{
    bool crc64 = false;
    bool fits = false; ///< the file is long enough to hold a checksum
    uint64_t stored = 0;
    uint64_t computed = 0;

    bool Valid() const { return fits && stored == computed; }
};

/// The checksum of bytes, a file of the given version.
FileChecksum ReadChecksum(std::vector<unsigned char> const& bytes, VersionUnion const& version);

/// Writes the checksum that bytes' contents call for into its last bytes; nothing for a file too
/// short to hold one.
void PutChecksum(std::vector<unsigned char>& bytes, VersionUnion const& version);

} // namespace ParamCtl
