// SPDX-License-Identifier: Apache-2.0
// Module lookup under concurrency: several threads asking for and giving back modules of more
// modes than the active list holds, so that loads and evictions overlap, while another changes
// values through mode paths the way live tuning does.
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/modeentry.h"
#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parametermodule.h"

#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"
#include "tests/common/testsetmanager.h"
#include "tests/parameterparser/lookupfixture.h"

namespace ParamTest {
namespace {

constexpr unsigned int ModeCount = 30;
constexpr unsigned int ThreadCount = 8;
constexpr unsigned int Rounds = 150;
// The value changes go to the A module of every ChangeStep-th row.
constexpr unsigned int ChangeStep = 5;

std::vector<TuningMode> Row(unsigned int k)
{
    return Branch({{ModeUsecase, 0}, {ModeFeature1, static_cast<uint16_t>(k)}});
}

TEST(LookupStressTest, ThreadsAskAndReleaseAcrossEvictions)
{
    // Preview holds B; Feature1.0 to Feature1.29 below it each hold A, and every third shares
    // Preview's B, so that loads of the rows also touch a module another mode owns.
    LookupFile file;
    file.Path("Default");
    uint32_t const preview = file.Path("Default|Usecase.Preview");
    uint32_t const previewB = file.AddModule('B', preview, "previewB");
    std::vector<uint32_t> rows;
    for (unsigned int k = 0; k < ModeCount; ++k) {
        rows.push_back(file.Table().AddChild(preview, ModeFeature1, static_cast<uint16_t>(k)));
        file.AddModule('A', rows.back(), "f" + std::to_string(k));
        if (k % 3 == 0)
            file.AddModule('B', rows.back(), "previewB", previewB);
    }
    TempFile onDisk(file.Build());
    LogCapture log;
    TestSetManager::Options options;
    options.registerModules = true;
    TestSetManager manager(options);
    ASSERT_TRUE(manager.LoadBinaryParameters(onDisk.Path().c_str()));

    std::atomic<unsigned int> wrongValues{0};
    std::atomic<unsigned int> misses{0};
    auto const worker = [&](unsigned int thread) {
        ParameterModule* held = nullptr;
        PList<ParameterModule*> list;
        for (unsigned int round = 0; round < Rounds; ++round) {
            unsigned int const k = (thread * 7 + round * 11) % ModeCount;
            std::vector<TuningMode> const branch = Row(k);
            auto const count = static_cast<unsigned int>(branch.size());
            // The module held from the last round is given back as previous.
            held = manager.GetModuleInternal(0, "versionsA_sw", branch.data(), count, held, true);
            if (held == nullptr) {
                ++misses;
                continue;
            }
            // A held module cannot be unloaded under its holder.
            char const* revision = Revision(held);
            if (revision == nullptr || std::string(revision) != "f" + std::to_string(k))
                ++wrongValues;
            if (round % 5 == thread % 5) {
                // The row's own A, and B where the row shares it.
                manager.GetModules(0, list, branch.data(), count, true, true, nullptr);
                if (list.Count() != (k % 3 == 0 ? 2u : 1u))
                    ++wrongValues;
                manager.ReleaseModules(list);
            }
            if (round % 4 == 0) {
                ParameterModule* shared = manager.GetModuleInternal(
                    0, "versionsB_sw", branch.data(), count, nullptr, true);
                if (shared == nullptr || Revision(shared) == nullptr)
                    ++wrongValues;
                if (shared != nullptr)
                    shared->Release();
            }
        }
        if (held != nullptr)
            held->Release();
    };
    // A change pins the mode that owns the module: from then on eviction passes it over, while
    // the askers go on reading the same module.
    std::atomic<unsigned int> refusedChanges{0};
    auto const changer = [&] {
        for (unsigned int round = 0; round < Rounds; ++round) {
            unsigned int const k = (round * ChangeStep) % ModeCount;
            std::string const path = "0.0|2.0|3." + std::to_string(k);
            if (!manager.SetValue(0, path.c_str(), "versionsA_sw.module_version", "minor_revision",
                                  std::to_string(round).c_str()))
                ++refusedChanges;
        }
    };
    std::vector<std::thread> threads;
    for (unsigned int t = 0; t < ThreadCount; ++t)
        threads.emplace_back(worker, t);
    threads.emplace_back(changer);
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(wrongValues.load(), 0u);
    EXPECT_EQ(misses.load(), 0u);
    EXPECT_EQ(refusedChanges.load(), 0u);
    EXPECT_FALSE(log.Contains("Attempt to"));
    EXPECT_FALSE(log.Contains("Unloading referenced module"));
    EXPECT_GT(log.Count("Unloading modules"), 0u) << "the run must evict modes";
    ParameterModeTable* table = manager.GetModeTable(0);
    EXPECT_LE(table->activeModes.Count(), 17u);
    EXPECT_FALSE(NodeOf(manager, preview)->IsActive());
    unsigned int loaded = 0;
    unsigned int const changesPerRow = Rounds / (ModeCount / ChangeStep);
    for (unsigned int k = 0; k < ModeCount; ++k) {
        SCOPED_TRACE("row " + std::to_string(k));
        ModeEntry* node = NodeOf(manager, rows[k]);
        if (k % ChangeStep != 0) {
            EXPECT_FALSE(node->IsActive());
            EXPECT_FALSE(node->resident);
            if (node->loaded)
                ++loaded;
            continue;
        }
        // A changed row stays loaded with its last value; value access keeps its references.
        EXPECT_TRUE(node->resident);
        EXPECT_TRUE(node->loaded);
        EXPECT_TRUE(node->IsActive());
        std::vector<TuningMode> const branch = Row(k);
        char value[64] = {};
        ASSERT_TRUE(manager.GetValue(0, branch.data(), static_cast<unsigned int>(branch.size()),
                                     "versionsA_sw.module_version.minor_revision", nullptr, value,
                                     sizeof(value)));
        unsigned int const lastRound =
            (changesPerRow - 1) * (ModeCount / ChangeStep) + k / ChangeStep;
        EXPECT_EQ(std::string(value), "minor_revision=" + std::to_string(lastRound));
    }
    // With nothing held, no more unchanged modes stay loaded than the list holds.
    EXPECT_LE(loaded, 17u);
    // The file is closed again once no load holds it.
    EXPECT_EQ(manager.GetSymbolTable()->GetFile()->GetReferenceCount(), 0);
}

} // namespace
} // namespace ParamTest
