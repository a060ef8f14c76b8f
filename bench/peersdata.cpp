// SPDX-License-Identifier: Apache-2.0
// Writes the two tuning files the peer benchmark reads: small.bin (about 150 KB, 128 modules) and
// large.bin (about 16 MB, 12800 modules), many modules over many modes, into the given folder.
#include <cstdio>
#include <string>
#include <vector>

#include "bench/scenemodesfile.h"

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    struct Output
    {
        char const* name;
        BenchFiles::SceneGrid grid;
    };
    Output const outputs[] = {{"small.bin", {1, 1, 16, 8}}, {"large.bin", {8, 8, 25, 8}}};
    for (Output const& output : outputs) {
        std::vector<uint8_t> const bytes = BenchFiles::BuildSceneModesFile(output.grid);
        std::string const path = std::string(argv[1]) + "/" + output.name;
        FILE* file = std::fopen(path.c_str(), "wb");
        bool const written =
            file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
        if ((file != nullptr && std::fclose(file) != 0) || !written) {
            std::fprintf(stderr, "peersdata: %s: cannot write\n", path.c_str());
            return 1;
        }
        std::printf("%s: %zu bytes, %u modules\n", path.c_str(), bytes.size(),
                    output.grid.Modules());
    }
    return 0;
}
