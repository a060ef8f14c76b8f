// SPDX-License-Identifier: Apache-2.0
// paramctl client against a live tuning server on loopback: its exit code tells whether the
// request did something.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "paramgen/TuningSetManager.h"
#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"
#include "tests/paramctl/runparamctl.h"

namespace {

using ParamCtlTest::RunParamctl;

TEST(ParamctlClientTest, ExitsOneWhenTheAnswerShowsNothingWasDone)
{
    ParamTest::TempFile packed;
    ASSERT_EQ(
        RunParamctl("pack " PARAM_SOURCE_DIR "/examples/sample.tuning -o " + packed.Path()).code,
        0);
    std::vector<uint8_t> bytes = ParamCtlTest::ReadBytes(packed.Path());
    ParamTest::LogCapture log; // the server's own complaints about the bad requests
    TuningSetManager server("client-test");
    ASSERT_TRUE(server.SetKnobbyListenAddress("127.0.0.1", 0)); // loopback only
    ASSERT_TRUE(server.LoadBinaryParameters(bytes.data(), bytes.size())) << server.GetErrorString();
    ASSERT_NE(server.GetKnobbyPort(), 0);
    std::string const client =
        "client --timeout 5 127.0.0.1:" + std::to_string(server.GetKnobbyPort()) + " ";

    struct Case
    {
        std::string request;
        int code;
    } const cases[] = {
        {"get 'Default:t2tconfigdata:confidenceThreshold'", 0},
        {"get 'Default:t2tconfigdata.nothing'", 1},
        {"set 'Default:t2tconfigdata' confidenceThreshold=70", 0},
        {"set 'Default:t2tconfigdata' banana=1", 1},
        {"info-var 'Default:t2tconfigdata'", 0},
        {"info-var 'Default:nothing'", 1},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.request);
        EXPECT_EQ(RunParamctl(client + test.request).code, test.code);
    }
}

} // namespace
