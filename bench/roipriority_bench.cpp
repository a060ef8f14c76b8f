// SPDX-License-Identifier: Apache-2.0
// One frame of dominant ROI selection and face shaping with 16 faces and a full tuning.
#include <benchmark/benchmark.h>

#include "stats/statsalgo/common/vornstatsroipriority.h"

#include "tests/common/roifixtures.h"

namespace {

/// Tunes every stage: weighted scoring curves, landmarks, three pose curves, a filter of five
/// frames, small-face relief and mask removal.
void FillTuning(RoiTest::Tuning& tuning)
{
    tuning->dominantScoreEnhancement = 0.1F;
    tuning->partialFaceThresh = 0.5F;
    tuning.SetCurve(tuning->FaceROISizeWeight,
                    {{0.0F, 0.05F, 0.2F}, {0.2F, 0.4F, 0.8F}, {0.6F, 1.0F, 1.0F}});
    tuning.SetCurve(tuning->FaceROILocationWeight, {{0.0F, 0.2F, 1.0F}, {0.6F, 1.0F, 0.3F}});
    auto& shrink = tuning.Shrink();
    shrink.enable = 1;
    shrink.faceNum = 16;
    tuning.SetLandmarks({{0, 0.4F}, {1, 0.4F}, {2, 0.5F}, {3, 0.5F}, {4, 0.3F}, {5, 0.3F}});
    auto& pose = shrink.facePoseShrinkFactor;
    tuning.SetCurve(pose.rollShrinkFactor,
                    {{-90.0F, -30.0F, 0.8F}, {-10.0F, 10.0F, 1.0F}, {30.0F, 90.0F, 0.8F}});
    tuning.SetCurve(pose.yawShrinkFactor, {{0.0F, 15.0F, 1.0F}, {45.0F, 90.0F, 0.7F}});
    tuning.SetCurve(pose.pitchShrinkFactor, {{0.0F, 20.0F, 1.0F}, {40.0F, 90.0F, 0.85F}});
    shrink.factorRoundingPrecision = 0.01F;
    shrink.factorFilterLength = 5;
    shrink.minShrinkFactor = 0.5F;
    shrink.roiSizeInCropWindow = 1;
    shrink.minROISizeToShrink = 0.02F;
    shrink.faceMaskROIControl.enableMaskROIAdjustment = 1;
    shrink.faceMaskROIControl.maskROISizeFactor = 1.1F;
    shrink.faceMaskROIControl.minROISizeToRemoveMask[0] = 0.04F;
    shrink.faceMaskROIControl.minROISizeToRemoveMask[1] = 0.06F;
}

/// Sixteen faces on a 4 x 4 grid of a 4000 x 3000 image, each with landmarks, pose and a mask.
StatsROIInformation MakeFrame()
{
    std::vector<StatsROIData> faces;
    for (int i = 0; i < static_cast<int>(MaxROICount); ++i) {
        unsigned int const side = 200 + 20 * static_cast<unsigned int>(i);
        unsigned int const left = 100 + 950 * static_cast<unsigned int>(i % 4);
        unsigned int const top = 100 + 700 * static_cast<unsigned int>(i / 4);
        StatsROIData face = RoiTest::Face(i + 1, left, top, side, side);
        face.landmarkCount = 6;
        for (unsigned int p = 0; p < 6; ++p) {
            face.landmarks[p] = {static_cast<int32_t>(left + side / 4 + (p % 2) * side / 2),
                                 static_cast<int32_t>(top + side / 4 + (p / 2) * side / 4)};
        }
        face.poseValid = 1;
        face.roll = static_cast<float>(i * 7 - 50);
        face.yaw = static_cast<float>(i * 5);
        face.pitch = static_cast<float>(-i * 3);
        face.maskValid = 1;
        face.maskROI = {left, top + side / 2, side, side / 2};
        faces.push_back(face);
    }
    return RoiTest::Frame(faces);
}

void BM_ROIPriority_UpdateROIData16Faces(benchmark::State& state)
{
    RoiTest::Tuning tuning;
    FillTuning(tuning);
    ROIPriority priority;
    static_cast<void>(priority.SetImageResolution(4000.0F, 3000.0F));
    static_cast<void>(priority.SetCropWindow(200.0F, 150.0F, 3600.0F, 2700.0F));
    static_cast<void>(priority.SetTuningData(tuning.Get()));
    StatsROIInformation const frame = MakeFrame();
    for (auto _ : state) {
        benchmark::DoNotOptimize(priority.UpdateROIData(&frame, 1));
        benchmark::ClobberMemory();
    }
    // A frame that lost faces to trimming, or shaped none, would time a lighter case.
    if (priority.Size() != MaxROICount || priority.GetShrinkFactors().size() != MaxROICount)
        state.SkipWithError("every face of the frame should be kept and shaped");
    state.counters["faces"] = static_cast<double>(priority.Size());
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ROIPriority_UpdateROIData16Faces);

} // namespace
