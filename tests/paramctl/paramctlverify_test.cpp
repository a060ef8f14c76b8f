// SPDX-License-Identifier: Apache-2.0
// paramctl verify on writer-made files whose schema differs from the build's in one way each:
// the report names what a load matches, zeroes, steps over and converts, and what the module
// class refuses.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/common/tempfile.h"
#include "tests/paramctl/runparamctl.h"
#include "tests/paramctl/trackerfile.h"
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;
using ParamCtlTest::DefinitionStructure;
using ParamCtlTest::ElementNamed;
using ParamCtlTest::EntryValue;
using ParamCtlTest::RunParamctl;
using ParamCtlTest::StructureNamed;
using ParamCtlTest::TrackerFile;
using ParamCtlTest::TrackerOptions;
using TuningWriter::DefinitionElement;
using TuningWriter::ElementType;

void Erase(DefinitionStructure& structure, std::string const& member)
{
    auto& elements = structure.elements;
    elements.erase(std::remove_if(elements.begin(), elements.end(),
                                  [&](DefinitionElement const& e) { return e.name == member; }),
                   elements.end());
}

struct VerifyCase
{
    char const* name;
    TrackerOptions options;
    json members;        ///< the t2tconfigdata module's "members" report
    char const* refused; ///< what the module class's refusal says; "" when both are created
};

TEST(ParamctlVerifyTest, ReportsHowTheBuildReadsEachMemberAndInstance)
{
    DefinitionElement added;
    added.name = "addedGain";
    added.type = ElementType::Float;
    EntryValue const addedValue = EntryValue::Real(3.5);
    std::vector<VerifyCase> const cases = {
        {"same schema", {}, {{"matched", 9}}, ""},
        {"member the build does not know, ahead of the others",
         {[&](std::vector<DefinitionStructure>& s) {
              auto& elements = StructureNamed(s, "T2TCtrlType").elements;
              elements.insert(elements.begin(), added);
          },
          {1, 0, 0},
          &addedValue,
          "addedGain"},
         {{"matched", 9}, {"extra", {"addedGain"}}},
         ""},
        {"member the file lacks, nested",
         {[](std::vector<DefinitionStructure>& s) {
             Erase(StructureNamed(s, "module_versionStruct"), "minor_revision");
         }},
         {{"matched", 8}, {"missing", {"module_version.minor_revision"}}},
         ""},
        {"narrower number type and a fixed array",
         {[](std::vector<DefinitionStructure>& s) {
             DefinitionStructure& top = StructureNamed(s, "T2TCtrlType");
             ElementNamed(top, "operationMode").type = ElementType::UInt16;
             DefinitionElement& threshold = ElementNamed(top, "confidenceThreshold");
             threshold.minCount = threshold.maxCount = 2;
         }},
         {{"matched", 7},
          {"converted",
           {{{"member", "operationMode"}, {"file", "UInt16"}, {"build", "UInt32"}},
            {{"member", "confidenceThreshold"}, {"file", "UInt32[2]"}, {"build", "UInt32"}}}}},
         ""},
        {"module of another version",
         {{}, {1, 2, 0}},
         {{"matched", 9}},
         "file version 1.2.0, build version 1.0.0"},
    };
    for (VerifyCase const& test : cases) {
        SCOPED_TRACE(test.name);
        ParamTest::TempFile file(TrackerFile(test.options));
        ParamCtlTest::Output const output = RunParamctl("verify --json " + file.Path());
        json const report = json::parse(output.out, nullptr, false);
        ASSERT_TRUE(report.is_object()) << output.out;
        json expected = {{"matched", 0},
                         {"missing", json::array()},
                         {"extra", json::array()},
                         {"converted", json::array()}};
        expected.update(test.members);
        json const& module = report["modules"][0];
        EXPECT_EQ(module["name"], "t2tconfigdata");
        EXPECT_EQ(module["members"], expected);
        EXPECT_EQ(module["schema"], test.members.size() == 1 ? "matches" : "differs");
        bool const refused = *test.refused != '\0';
        for (json const& instance : module["instances"]) {
            EXPECT_EQ(instance["created"], !refused);
            EXPECT_EQ(instance.value("refused", ""), test.refused);
        }
        EXPECT_EQ(output.code, test.members.size() == 1 && !refused ? 0 : 1);
        EXPECT_TRUE(report["checksum"]["valid"]);
        EXPECT_TRUE(report["structure"]["valid"]);
    }
}

// A file whose checksum no longer fits its bytes is still checked through: the report shows the
// damage and everything behind it.
TEST(ParamctlVerifyTest, ChecksumDamageHidesNothingElse)
{
    std::vector<uint8_t> bytes = TrackerFile();
    bytes.back() ^= 0xFF;
    ParamTest::TempFile file(bytes);
    ParamCtlTest::Output const output = RunParamctl("verify " + file.Path());
    EXPECT_EQ(output.code, 1);
    EXPECT_NE(output.out.find("Checksum:   invalid (CRC-64): stored 0x"), std::string::npos)
        << output.out;
    EXPECT_NE(output.out.find("Structure:  sound\n"), std::string::npos) << output.out;
    EXPECT_NE(output.out.find("schema matches the build's, 9 members matched"), std::string::npos);
    EXPECT_NE(output.out.find("Findings:   1\n"), std::string::npos);

    ParamTest::TempFile text(std::vector<uint8_t>{'n', 'o', 't', '\n'});
    EXPECT_EQ(RunParamctl("verify " + text.Path()).code, 2);
}

// The bundled sample written in every version: from 6.0.0 on its modules are found and match;
// below, entries carry no name hash, and the report says why no module is created. diff reads
// every version.
TEST(ParamctlVerifyTest, WriterFilesOfEveryVersionAreJudged)
{
    std::vector<uint8_t> const sample =
        ParamCtlTest::ReadBytes(PARAM_SOURCE_DIR "/examples/sample.tuning");
    std::string const text(sample.begin(), sample.end());
    for (char const* version :
         {"1.0.0", "1.0.2", "1.1.0", "2.0.0", "3.0.0", "3.0.1", "4.0.0", "5.0.0", "6.0.0"}) {
        SCOPED_TRACE(version);
        std::string described = text;
        described.replace(described.find("version 7.0.0"), 13, std::string("version ") + version);
        ParamTest::TempFile description(std::vector<uint8_t>(described.begin(), described.end()));
        ParamTest::TempFile file;
        ASSERT_EQ(RunParamctl("pack " + description.Path() + " -o " + file.Path()).code, 0);
        ParamCtlTest::Output const verify = RunParamctl("verify " + file.Path());
        bool const hashed = version[0] == '6';
        EXPECT_EQ(verify.code, hashed ? 0 : 1) << verify.out;
        EXPECT_EQ(verify.out.find("Module t2tconfigdata: its entries have no name hash") ==
                      std::string::npos,
                  hashed)
            << verify.out;
        EXPECT_EQ(RunParamctl("diff " + file.Path() + " " + file.Path()).code, 0);
    }
}

} // namespace
