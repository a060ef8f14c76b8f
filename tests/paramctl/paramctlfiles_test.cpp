// SPDX-License-Identifier: Apache-2.0
// paramctl on writer-made files: verify on files whose schema differs from the build's in one way
// each (the report names what a load matches, zeroes, steps over and converts, and what the module
// class refuses), diff on descriptions that differ in one way each, the output on hostile and
// damaged files (every --json parses, no text from a file reaches the terminal raw), and tuned
// values saved by set -o and serve --save-to (the values changed are written in the file's own
// encoding, every other byte stays, and what the file cannot hold writes nothing), with the exit
// codes of paramctl client against that server on loopback.
#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tools/paramctl/printable.h"
#include "tools/writer/tuningfilewriter.h"

#include "tests/common/tempfile.h"
#include "tests/paramctl/paramctlchild.h"
#include "tests/paramctl/trackerfile.h"
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;
using ParamCtlTest::DefinitionStructure;
using ParamCtlTest::ElementNamed;
using ParamCtlTest::EntryValue;
using ParamCtlTest::InstanceFile;
using ParamCtlTest::Output;
using ParamCtlTest::Packed;
using ParamCtlTest::ParamctlChild;
using ParamCtlTest::ReadBytes;
using ParamCtlTest::RunParamctl;
using ParamCtlTest::StructureNamed;
using ParamCtlTest::TrackerFile;
using ParamCtlTest::TrackerOptions;
using TuningWriter::DefinitionElement;
using TuningWriter::ElementType;

/// A tracker file as a newer tuning tool writes it: a member the build does not know ahead of the
/// others, and with narrow, operationMode two bytes wide.
TrackerOptions Newer(bool narrow)
{
    static EntryValue const addedValue = EntryValue::Real(3.5);
    return {[narrow](std::vector<DefinitionStructure>& s) {
                DefinitionElement added;
                added.name = "addedGain";
                added.type = ElementType::Float;
                DefinitionStructure& top = StructureNamed(s, "T2TCtrlType");
                top.elements.insert(top.elements.begin(), added);
                if (narrow)
                    ElementNamed(top, "operationMode").type = ElementType::UInt16;
            },
            {1, 0, 0},
            &addedValue,
            "addedGain"};
}

/// A tracker file whose schema has no record of the module: the build reads it by its layout.
TrackerOptions WithoutModuleRecord()
{
    TrackerOptions options;
    options.moduleRecord = false;
    return options;
}

struct VerifyCase
{
    char const* name;
    TrackerOptions options;
    json members;        ///< the t2tconfigdata module's "members" report; null: "absent"
    char const* refused; ///< what the module class's refusal says; "" when both are created
};

TEST(ParamctlVerifyTest, ReportsHowTheBuildReadsEachMemberAndInstance)
{
    std::vector<VerifyCase> const cases = {
        {"same schema", {}, {{"matched", 9}}, ""},
        {"member the build does not know, ahead of the others",
         Newer(false),
         {{"matched", 9}, {"extra", {"addedGain"}}},
         ""},
        {"member the file lacks, nested",
         {[](std::vector<DefinitionStructure>& s) {
             auto& elements = StructureNamed(s, "module_versionStruct").elements;
             elements.erase(std::remove_if(elements.begin(), elements.end(),
                                           [](DefinitionElement const& e) {
                                               return e.name == "minor_revision";
                                           }),
                            elements.end());
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
        {"number the file holds as text",
         {[](std::vector<DefinitionStructure>& s) {
             // The last of the text codes.
             ElementNamed(StructureNamed(s, "T2TCtrlType"), "precisionMode").type =
                 static_cast<TuningWriter::ElementType>(28);
         }},
         {{"matched", 8},
          {"converted",
           {{{"member", "precisionMode"}, {"file", "String"}, {"build", "UInt32"}}}}},
         ""},
        {"module of another version",
         {{}, {1, 2, 0}},
         {{"matched", 9}},
         "file version 1.2.0, build version 1.0.0"},
        {"module without its record in the file's schema", WithoutModuleRecord(), nullptr, ""},
    };
    for (VerifyCase const& test : cases) {
        SCOPED_TRACE(test.name);
        ParamTest::TempFile file(TrackerFile(test.options));
        Output const output = RunParamctl("verify --json " + file.Path());
        json const report = json::parse(output.out, nullptr, false);
        ASSERT_TRUE(report.is_object()) << output.out;
        json expected = {{"matched", 0},
                         {"missing", json::array()},
                         {"extra", json::array()},
                         {"converted", json::array()}};
        json const& module = report["modules"][0];
        EXPECT_EQ(module["name"], "t2tconfigdata");
        std::string const schema = test.members.is_null()     ? "absent"
                                   : test.members.size() == 1 ? "matches"
                                                              : "differs";
        EXPECT_EQ(module["schema"], schema) << output.out;
        if (!test.members.is_null()) {
            expected.update(test.members);
            EXPECT_EQ(module["members"], expected);
        }
        bool const refused = *test.refused != '\0';
        for (json const& instance : module["instances"]) {
            EXPECT_EQ(instance["created"], !refused);
            EXPECT_EQ(instance.value("refused", ""), test.refused);
        }
        // A module read by the build's layout alone is no finding.
        EXPECT_EQ(output.code, schema != "differs" && !refused ? 0 : 1);
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
    Output const output = RunParamctl("verify " + file.Path());
    EXPECT_EQ(output.code, 1);
    for (char const* line : {"Checksum:   invalid (CRC-64): stored 0x", "Structure:  sound\n",
                             "schema matches the build's, 9 members matched", "Findings:   1\n"}) {
        EXPECT_NE(output.out.find(line), std::string::npos) << line << "\n" << output.out;
    }
    ParamTest::TempFile text(std::vector<uint8_t>{'n', 'o', 't', '\n'});
    EXPECT_EQ(RunParamctl("verify " + text.Path()).code, 2);
}

// The bundled sample written in the oldest version, on both sides of the creator field (1.0.2)
// and on both sides of 6.0.0: from 6.0.0 on its modules are found and match, and a value set is
// saved; below, entries carry no name hash, and the report says why no module is created. diff
// reads each version.
TEST(ParamctlVerifyTest, WriterFilesOfEachVersionAreJudged)
{
    std::vector<uint8_t> const sample = ReadBytes(PARAM_SOURCE_DIR "/examples/sample.tuning");
    for (char const* version : {"1.0.0", "1.0.2", "3.0.1", "5.0.0", "6.0.0"}) {
        SCOPED_TRACE(version);
        std::string described(sample.begin(), sample.end());
        described.replace(described.find("version 7.0.0"), 13, std::string("version ") + version);
        ParamTest::TempFile const file(Packed(described));
        Output const verify = RunParamctl("verify " + file.Path());
        bool const hashed = version[0] == '6';
        EXPECT_EQ(verify.code, hashed ? 0 : 1) << verify.out;
        EXPECT_EQ(verify.out.find("Module t2tconfigdata: its entries have no name hash") ==
                      std::string::npos,
                  hashed)
            << verify.out;
        EXPECT_EQ(RunParamctl("diff " + file.Path() + " " + file.Path()).code, 0);
        // From 6.0.0 entry 0 of each table is reserved and not counted.
        std::string const entries = RunParamctl("entries " + file.Path()).out;
        EXPECT_EQ(entries.find("4 symbol entries, 2 data entries (entry 0") == 0, hashed)
            << entries;
        // info lists the sections the file has: the data table has one from 4.0.0 on.
        std::string const info = RunParamctl("info " + file.Path()).out;
        EXPECT_EQ(info.find("Created by:  paramctl pack\n") != std::string::npos,
                  std::string(version) != "1.0.0")
            << info;
        EXPECT_EQ(info.find("  data-table ") != std::string::npos, version[0] >= '4') << info;
        ParamTest::TempFile const saved;
        EXPECT_EQ(RunParamctl("set -o " + saved.Path() + " " + file.Path() +
                              " Default t2tconfigdata confidenceThreshold=61")
                      .code,
                  hashed ? 0 : 1);
    }
}

constexpr char DiffBase[] = R"(version 7.0.0
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
    return text.replace(text.find(from), from.size(), to);
}

// Header, mode tree, instances, and values read through a mode branch, where each file may take
// a value from another mode.
TEST(ParamctlDiffTest, ShowsEachDifferenceWhereItStands)
{
    std::string const withoutSensor = Replaced(DiffBase,
                                               "instance t2tconfigdata T2TCtrlType mode "
                                               "Default|Sensor.0\n  value confidenceThreshold 75\n",
                                               "");
    struct Case
    {
        char const* name;
        std::string b; ///< the second file's description; the first is DiffBase
        char const* options;
        int code;
        char const* output;
    };
    std::vector<Case> const cases = {
        {"same", DiffBase, "", 0, ""},
        {"header", Replaced(DiffBase, "diff-a", "diff-b"), "", 1,
         "header binaryTag: diff-a -> diff-b\n"},
        {"mode tree",
         Replaced(DiffBase, "Usecase.Preview", "Usecase.Preview resident\n  path Default|Sensor.1"),
         "", 1,
         "mode table 0: Default|Sensor.0|Usecase.Preview: not resident -> resident\n"
         "mode table 0: Default|Sensor.1: only in B\n"},
        {"instance", withoutSensor, "", 1,
         "t2tconfigdata in Default|Sensor.0 (table 0): only in A\n"},
        {"through a branch: each file's deepest mode", withoutSensor,
         "--mode 'Default|Sensor.0|Usecase.Preview'", 1,
         "t2tconfigdata (from Default|Sensor.0 in A, Default in B): confidenceThreshold: 75 -> "
         "60\n"},
        {"through a branch: the same values", withoutSensor, "--mode Default", 0, ""},
        {"branch not in a file", DiffBase, "--mode 'Default|Sensor.3'", 2, ""},
    };
    ParamTest::TempFile const a(Packed(DiffBase));
    for (Case const& test : cases) {
        SCOPED_TRACE(test.name);
        ParamTest::TempFile const b(Packed(test.b));
        std::string const files = std::string(test.options) + " " + a.Path() + " " + b.Path();
        Output const diff = RunParamctl("diff " + files);
        EXPECT_EQ(diff.code, test.code);
        EXPECT_EQ(diff.out, test.output);
        if (test.code == 2)
            continue;
        // The JSON form holds the same differences, one item for each line of the text.
        json const document = json::parse(RunParamctl("diff --json " + files).out, nullptr, false);
        ASSERT_TRUE(document.is_object());
        EXPECT_EQ(document["same"], test.code == 0);
        size_t items = document["header"].size() + document["modes"].size();
        for (json const& instance : document["instances"])
            items +=
                instance["a"].is_null() || instance["b"].is_null() ? 1 : instance["values"].size();
        EXPECT_EQ(items, static_cast<size_t>(std::count(diff.out.begin(), diff.out.end(), '\n')));
    }
}

// Printable text reads back to the bytes it was made from.
TEST(PrintableTest, KeepsTextAndEscapesEveryOtherByte)
{
    struct Case
    {
        std::string text;
        std::string printed;
    } const cases[] = {
        {"plain text 123", "plain text 123"},
        {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\xb7", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\xb7"},
        {"\x1b[31m", "\\x1b[31m"},
        {"tab\tnew\nline\x7f", "tab\\x09new\\x0aline\\x7f"},
        {"back\\slash", "back\\\\slash"},
        {"\xc2\x9b"
         "2J",
         "\\xc2\\x9b2J"},                             // U+009B starts an escape sequence too
        {"\xc0\xaf", "\\xc0\\xaf"},                   // overlong "/"
        {"\xe0\x9f\xbf", "\\xe0\\x9f\\xbf"},          // overlong U+07FF
        {"\xf0\x8f\xbf\xbf", "\\xf0\\x8f\\xbf\\xbf"}, // overlong U+FFFF
        {"\xed\xa0\x80", "\\xed\\xa0\\x80"},          // a surrogate
        {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"}, // above U+10FFFF
        {"\xe2\x82", "\\xe2\\x82"},                   // cut short at the end
        {"\xe2\x82(", "\\xe2\\x82("},                 // a third byte that continues nothing
        // After other leads, a second byte may be as low as 0x80.
        {"\xe1\x80\x80 \xf1\x80\x80\x80", "\xe1\x80\x80 \xf1\x80\x80\x80"},
        {"\xff\xc3\x28", "\\xff\\xc3("},
        {std::string("a\0b", 3), "a\\x00b"},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.printed);
        EXPECT_EQ(ParamCtl::Printable(test.text), test.printed);
        std::string bytes;
        EXPECT_TRUE(ParamCtl::FromPrintable(test.printed, bytes));
        EXPECT_EQ(bytes, test.text);
    }
}

// Escape sequences (a colour change, a window title) and bytes that are no UTF-8.
constexpr char HostileText[] = "\x1b[31mred\x1b]0;title\x07\xff\xc3\x28";

// True when text is valid UTF-8: the JSON library refuses to write a string that is not.
bool IsUtf8(std::string const& text)
{
    try {
        static_cast<void>(json(text).dump());
        return true;
    } catch (json::exception const&) {
        return false;
    }
}

TEST(ParamctlOutputTest, JsonParsesAndTextIsEscapedOnHostileAndDamagedFiles)
{
    // A sample with a hostile tag, table name and text value; files whose tables load but that
    // the loader refuses; files refused at the header (one for its tag, which the refusal quotes).
    std::vector<uint8_t> const sample = Packed(
        std::string("version 7.0.0\nbinary-tag ") + HostileText + "\nmodetable " + HostileText +
        "\n  path Default|Sensor.0\n"
        "instance versionsA_sw varitonal_versionsA10Type mode Default\n"
        "  value parameter_version.revision " +
        HostileText + "\n");
    ASSERT_GT(sample.size(), 200u);
    TuningWriter::TuningFileWriter pastEnd;
    pastEnd.SetBinaryTag(HostileText).AddMinimalSections().AddRawSectionRecord(0, 0xFFFF0000u, 64);
    TuningWriter::TuningFileWriter hostileTag;
    hostileTag.SetHeaderTag(HostileText).AddMinimalSections();
    std::vector<std::vector<uint8_t>> files = {sample, pastEnd.Build(), hostileTag.Build()};
    for (size_t cut : {60u, 200u, 1000u})
        files.emplace_back(sample.begin(), sample.begin() + static_cast<long>(cut));

    for (size_t i = 0; i < files.size(); ++i) {
        ParamTest::TempFile file(files[i]);
        std::string const path = " " + file.Path();
        std::vector<std::string> runs = {
            "get --json" + path + " Default versionsA_sw",
            "set --json" + path + " Default t2tconfigdata operationMode=1", "modes --dot" + path};
        for (std::string const command : {"info", "info --modules", "modes", "entries", "dump"}) {
            runs.push_back(command + path);
            runs.push_back(command + " --json" + path);
        }
        for (std::string const& run : runs) {
            SCOPED_TRACE("file " + std::to_string(i) + ": paramctl " + run);
            Output const output = RunParamctl(run);
            EXPECT_TRUE(output.code == 0 || output.code == 1) << output.code;
            EXPECT_EQ(output.out.find('\x1b'), std::string::npos);
            if (run.find("--json") == std::string::npos) {
                EXPECT_TRUE(IsUtf8(output.out));
            } else if (output.code == 0 || !output.out.empty()) {
                EXPECT_TRUE(json::accept(output.out)) << output.out;
            }
        }
        // Only the sample loads; the server refuses the others with the loader's reason.
        if (i > 0) {
            Output const refused = RunParamctl("serve --bind 127.0.0.1" + path, true);
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
    TrackerOptions const newer = Newer(true);
    TrackerOptions const older{[](std::vector<DefinitionStructure>& s) {
        auto& elements = StructureNamed(s, "T2TCtrlType").elements;
        elements.erase(elements.begin() + elements.size() - 1); // confidenceThreshold
    }};
    auto const countedLast = [](std::vector<DefinitionStructure>& s) {
        DefinitionElement& last =
            ElementNamed(StructureNamed(s, "T2TCtrlType"), "confidenceThreshold");
        last.minCount = 0;
        last.maxCount = 4;
    };
    EntryValue const none = EntryValue::List({});
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
        {"last member counted in the file", {countedLast}, "confidenceThreshold=99", 0,
         "operationMode=2\ndownscaleRatio=0.25\nconfidenceThreshold=99\n", 4,
         "t2tconfigdata in Default|Sensor.0 (table 0): confidenceThreshold[0]: 75 -> 99\n"},
        {"last member counted and empty in the file",
         {countedLast, {1, 0, 0}, &none, "confidenceThreshold"}, "confidenceThreshold=99", 1, "",
         0, "t2tconfigdata in Default|Sensor.0: confidenceThreshold: the file holds 0 elements"},
        {"module the file's schema lacks", WithoutModuleRecord(), "confidenceThreshold=5", 1, "", 0,
         "t2tconfigdata in Default|Sensor.0: confidenceThreshold: the file's schema has no such "
         "module"},
        {"member the file lacks", older, "confidenceThreshold=5", 1, "", 0,
         "t2tconfigdata in Default|Sensor.0: confidenceThreshold: not in the file's schema"},
    };
    for (SaveCase const& test : cases) {
        SCOPED_TRACE(test.name);
        std::vector<uint8_t> const bytes = TrackerFile(test.options);
        ParamTest::TempFile input(bytes);
        ParamTest::TempFile output;
        Output const set = RunParamctl("set -o " + output.Path() + " " + input.Path() +
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
        Output const diff = RunParamctl("diff " + input.Path() + " " + output.Path());
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

// An integer that the file keeps in four bytes is saved as the float the build reads there, in
// its four bytes alone: the member behind it keeps its value.
TEST(ParamctlSaveTest, FourByteIntegerIsSavedInItsOwnForm)
{
    TrackerOptions const fourByte{[](std::vector<DefinitionStructure>& s) {
        ElementNamed(StructureNamed(s, "varitonalStatsNNPDNetType"), "infProcessLevel").flags |=
            TuningWriter::ElementFourByte;
    }};
    auto const levels = [](uint64_t level) {
        return EntryValue::Struct({{"infProcessLevel", EntryValue::UInt(level)},
                                   {"preProcessLevel", EntryValue::UInt(7)}});
    };
    ParamTest::TempFile const input(
        InstanceFile("varitonalStatsNNPDNet",
                     {{"Default", levels(1)}, {"Default|Sensor.0", levels(2)}}, fourByte));
    ParamTest::TempFile const output;
    std::string const module = " 'Default|Sensor.0' varitonalStatsNNPDNet ";
    Output const set = RunParamctl(
        "set -o " + output.Path() + " " + input.Path() + module + "infProcessLevel=3", true);
    ASSERT_EQ(set.code, 0) << set.out;
    for (auto const& [path, level] :
         {std::make_pair(input.Path(), '2'), std::make_pair(output.Path(), '3')}) {
        EXPECT_EQ(RunParamctl("get " + path + module + "infProcessLevel,preProcessLevel").out,
                  std::string("# mode Default|Sensor.0\ninfProcessLevel=") + level +
                      "\npreProcessLevel=7\n");
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
        char const* shown; ///< part of the output
    } const cases[] = {
        {"get 'Default:t2tconfigdata:confidenceThreshold'", 0, "confidenceThreshold=60\n"},
        {"--json get 'Default:t2tconfigdata:confidenceThreshold'", 0,
         "\"request\": 1,\n  \"values\": \"confidenceThreshold=60\"\n}"},
        {"get 'Default:t2tconfigdata.nothing'", 1, ""},
        {"set 'Default|Sensor.0:t2tconfigdata' banana=1", 1, ""},
        {"info-var 'Default:t2tconfigdata'", 0, "confidenceThreshold=60,UInt32"},
        {"info-var 'Default:nothing'", 1, ""},
        // serve answers a trigger with two instances; 621 is the module's name hash folded.
        {"trigger 'Default:t2tconfigdata:3'", 0,
         "\n  instance0: 1=1.25 2=621 3=3\n  instance1: 1=2.5 2=621\n"},
        {"set 'Default|Sensor.0:t2tconfigdata' confidenceThreshold=42", 0, ""},
    };
    for (Case const& test : cases) {
        Output const answer = RunParamctl(client + test.request);
        EXPECT_EQ(answer.code, test.code) << test.request;
        EXPECT_NE(answer.out.find(test.shown), std::string::npos) << answer.out;
    }
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
