// SPDX-License-Identifier: Apache-2.0
// The text form of a tuning file: what it accepts, what it refuses, and the file it makes.
#include "tools/writer/tuningdescription.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parsercrc.h"

#include "tests/common/testsetmanager.h"

namespace {

using TuningWriter::TuningDescription;

constexpr char Sample[] = R"(
version 7.0.0
binary-tag demo-front   # trailing comment
created-by unit test tool
structure 2 module_versionStruct
  member major_revision Int32
  member minor_revision Int32
structure 1 TopType
  member module_version struct:2
  member numPoints UInt32
  member indices UInt32[300]
  member limits Float[] four-byte
  member label String?
module TopType 1
)";

TEST(TuningDescriptionTest, PackedFileLoadsWithItsSchema)
{
    TuningDescription description;
    ASSERT_TRUE(description.Parse(Sample)) << description.Error();
    std::vector<uint8_t> bytes = description.MakeWriter().Build();
    EXPECT_GE(bytes.size(), TuningWriter::FileModeWindow);

    ParamTest::TestSetManager manager;
    ASSERT_TRUE(manager.LoadBinaryParameters(bytes.data(), bytes.size()))
        << manager.GetErrorString();
    EXPECT_STREQ(manager.GetBinaryTag(), "demo-front");

    ParameterSetManager::SectionInfo const section = manager.GetDefinitionSection();
    ParameterFileSymbolTable table(&manager, 1, manager.GetBinaryVersion());
    unsigned int pos = section.Offset;
    ASSERT_TRUE(table.ReadDefinitions(bytes.data(), static_cast<unsigned int>(bytes.size()), pos,
                                      section.Size, true));
    ParameterDefinitionStructure const* top =
        table.FindModuleStructure(ParserCRC64::HashName("TopType"));
    ASSERT_NE(top, nullptr);
    // Load limit 4, version record 4 + 2 x 4, count 4, fixed array count 4 + 300 x 4, counted
    // floats 8, optional string 8.
    EXPECT_EQ(top->Size, 4u + 12u + 4u + 1204u + 8u + 8u);
    ParameterDefinitionElement const* limits = top->FindChild(ParserCRC64::HashName("limits"));
    ASSERT_NE(limits, nullptr);
    EXPECT_EQ(limits->Info->Flags, ElementFourByte | ElementVariableCount);
}

TEST(TuningDescriptionTest, RefusesMalformedLinesWithTheirNumber)
{
    struct Case
    {
        std::string text;
        std::string error;
    };
    Case const cases[] = {
        {"version 7.0", "line 1: bad version '7.0'"},
        {"version 7.0.0.1", "line 1: bad version '7.0.0.1'"},
        {"\nmember a UInt32", "line 2: member outside a structure"},
        {"structure 1 A\n member a Bogus", "line 2: unknown member type 'Bogus'"},
        {"structure 1 A\n member a UInt32[0]", "line 2: bad array length in 'UInt32[0]'"},
        {"structure 1 A\n member a struct:x", "line 2: bad structure ID in 'struct:x'"},
        {"structure 1 A\n member a UInt32 eight-byte",
         "line 2: unknown member option 'eight-byte'"},
        {"module A", "line 1: cannot read 'module' with 1 argument(s)"},
        {"flags nope", "line 1: bad flags 'nope'"},
        {"version 7.0.1", "line 1: version 7.0.1 is above 7.0.0, the latest the loader reads"},
        {"binary-tag " + std::string(65, 't'),
         "line 1: a binary tag of 65 characters does not fit its 64-byte field"},
        {"created-by " + std::string(49, 'c'),
         "line 1: a creator name of 49 characters does not fit its 48-byte field"},
        {"modetable " + std::string(33, 'm') + "\nversion 6.0.0",
         "line 1: a mode table name of 33 characters does not fit its 32-byte field"},
    };
    for (Case const& c : cases) {
        TuningDescription description;
        EXPECT_FALSE(description.Parse(c.text)) << c.text;
        EXPECT_EQ(description.Error(), c.error) << c.text;
    }
}

} // namespace
