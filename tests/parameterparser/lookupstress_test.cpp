// SPDX-License-Identifier: Apache-2.0
// Module lookup under concurrency: several threads asking for and giving back modules of more
// modes than the active list holds, so that loads and evictions overlap.
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
    std::vector<std::thread> threads;
    for (unsigned int t = 0; t < ThreadCount; ++t)
        threads.emplace_back(worker, t);
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(wrongValues.load(), 0u);
    EXPECT_EQ(misses.load(), 0u);
    EXPECT_FALSE(log.Contains("Attempt to"));
    EXPECT_FALSE(log.Contains("Unloading referenced module"));
    EXPECT_GT(log.Count("Unloading modules"), 0u) << "the run must evict modes";
    ParameterModeTable* table = manager.GetModeTable(0);
    EXPECT_LE(table->activeModes.Count(), 17u);
    EXPECT_FALSE(NodeOf(manager, preview)->IsActive());
    unsigned int loaded = 0;
    for (uint32_t id : rows) {
        ModeEntry* node = NodeOf(manager, id);
        EXPECT_FALSE(node->IsActive());
        if (node->loaded)
            ++loaded;
    }
    // With nothing held, no more modes stay loaded than the list holds.
    EXPECT_LE(loaded, 17u);
    // The file is closed again once no load holds it.
    EXPECT_EQ(manager.GetSymbolTable()->GetFile()->GetReferenceCount(), 0);
}

} // namespace
} // namespace ParamTest
