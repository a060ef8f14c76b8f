// SPDX-License-Identifier: Apache-2.0
// Fuzz target: the override settings file read from arbitrary text, then the settings store:
// a lookup, a store from code and a dump of every entry. Aborts when a text is parsed as one type
// but yields a value of another.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <unistd.h>

#include "platform/vornplatformconstants.h"

#include "stats/statsalgo/common/statsalgosettings.h"
#include "stats/statsalgo/common/statsalgosettingsimpl.h"

#include "fuzz/fuzzsupport.h"

namespace {

// The file is written and read once a run: in memory where the host has a memory file system.
std::string g_folder;
std::string g_fileName;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    g_folder = "/dev/shm/algosettings-fuzz-XXXXXX";
    if (mkdtemp(g_folder.data()) == nullptr &&
        mkdtemp((g_folder = "/tmp/algosettings-fuzz-XXXXXX").data()) == nullptr)
        std::abort();
    Vorn::OverrideSettingsPath = g_folder.c_str();
    g_fileName = g_folder + "/3AOverrideSettings.txt";
    std::atexit([] {
        unlink(g_fileName.c_str());
        rmdir(g_folder.c_str());
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    FILE* file = std::fopen(g_fileName.c_str(), "wb");
    if (file == nullptr || std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0)
        std::abort();
    // The store reads the file again on its next use.
    StatsAlgoSettingsImpl::ResetForTesting();
    StatsAlgoSettings& settings = *StatsAlgoSettings::GetInstance();

    // The input's first line is a value text and a key.
    std::string const line(data, std::find(data, data + size, '\n'));
    AlgoSettingValue value;
    int const type = StatsAlgoSettingsImpl::ParseString(line.c_str(), value);
    FuzzSupport::Require(type >= 0 && static_cast<size_t>(type) == value.index(),
                         "the parsed type is not the value's", line);
    AlgoSettingDataType readType{};
    AlgoSettingValue read;
    (void)settings.GetValue(line, readType, read);
    (void)settings.Set({{line, value}});
    settings.Dump();
    return 0;
}
