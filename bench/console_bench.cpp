// SPDX-License-Identifier: Apache-2.0
// The tuning console's module read (GET /api/module) on a big trigger tree: a gamma module of
// 20 x 20 leaves, each with three 65-point curves, served by paramctl console on loopback. With
// PARAMCTL_BASELINE naming another paramctl, the same read is timed on it beside this build's.
#include <cstdlib>
#include <memory>
#include <string>

#include <httplib.h>

#include <benchmark/benchmark.h>

#include "tests/common/gammatreefile.h"
#include "tests/common/tempfile.h"
#include "tests/paramctl/paramctlchild.h"

namespace {

constexpr char ModuleTarget[] = "/api/module?branch=Default%7CSensor.0&instance=gamma16_bps_v2";

void ReadBigTree(benchmark::State& state, std::string const& program)
{
    ParamTest::TempFile file(ParamTest::GammaTreeFile({{20, 20}, {3, 1}, {}}));
    ParamCtlTest::ParamctlChild console("console --bind 127.0.0.1 --port 0 " + file.Path(),
                                        program);
    std::string const prefix = "listening on http://127.0.0.1:";
    if (!console.WaitForLog(prefix)) {
        state.SkipWithError("the console did not start");
        return;
    }
    std::string const log = console.Log();
    httplib::Client client("127.0.0.1", std::stoi(log.substr(log.find(prefix) + prefix.size())));
    client.set_read_timeout(120);
    size_t bytes = 0;
    for (auto _ : state) {
        httplib::Result const answer = client.Get(ModuleTarget);
        if (!answer || answer->status != 200) {
            state.SkipWithError("the module was not read");
            break;
        }
        bytes = answer->body.size();
    }
    state.counters["json_bytes"] = static_cast<double>(bytes);
    console.Stop();
}

void BM_Console_ModuleBigTree(benchmark::State& state)
{
    ReadBigTree(state, PARAMCTL_PATH);
}
BENCHMARK(BM_Console_ModuleBigTree)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Console_ModuleBigTreeBaseline(benchmark::State& state)
{
    char const* baseline = std::getenv("PARAMCTL_BASELINE");
    if (baseline == nullptr) {
        state.SkipWithError("PARAMCTL_BASELINE names no paramctl to compare with");
        return;
    }
    ReadBigTree(state, baseline);
}
BENCHMARK(BM_Console_ModuleBigTreeBaseline)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
