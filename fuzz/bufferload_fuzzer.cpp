// SPDX-License-Identifier: Apache-2.0
// Fuzz target: a whole buffer-mode load of arbitrary bytes, then the tree and tables it left.
#include <cstdint>
#include <vector>

#include "parameterparser/parametersetmanager.h"

#include "fuzz/fuzzsupport.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    std::vector<unsigned char> file(data, data + size);
    FuzzSupport::RestampChecksum(file);
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
