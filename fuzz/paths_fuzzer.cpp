// SPDX-License-Identifier: Apache-2.0
// Fuzz target: mode paths and value paths from arbitrary text against a writer-made file loaded
// into a tuning manager: the bundled sample and modules of other member kinds. An input is up to
// three lines: a mode path, numeric ("0.0|1.0|2.0") or named ("Default|..."); a variable, an
// instance name then a value path in its module; sub-variables (none when empty).
#include <cstdint>
#include <string>
#include <vector>

#include "parameterparser/modeentry.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/plist.h"

#include "fuzz/fuzzsupport.h"

namespace {

// Room for any value text of the loaded modules, and a size that cuts longer paths and values.
constexpr unsigned int TextSize = 16384;
constexpr unsigned int ShortSize = 12;

// Modules of counted arrays and nested structures beside the sample's scalars, numbers held as
// floats and strings.
constexpr char Extra[] = R"(
instance varitonalTOF varitonalTOFType mode Default|Sensor.0
  value SceneChange.panning_stable_cnt 4
  value SceneChange.scene_change_distance_thres 10,20,30,40
  value SceneChange.distance_region 100,200,400,800,1600
instance varitonalTrackerROIMixer varitonalTrackerROIMixerType mode Default
  value parameter_version.revision mixer-a
  value enable 1
  value GazeFocus.YawThresholdLow -15
)";

TuningSetManager* g_manager = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    g_manager = FuzzSupport::LoadSample(Extra);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    std::vector<std::string> fields(1);
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == '\n' && fields.size() < 3)
            fields.emplace_back();
        else
            fields.back().push_back(static_cast<char>(data[i]));
    }
    fields.resize(3);
    char const* const modePath = fields[0].c_str();
    char const* const variable = fields[1].c_str();
    char const* const subVariables = fields[2].empty() ? nullptr : fields[2].c_str();
    ParameterSetManager& manager = *g_manager;

    PList<TuningMode> branch;
    (void)manager.GetModeBranchFromPath(modePath, branch);
    static char text[TextSize];
    if (ModeEntry* node = manager.GetModeEntry(0, modePath))
        node->GetModePath(text, TextSize);
    (void)manager.GetChildModes(0, modePath, reinterpret_cast<unsigned char*>(text), ShortSize);
    for (unsigned int room : {TextSize, ShortSize}) {
        manager.GetModeShorthand(modePath, text, room);
        ParameterSetManager::GetKnobbyModesString(modePath, text, room);
        (void)manager.GetValue(0, modePath, variable, subVariables, text, room);
    }
    PList<ParameterParserInfo> info;
    (void)manager.GetInfo(0, modePath, variable, info);
    return 0;
}
