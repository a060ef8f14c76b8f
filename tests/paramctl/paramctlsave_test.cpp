// SPDX-License-Identifier: Apache-2.0
// Tuned values saved to a new file, by paramctl set -o and by paramctl serve --save-to: the
// values changed are written in the file's own encoding, every other byte stays, and what the
// file cannot hold writes nothing. paramctl client against that server on loopback: its exit
// code tells whether the request did something.
#include <csignal>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/common/tempfile.h"
#include "tests/paramctl/paramctlchild.h"
#include "tests/paramctl/runparamctl.h"
#include "tests/paramctl/trackerfile.h"

namespace {

using ParamCtlTest::DefinitionStructure;
using ParamCtlTest::ElementNamed;
using ParamCtlTest::EntryValue;
using ParamCtlTest::ParamctlChild;
using ParamCtlTest::ReadBytes;
using ParamCtlTest::RunParamctl;
using ParamCtlTest::StructureNamed;
using ParamCtlTest::TrackerFile;
using ParamCtlTest::TrackerOptions;
using TuningWriter::DefinitionElement;
using TuningWriter::ElementType;

constexpr size_t ChecksumSize = 8; // the files are of version 7.0.0

/// Offsets, outside the checksum, at which two files of one length differ.
std::vector<size_t> DifferingBytes(std::vector<uint8_t> const& a, std::vector<uint8_t> const& b)
{
    std::vector<size_t> offsets;
    for (size_t i = 0; i + ChecksumSize < a.size() && i < b.size(); ++i) {
        if (a[i] != b[i])
            offsets.push_back(i);
    }
    return offsets;
}

std::string ReadBack(std::string const& path, char const* mode)
{
    return RunParamctl("get " + path + " '" + mode +
                       "' t2tconfigdata operationMode,downscaleRatio,confidenceThreshold")
        .out;
}

struct SaveCase
{
    char const* name;
    TrackerOptions options;
    char const* changes;
    int code;
    char const* sensorValues; ///< Default|Sensor.0 read back from the saved file
    size_t changedBytes;      ///< bytes of the values changed, in the file's encoding
    char const* error;        ///< for a refusal; what diff shows of the saved file otherwise
};

TEST(ParamctlSaveTest, SetWritesOnlyTheChangedValuesInTheFilesEncoding)
{
    DefinitionElement added;
    added.name = "addedGain";
    added.type = ElementType::Float;
    EntryValue const addedValue = EntryValue::Real(3.5);
    // The file a newer tool wrote: a member the build does not know ahead of the others, and
    // operationMode two bytes wide.
    TrackerOptions const newer{[&](std::vector<DefinitionStructure>& s) {
                                   DefinitionStructure& top = StructureNamed(s, "T2TCtrlType");
                                   top.elements.insert(top.elements.begin(), added);
                                   ElementNamed(top, "operationMode").type = ElementType::UInt16;
                               },
                               {1, 0, 0},
                               &addedValue,
                               "addedGain"};
    TrackerOptions const older{[](std::vector<DefinitionStructure>& s) {
        auto& elements = StructureNamed(s, "T2TCtrlType").elements;
        elements.erase(elements.begin() + elements.size() - 1); // confidenceThreshold
    }};
    std::vector<SaveCase> const cases = {
        {"same schema",
         {},
         "confidenceThreshold=99 downscaleRatio=0.125",
         0,
         "operationMode=2\ndownscaleRatio=0.125\nconfidenceThreshold=99\n",
         8,
         "t2tconfigdata in Default|Sensor.0 (table 0): confidenceThreshold: 75 -> 99\n"
         "t2tconfigdata in Default|Sensor.0 (table 0): downscaleRatio: 0.25 -> 0.125\n"},
        {"newer file", newer, "operationMode=7", 0,
         "operationMode=7\ndownscaleRatio=0.25\nconfidenceThreshold=75\n", 2,
         "t2tconfigdata in Default|Sensor.0 (table 0): operationMode: 2 -> 7\n"},
        {"value outside the file's type", newer, "operationMode=70000", 1, "", 0,
         "t2tconfigdata in Default|Sensor.0: operationMode: in the file's type, '70000' is "
         "outside UInt16 (0 to 65535)"},
        {"member the file lacks", older, "confidenceThreshold=5", 1, "", 0,
         "t2tconfigdata in Default|Sensor.0: confidenceThreshold: not in the file's schema"},
    };
    for (SaveCase const& test : cases) {
        SCOPED_TRACE(test.name);
        std::vector<uint8_t> const bytes = TrackerFile(test.options);
        ParamTest::TempFile input(bytes);
        ParamTest::TempFile output;
        ParamCtlTest::Output const set =
            RunParamctl("set -o " + output.Path() + " " + input.Path() +
                            " 'Default|Sensor.0' t2tconfigdata " + test.changes,
                        true);
        EXPECT_EQ(set.code, test.code) << set.out;
        std::vector<uint8_t> const saved = ReadBytes(output.Path());
        EXPECT_EQ(ReadBytes(input.Path()), bytes);
        if (test.code != 0) {
            EXPECT_NE(set.out.find(test.error), std::string::npos) << set.out;
            EXPECT_TRUE(saved.empty());
            continue;
        }
        ParamCtlTest::Output const diff = RunParamctl("diff " + input.Path() + " " + output.Path());
        EXPECT_EQ(diff.code, 1);
        EXPECT_EQ(diff.out, test.error);
        ASSERT_EQ(saved.size(), bytes.size());
        std::vector<size_t> const changed = DifferingBytes(bytes, saved);
        ASSERT_FALSE(changed.empty());
        EXPECT_LE(changed.size(), test.changedBytes);
        EXPECT_EQ(ReadBack(output.Path(), "Default|Sensor.0"),
                  std::string("# mode Default|Sensor.0\n") + test.sensorValues);
        EXPECT_EQ(ReadBack(output.Path(), "Default"), ReadBack(input.Path(), "Default"));
        EXPECT_EQ(RunParamctl("verify " + output.Path()).code, test.options.edit ? 1 : 0);
    }
}

/// A port on 127.0.0.1 that was free a moment ago.
unsigned short FreeLoopbackPort()
{
    int const probe = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    unsigned short port = 0;
    if (bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
        getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length) == 0)
        port = ntohs(address.sin_port);
    close(probe);
    return port;
}

TEST(ParamctlSaveTest, ServeAnswersClientsAndSavesWhatWasTunedOnSignalAndOnExit)
{
    ParamTest::TempFile input(TrackerFile());
    ParamTest::TempFile output;
    // A port given is taken and no other: the server says it listens on it.
    unsigned short const port = FreeLoopbackPort();
    ASSERT_NE(port, 0);
    ParamctlChild server("serve --bind 127.0.0.1 --port " + std::to_string(port) + " --save-to " +
                         output.Path() + " " + input.Path());
    ASSERT_EQ(server.NumberAfter("listening on port "), port) << server.Log();
    std::string const client = "client --timeout 5 127.0.0.1:" + std::to_string(port) + " ";
    struct Case
    {
        char const* request;
        int code;
    } const cases[] = {
        {"get 'Default:t2tconfigdata:confidenceThreshold'", 0},
        {"get 'Default:t2tconfigdata.nothing'", 1},
        {"set 'Default|Sensor.0:t2tconfigdata' banana=1", 1},
        {"info-var 'Default:t2tconfigdata'", 0},
        {"info-var 'Default:nothing'", 1},
        {"set 'Default|Sensor.0:t2tconfigdata' confidenceThreshold=42", 0},
    };
    for (Case const& test : cases)
        EXPECT_EQ(RunParamctl(client + test.request).code, test.code) << test.request;
    kill(server.Pid(), SIGUSR1);
    EXPECT_TRUE(server.WaitForLog("saved 1 values")) << server.Log();
    EXPECT_EQ(
        ReadBack(output.Path(), "Default|Sensor.0"),
        "# mode Default|Sensor.0\noperationMode=2\ndownscaleRatio=0.25\nconfidenceThreshold=42\n");

    EXPECT_EQ(RunParamctl(client + "set 'Default|Sensor.0:t2tconfigdata' downscaleRatio=0.75").code,
              0);
    ASSERT_EQ(server.Stop(), 0);
    EXPECT_EQ(
        ReadBack(output.Path(), "Default|Sensor.0"),
        "# mode Default|Sensor.0\noperationMode=2\ndownscaleRatio=0.75\nconfidenceThreshold=42\n");
    EXPECT_EQ(ReadBack(output.Path(), "Default"), ReadBack(input.Path(), "Default"));
}

} // namespace
