// SPDX-License-Identifier: Apache-2.0
// A camera process in miniature: loads a tuning file through the shared library's public API,
// routes the library's log into its own, and reports what it loaded.
#include <cstdio>

#include <parameterparser/parameterparser.h>
#include <platform/vornlog.h>

namespace {

// The camera process's manager. A shipped build registers its module kinds here; this one only
// validates and inspects files.
class HostSetManager final : public ParameterSetManager
{
public:
    HostSetManager() : ParameterSetManager(nullptr, 0, "host", false) { m_fileModeAllowed = true; }

    DefaultModule* GetDefaultModule(unsigned long /*nameHash*/) override { return nullptr; }
    void SaveAndClearModules() override {}
};

void HostLog(uint32_t /*group*/, char severity, uint32_t level, char const* line, void*)
{
    if (level <= Vorn::Log::LevelWarning)
        std::fprintf(stderr, "camera-host %c: %s", severity, line);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s TUNINGFILE\n", argv[0]);
        return 2;
    }
    Vorn::Log::SetSink(HostLog, nullptr);

    HostSetManager manager;
    if (!manager.LoadBinaryParameters(argv[1])) {
        std::fprintf(stderr, "tuning file refused: %s\n", manager.GetErrorString());
        return 1;
    }
    VersionUnion const version = manager.GetBinaryVersion();
    std::printf("loaded %s: tag %s, version %u.%u.%u, %s mode\n", argv[1], manager.GetBinaryTag(),
                version.Parts.Major, version.Parts.Minor, version.Parts.Patch,
                manager.IsFileMode() ? "file" : "buffer");
    return 0;
}
