// SPDX-License-Identifier: Apache-2.0
// A camera process in miniature: creates the tuning set manager, loads a tuning file through the
// shared library's public API, follows a changing mode branch as a camera does when the use case
// changes, prints the tuning it gets for each branch, and reloads the file as it does when a new
// tuning is pushed.
#include <cstdio>
#include <cstring>

// The umbrella header declares the set managers; a program includes the module namespaces it
// reads.
#include <parameterparser/parameterparser.h>
#include <parameterparser/paramgen/vornt2tconfig.h>

namespace {

void HostLog(uint32_t /*group*/, char severity, uint32_t level, char const* line, void*)
{
    if (level <= Vorn::Log::LevelWarning)
        std::fprintf(stderr, "camera-host %c: %s", severity, line);
}

/// One configuration of the camera: a use case on a sensor, and the branch it names.
struct Configuration
{
    char const* label;
    unsigned short sensor;
    char const* usecase;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s TUNINGFILE\n", argv[0]);
        return 2;
    }
    // A host built against one release of the headers must not run with another library.
    if (std::strcmp(GetParameterParserVersion(), PARAMETERPARSER_VERSION_STRING) != 0) {
        std::fprintf(stderr, "built for parameterparser %s, running with %s\n",
                     PARAMETERPARSER_VERSION_STRING, GetParameterParserVersion());
        return 1;
    }
    Vorn::Log::SetSink(HostLog, nullptr);

    TuningSetManager manager("camera-host");
    if (!manager.LoadBinaryParameters(argv[1])) {
        std::fprintf(stderr, "tuning file refused: %s\n", manager.GetErrorString());
        return 1;
    }
    VersionUnion const version = manager.GetBinaryVersion();
    std::printf("loaded %s: tag %s, version %u.%u.%u, %s mode\n", argv[1], manager.GetBinaryTag(),
                version.Parts.Major, version.Parts.Minor, version.Parts.Patch,
                manager.IsFileMode() ? "file" : "buffer");

    // The session: preview, a snapshot, video recording, then back to preview on the other
    // sensor. Each step asks for the module of the new branch and hands back the old one.
    Configuration const session[] = {
        {"preview, sensor 0", 0, "Preview"},
        {"snapshot, sensor 0", 0, "Snapshot"},
        {"video, sensor 0", 0, "Video"},
        {"preview, sensor 1", 1, "Preview"},
    };
    vornt2tconfig::T2TCtrlType* tracker = nullptr;
    int found = 0;
    for (Configuration const& step : session) {
        TuningMode const branch[] = {
            {ModeDefault, 0, 0},
            {ModeSensor, step.sensor, 0},
            {ModeUsecase, ParameterSetManager::GetSubModeIndex(ModeUsecase, step.usecase), 0},
        };
        tracker = manager.GetModule_t2tconfigdata(branch, 3, tracker);
        if (tracker == nullptr) {
            std::printf("%-20s no tracker tuning\n", step.label);
            continue;
        }
        ++found;
        std::printf("%-20s tracker mode %u, precision %u, downscale %.3f, confidence %u\n",
                    step.label, tracker->operationMode, tracker->precisionMode,
                    static_cast<double>(tracker->downscaleRatio), tracker->confidenceThreshold);
    }
    // A tuning engineer pushes a new file: the camera reads it again while it still holds the
    // tracker of the last branch. That pointer stays readable until the next reload; the next
    // request hands it back as previous and gets the module of the new generation.
    if (manager.IsFileMode()) {
        if (!manager.ReloadBinaryParameters(false)) {
            std::fprintf(stderr, "reload refused: %s\n", manager.GetErrorString());
            if (tracker != nullptr)
                tracker->Release();
            return 1;
        }
        TuningMode const preview[] = {{ModeDefault, 0, 0}, {ModeSensor, 0, 0}, {ModeUsecase, 0, 0}};
        tracker = manager.GetModule_t2tconfigdata(preview, 3, tracker);
        if (tracker != nullptr)
            std::printf("%-20s tracker mode %u, precision %u, downscale %.3f, confidence %u\n",
                        "reloaded preview", tracker->operationMode, tracker->precisionMode,
                        static_cast<double>(tracker->downscaleRatio), tracker->confidenceThreshold);
    }
    // The camera closes: the last module goes back before the manager does.
    if (tracker != nullptr)
        tracker->Release();
    return found > 0 ? 0 : 1;
}
