// SPDX-License-Identifier: Apache-2.0
// paramctl diff on packed descriptions that differ in one way each: header, mode tree, instances,
// and values read through a mode branch, where each file may take a value from another mode.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/common/tempfile.h"
#include "tests/paramctl/runparamctl.h"
#include <nlohmann/json.hpp>

namespace {

using ParamCtlTest::RunParamctl;

constexpr char Base[] = R"(version 7.0.0
binary-tag diff-a
modetable rear
  path Default|Sensor.0|Usecase.Preview
instance t2tconfigdata T2TCtrlType mode Default
  value confidenceThreshold 60
instance t2tconfigdata T2TCtrlType mode Default|Sensor.0
  value confidenceThreshold 75
)";

std::string Replaced(std::string text, std::string const& from, std::string const& to)
{
    size_t const at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

struct DiffCase
{
    char const* name;
    std::string b; ///< the second file's description; the first is Base
    char const* options;
    int code;
    char const* output;
};

TEST(ParamctlDiffTest, ShowsEachDifferenceWhereItStands)
{
    std::string const withoutSensor = Replaced(Base,
                                               "instance t2tconfigdata T2TCtrlType mode "
                                               "Default|Sensor.0\n  value confidenceThreshold 75\n",
                                               "");
    std::vector<DiffCase> const cases = {
        {"same", Base, "", 0, ""},
        {"header", Replaced(Base, "diff-a", "diff-b"), "", 1,
         "header binaryTag: diff-a -> diff-b\n"},
        {"mode tree",
         Replaced(Base, "Usecase.Preview", "Usecase.Preview resident\n  path Default|Sensor.1"), "",
         1,
         "mode table 0: Default|Sensor.0|Usecase.Preview: not resident -> resident\n"
         "mode table 0: Default|Sensor.1: only in B\n"},
        {"instance", withoutSensor, "", 1,
         "t2tconfigdata in Default|Sensor.0 (table 0): only in A\n"},
        {"through a branch: each file's deepest mode", withoutSensor,
         "--mode 'Default|Sensor.0|Usecase.Preview'", 1,
         "t2tconfigdata (from Default|Sensor.0 in A, Default in B): confidenceThreshold: 75 -> "
         "60\n"},
        {"through a branch: the same values", withoutSensor, "--mode Default", 0, ""},
        {"branch not in a file", Base, "--mode 'Default|Sensor.3'", 2, ""},
    };
    ParamTest::TempFile described(std::vector<uint8_t>(Base, Base + sizeof(Base) - 1));
    ParamTest::TempFile a;
    ASSERT_EQ(RunParamctl("pack " + described.Path() + " -o " + a.Path()).code, 0);
    for (DiffCase const& test : cases) {
        SCOPED_TRACE(test.name);
        described.Rewrite(std::vector<uint8_t>(test.b.begin(), test.b.end()));
        ParamTest::TempFile b;
        ASSERT_EQ(RunParamctl("pack " + described.Path() + " -o " + b.Path()).code, 0);
        ParamCtlTest::Output const diff =
            RunParamctl(std::string("diff ") + test.options + " " + a.Path() + " " + b.Path());
        EXPECT_EQ(diff.code, test.code);
        EXPECT_EQ(diff.out, test.output);
        if (test.code == 2)
            continue;
        // The JSON form holds the same differences, one item for each line of the text.
        nlohmann::json const document =
            nlohmann::json::parse(RunParamctl(std::string("diff --json ") + test.options + " " +
                                              a.Path() + " " + b.Path())
                                      .out,
                                  nullptr, false);
        ASSERT_TRUE(document.is_object());
        EXPECT_EQ(document["same"], test.code == 0);
        size_t items = document["header"].size() + document["modes"].size();
        for (nlohmann::json const& instance : document["instances"])
            items +=
                instance["a"].is_null() || instance["b"].is_null() ? 1 : instance["values"].size();
        EXPECT_EQ(items, static_cast<size_t>(std::count(diff.out.begin(), diff.out.end(), '\n')));
    }
}

} // namespace
