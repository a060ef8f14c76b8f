// SPDX-License-Identifier: Apache-2.0
// paramctl's output on hostile and damaged files: every command's --json parses as a JSON
// document, and no text from a file reaches the terminal raw.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/writer/tuningfilewriter.h"

#include "tests/common/tempfile.h"
#include "tests/paramctl/runparamctl.h"
#include <nlohmann/json.hpp>

namespace {

using ParamCtlTest::Output;
using ParamCtlTest::ReadBytes;
using ParamCtlTest::RunParamctl;

// Escape sequences (a colour change, a window title) and bytes that are no UTF-8.
constexpr char HostileText[] = "\x1b[31mred\x1b]0;title\x07\xff\xc3\x28";

// True when text is valid UTF-8: the JSON library refuses to write a string that is not.
bool IsUtf8(std::string const& text)
{
    try {
        static_cast<void>(nlohmann::json(text).dump());
        return true;
    } catch (nlohmann::json::exception const&) {
        return false;
    }
}

class ParamctlOutputTest : public ::testing::Test
{
protected:
    // The bundled sample with a hostile tag, table name and text value.
    std::vector<uint8_t> PackedHostileSample()
    {
        ParamTest::TempFile description;
        std::string const text = std::string("version 7.0.0\nbinary-tag ") + HostileText +
                                 "\nmodetable " + HostileText +
                                 "\n  path Default|Sensor.0\n"
                                 "instance versionsA_sw varitonal_versionsA10Type mode Default\n"
                                 "  value parameter_version.revision " +
                                 HostileText + "\n";
        description.Rewrite(std::vector<uint8_t>(text.begin(), text.end()));
        ParamTest::TempFile packed;
        EXPECT_EQ(RunParamctl("pack " + description.Path() + " -o " + packed.Path()).code, 0);
        return ReadBytes(packed.Path());
    }
};

TEST_F(ParamctlOutputTest, JsonParsesAndTextIsEscapedOnHostileAndDamagedFiles)
{
    std::vector<uint8_t> const sample = PackedHostileSample();
    ASSERT_GT(sample.size(), 200u);
    // Files that load, files whose tables load but that the loader refuses, and files refused at
    // the header (one for its tag, which the refusal quotes).
    TuningWriter::TuningFileWriter pastEnd;
    pastEnd.SetBinaryTag(HostileText).AddMinimalSections().AddRawSectionRecord(0, 0xFFFF0000u, 64);
    TuningWriter::TuningFileWriter hostileTag;
    hostileTag.SetHeaderTag(HostileText).AddMinimalSections();
    std::vector<std::vector<uint8_t>> files = {sample, pastEnd.Build(), hostileTag.Build()};
    for (size_t cut : {60u, 200u, 1000u})
        files.emplace_back(sample.begin(), sample.begin() + static_cast<long>(cut));

    char const* const jsonCommands[] = {
        "info --json", "info --modules --json", "modes --json", "entries --json", "dump --json",
    };
    char const* const textCommands[] = {"info",        "info --modules", "modes",
                                        "modes --dot", "entries",        "dump"};
    for (size_t i = 0; i < files.size(); ++i) {
        ParamTest::TempFile file(files[i]);
        std::vector<std::string> runs;
        for (char const* command : jsonCommands)
            runs.push_back(std::string(command) + " " + file.Path());
        runs.push_back("get --json " + file.Path() + " Default versionsA_sw");
        runs.push_back("set --json " + file.Path() + " Default t2tconfigdata operationMode=1");
        for (std::string const& run : runs) {
            SCOPED_TRACE("file " + std::to_string(i) + ": paramctl " + run);
            Output const output = RunParamctl(run);
            EXPECT_TRUE(output.code == 0 || output.code == 1) << output.code;
            EXPECT_EQ(output.out.find('\x1b'), std::string::npos);
            if (output.code == 0 || !output.out.empty()) {
                EXPECT_TRUE(nlohmann::json::accept(output.out)) << output.out;
            }
        }
        for (char const* command : textCommands) {
            SCOPED_TRACE("file " + std::to_string(i) + ": paramctl " + command);
            Output const output = RunParamctl(std::string(command) + " " + file.Path());
            EXPECT_TRUE(output.code == 0 || output.code == 1) << output.code;
            EXPECT_EQ(output.out.find('\x1b'), std::string::npos);
            EXPECT_TRUE(IsUtf8(output.out));
        }
        // Only the sample loads; the server refuses the others with the loader's reason.
        if (i > 0) {
            Output const refused = RunParamctl("serve --bind 127.0.0.1 " + file.Path(), true);
            EXPECT_EQ(refused.code, 1) << refused.out;
            EXPECT_EQ(refused.out.find('\x1b'), std::string::npos) << refused.out;
            EXPECT_TRUE(IsUtf8(refused.out)) << refused.out;
        }
    }
    // The hostile tag is shown escaped, so what the file holds can still be read.
    ParamTest::TempFile file(sample);
    EXPECT_NE(
        RunParamctl("info " + file.Path()).out.find("\\x1b[31mred\\x1b]0;title\\x07\\xff\\xc3("),
        std::string::npos);
}

} // namespace
