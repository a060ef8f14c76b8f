// SPDX-License-Identifier: Apache-2.0
// Fuzz target: a buffer-mode load of arbitrary bytes into a tuning manager that knows every
// module kind, so that the generated modules load what the file holds, then a module of each
// kind the repository's descriptions hold read whole through the root and sensor 0.
#include <cstdint>
#include <vector>

#include "fuzz/fuzzsupport.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    std::vector<unsigned char> file(data, data + size);
    FuzzSupport::RestampChecksum(file);
    FuzzSupport::QuietTuningSetManager manager;
    if (!manager.LoadBinaryParameters(file.data(), file.size()))
        return 0;
    char text[4096];
    for (char const* modePath : {"0.0", "0.0|1.0"}) {
        for (char const* instance :
             {"t2tconfigdata", "versionsA_sw", "varitonalTOF", "aecxdbconvbase", "gamma16_bps",
              "gamma16_bps_v2", "lsc34_bps", "anr13_ope_v2", "blur10_ipe_v2", "cst12_tfe"})
            (void)manager.GetValue(0, modePath, instance, nullptr, text, sizeof(text));
    }
    return 0;
}
