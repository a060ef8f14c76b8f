// SPDX-License-Identifier: Apache-2.0
// ROIStableChecker: one frame of 16 faces, the per-frame cost an algorithm pays.
#include <benchmark/benchmark.h>

#include "stats/statsalgo/common/vornstatsroistability.h"

#include "tests/common/roifixtures.h"

namespace {

// 16 faces on a 4 x 4 grid of a 1920 x 1080 image; every other frame they move by one pixel, so
// counters keep running and flags stay set, as with a steady scene.
StatsROIInformation GridFrame(unsigned int shift)
{
    StatsROIInformation information = {};
    information.roiCount = MaxROICount;
    for (unsigned int i = 0; i < MaxROICount; ++i) {
        StatsROIData& face = information.roiData[i];
        face.roiID = static_cast<int32_t>(100 + i);
        face.left = 100 + (i % 4) * 400 + shift;
        face.top = 80 + (i / 4) * 240;
        face.width = 120;
        face.height = 120;
    }
    return information;
}

void BM_ROIStableChecker_UpdateROIData16(benchmark::State& state)
{
    RoiTest::DifferenceTuning const tuning(
        {{8.0F, 2.0F, 2.0F, 3}, {4.0F, 2.0F, 2.0F, 3}, {1.0F, 2.0F, 2.0F, 3}});

    ROIStableChecker checker;
    checker.SetImageResolution(1920.0F, 1080.0F);
    checker.SetTuningData(tuning.Get());
    StatsROIInformation const frames[] = {GridFrame(0), GridFrame(1)};
    // Warm up past the tuned frame count, so every timed frame runs with stable faces.
    unsigned int frame = 0;
    for (; frame < 4; ++frame)
        checker.UpdateROIData(&frames[frame & 1u], 0);
    for (auto _ : state) {
        bool const updated = checker.UpdateROIData(&frames[frame & 1u], 0);
        benchmark::DoNotOptimize(updated);
        ++frame;
    }
    if (!checker.IsROIStableByID(100))
        state.SkipWithError("faces of a steady scene should be stable");
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ROIStableChecker_UpdateROIData16);

} // namespace
