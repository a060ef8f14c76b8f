// SPDX-License-Identifier: Apache-2.0
// Fuzz target: a whole buffer-mode load of arbitrary bytes, then the tree and tables it left.
#include <cstdint>
#include <vector>

#include "parameterparser/parametersetmanager.h"
#include "parameterparser/parsercrc.h"

#include "fuzz/fuzzsupport.h"

namespace {

// Header bytes ahead of the version: the 28-byte tag and the u32 file size.
constexpr size_t VersionOffset = 32;
constexpr unsigned int Crc64Major = 6;

// Writes a matching checksum over the mutated bytes, 64-bit from version 6 on, so that a mutation
// reaches the mode, symbol and data tables instead of stopping at the checksum every time.
void RestampChecksum(std::vector<unsigned char>& file)
{
    if (file.size() < VersionOffset + 2 + 8 + 1)
        return;
    unsigned int const major = file[VersionOffset] | (file[VersionOffset + 1] << 8);
    size_t const width = major >= Crc64Major ? 8 : 4;
    auto const covered = static_cast<unsigned int>(file.size() - width);
    uint64_t const checksum = width == 8 ? ParserCRC64::GetCRC(file.data(), covered, true, 0)
                                         : ParserCRC32::GetCRC(file.data(), covered, 0);
    for (size_t i = 0; i < width; ++i)
        file[covered + i] = static_cast<unsigned char>(checksum >> (8 * i));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    std::vector<unsigned char> file(data, data + size);
    RestampChecksum(file);
    FuzzSupport::FuzzSetManager manager;
    if (!manager.LoadBinaryParameters(file.data(), file.size()) &&
        manager.GetSymbolTable() == nullptr)
        return 0;
    // Walk what the load built: every table's paths and the lookups by branch.
    char text[512] = {};
    for (unsigned int table = 0; table < manager.GetModeTableCount(); ++table) {
        manager.GetActiveModes(static_cast<unsigned char>(table), text, sizeof(text));
        unsigned char children[64];
        manager.GetChildModes(static_cast<unsigned char>(table), "0.0", children, sizeof(children));
        TuningMode const branch[] = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}};
        (void)manager.GetModeEntry(static_cast<unsigned char>(table), branch, 3);
    }
    return 0;
}
