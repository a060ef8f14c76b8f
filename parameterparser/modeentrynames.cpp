// SPDX-License-Identifier: Apache-2.0
// ModeEntry: the names of modes and of their sub-modes, by value.
#include "parameterparser/modeentry.h"

namespace {

constexpr char const* ModeNames[] = {"Default",  "Sensor", "Usecase", "Feature1",
                                     "Feature2", "Scene",  "Effect"};
constexpr unsigned int ModeNameCount = sizeof(ModeNames) / sizeof(ModeNames[0]);

constexpr char const* UsecaseNames[] = {"Preview",  "Snapshot",         "Video",
                                        "ZSL",      "Liveshot",         "SnapshotReprocess",
                                        "IDEALRAW", "IdealRawReprocess"};
constexpr char const* Feature1Names[] = {
    "None",        "ISPHDR",          "ADRC",     "inSensorHDR3Exp", "MFHDRPreFusion",
    "MFHDRFusion", "MFHDRPostFusion", "FDProcess"};
constexpr char const* Feature2Names[] = {"None",
                                         "OISCapture",
                                         "HLG",
                                         "HDR10",
                                         "MFNRBlend",
                                         "MFNRPostFilter",
                                         "AIDenoiserMFNRBlend",
                                         "AIDenoiserMFNRPostFilter",
                                         "ZLLMFNRBlend",
                                         "ZLLMFNRPostFilter",
                                         "ZLLPostFusion",
                                         "MMFBlend",
                                         "MMFEqualization",
                                         "MMFPostFilter",
                                         "VBSE",
                                         "ZLLMMFBlend",
                                         "ZLLMMFEqualization",
                                         "ZLLMMFPostFilter",
                                         "ZLLShortExp",
                                         "HDR10P",
                                         "HDR10PStats",
                                         "BokehSB",
                                         "BokehESB",
                                         "ViULLMCTF1",
                                         "ViULLMCTF2"};
constexpr char const* SceneNames[] = {
    "None",         "Landscape", "Snow",          "Beach",     "Sunset",  "Night",
    "Portrait",     "BackLight", "Sports",        "AntiShake", "Flowers", "CandleLight",
    "Fireworks",    "Party",     "NightPortrait", "Theater",   "Action",  "AR",
    "FacePriority", "Barcode",   "BestShot",      "AICam"};
constexpr char const* EffectNames[] = {"None",     "Mono",      "Sepia",      "Negative",
                                       "Solarize", "Posterize", "Aqua",       "Emboss",
                                       "Sketch",   "Neon",      "Blackboard", "Whiteboard"};

struct SubModeRow
{
    char const* const* names;
    unsigned int count;
};

template <unsigned int N> constexpr SubModeRow Row(char const* const (&names)[N])
{
    return SubModeRow{names, N};
}

// Indexed by mode value; Default and Sensor have no names for their sub-modes.
constexpr SubModeRow SubModeRows[] = {{nullptr, 0},       {nullptr, 0},       Row(UsecaseNames),
                                      Row(Feature1Names), Row(Feature2Names), Row(SceneNames),
                                      Row(EffectNames)};

static_assert(sizeof(SubModeRows) / sizeof(SubModeRows[0]) == ModeNameCount,
              "one sub-mode row per mode value");

} // namespace

char const* ModeEntry::GetModeName(unsigned int modeValue)
{
    return modeValue < ModeNameCount ? ModeNames[modeValue] : nullptr;
}

char const* ModeEntry::GetSubModeName(unsigned int modeValue, unsigned int subModeValue)
{
    if (modeValue >= ModeNameCount)
        return nullptr;
    SubModeRow const& row = SubModeRows[modeValue];
    return subModeValue < row.count ? row.names[subModeValue] : nullptr;
}

unsigned int ModeEntry::GetSubModeNameCount(unsigned int modeValue)
{
    return modeValue < ModeNameCount ? SubModeRows[modeValue].count : 0;
}
