// SPDX-License-Identifier: Apache-2.0
// Fuzz target: a whole buffer-mode load of arbitrary bytes, then the tree and tables it left.
#include <cstdint>
#include <vector>

#include "platform/vornlog.h"

#include "parameterparser/parametersetmanager.h"

namespace {

void DropLine(uint32_t, char, uint32_t, char const*, void*)
{
}

// A manager that knows no module kinds: every table is read, module records end in the registry
// lookup.
class FuzzSetManager final : public ParameterSetManager
{
public:
    FuzzSetManager() : ParameterSetManager(nullptr, 0, "fuzz", false) {}
    DefaultModule* GetDefaultModule(unsigned long) override { return nullptr; }
    void SaveAndClearModules() override {}
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    Vorn::Log::SetSink(DropLine, nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    std::vector<unsigned char> file(data, data + size);
    FuzzSetManager manager;
    if (!manager.LoadBinaryParameters(file.data(), file.size()) &&
        manager.GetSymbolTable() == nullptr)
        return 0;
    // Walk what the load built: every table's paths and the lookups by branch.
    char text[512] = {};
    for (unsigned int table = 0; table < manager.GetModeTableCount(); ++table) {
        manager.GetActiveModes(static_cast<unsigned char>(table), text, sizeof(text));
        unsigned char children[64];
        manager.GetChildModes(static_cast<unsigned char>(table), "0.0", children,
                              sizeof(children));
        TuningMode const branch[] = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}};
        (void)manager.GetModeEntry(static_cast<unsigned char>(table), branch, 3);
    }
    return 0;
}
