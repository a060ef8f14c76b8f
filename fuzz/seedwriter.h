// SPDX-License-Identifier: Apache-2.0
// What the seed writers share: one seed file written into the corpus folder, and the main that
// takes that folder from the command line.
#pragma once

#include <cstdio>
#include <string>

namespace FuzzSeeds {

/// Writes size bytes to folder/name; false, after saying why, when it cannot.
inline bool Write(std::string const& folder, std::string const& name, void const* data, size_t size)
{
    std::string const path = folder + "/" + name;
    FILE* file = std::fopen(path.c_str(), "wb");
    bool written = file != nullptr && std::fwrite(data, 1, size, file) == size;
    if (file != nullptr)
        written = std::fclose(file) == 0 && written;
    if (!written)
        std::perror(path.c_str());
    return written;
}

/// The same for a string or a vector of bytes.
template <typename Bytes>
bool Write(std::string const& folder, std::string const& name, Bytes const& bytes)
{
    return Write(folder, name, bytes.data(), bytes.size());
}

/// A seed writer's main: exit 0 when writeAll wrote the corpus into the folder argv names.
inline int Main(int argc, char** argv, bool (*writeAll)(std::string const& folder))
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    return writeAll(argv[1]) ? 0 : 1;
}

} // namespace FuzzSeeds
