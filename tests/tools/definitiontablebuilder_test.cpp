// SPDX-License-Identifier: Apache-2.0
// The schema section builder read back field by field at both alignments.
#include "tools/writer/definitiontablebuilder.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parsercrc.h"

#include "tests/tools/readback.h"

namespace {

using namespace TuningWriter;

// One expected piece of the section: a field at its step, raw bytes taken exactly, or a u32
// length at its step followed by that many bytes of text.
struct Step
{
    enum Kind
    {
        Field,
        Raw,
        Counted
    } kind;
    unsigned int width;
    uint64_t value;
    char const* text;
};

Step F(unsigned int width, uint64_t value)
{
    return {Step::Field, width, value, nullptr};
}
Step R(unsigned int width, uint64_t value)
{
    return {Step::Raw, width, value, nullptr};
}
Step C(uint32_t length, char const* text)
{
    return {Step::Counted, 4, length, text};
}

class DefinitionLayoutTest : public testing::TestWithParam<unsigned char>
{
};

TEST_P(DefinitionLayoutTest, EveryRecordKindReadsBackFieldByField)
{
    unsigned char const alignment = GetParam();
    DefinitionTableBuilder builder;
    EXPECT_TRUE(builder.Empty());
    builder.AddModule({7, "modA", std::nullopt, "skipme"})
        .AddStructure({7,
                       "structA",
                       0xABCDEF0123456789u,
                       {{"first", ElementType::Float, 0, 2, 2, ElementFourByte, "", std::nullopt},
                        {"nested", ElementType::Structure, 9, 0, 5, 0, "xy", 0u},
                        {"abcdef", ElementType::UInt8, 0, 1, 1, 0, "", 3u}}})
        .AddOpaque({0, "zero", ""})
        .AddOpaque({1, "one", ""})
        .AddOpaque({2, "two", "second"})
        .AddEnum({11, "enumA", std::nullopt, {{3, true, "v3", "t"}, {4, false, "v4", ""}}})
        .AddRawKind({7});
    EXPECT_FALSE(builder.Empty());

    Step const expected[] = {
        // Module: the name's length counts its NUL; the hash defaults to the name hash.
        F(1, 4), F(4, 7), F(8, ParserCRC64::HashName("modA")), C(5, "modA"), C(6, "skipme"),
        // Structure with its elements, none with a kind byte.
        F(1, 5), F(4, 7), C(8, "structA"), F(8, 0xABCDEF0123456789u), F(4, 3), F(1, 16), F(4, 0),
        C(6, "first"), F(2, ElementFourByte), F(4, 2), F(4, 2), C(0, ""), F(1, 5), F(4, 9),
        C(0, ""), F(2, 0), F(4, 0), F(4, 5), C(2, "xy"), F(1, 9), F(4, 0), C(3, "abc"), F(2, 0),
        F(4, 1), F(4, 1), C(0, ""),
        // Opaque records: their raw bytes are never padded.
        F(1, 0), R(1, 0), C(4, "zero"), R(1, 0), F(1, 1), R(3, 0), C(3, "one"), R(1, 0), F(1, 2),
        R(2, 0), C(3, "two"), C(6, "second"),
        // Enum: ID, hash and each value with its bool are raw; the lengths step.
        F(1, 6), R(4, 11), C(6, "enumA"), R(8, ParserCRC64::HashName("enumA")), F(4, 2), R(4, 3),
        R(1, 1), C(3, "v3"), C(1, "t"), R(4, 4), R(1, 0), C(3, "v4"), C(0, ""),
        // A bare kind.
        F(1, 7)};

    std::vector<uint8_t> const bytes = builder.Build(alignment);
    auto const length = static_cast<unsigned int>(bytes.size());
    unsigned int pos = 0;
    ParameterByteReader reader(bytes.data(), length, pos, alignment, nullptr);
    for (size_t i = 0; i < std::size(expected); ++i) {
        Step const& step = expected[i];
        SCOPED_TRACE("step " + std::to_string(i));
        if (step.kind == Step::Raw) {
            EXPECT_EQ(WriterTest::ReadRaw(reader, step.width), step.value);
            continue;
        }
        EXPECT_EQ(WriterTest::ReadField(reader, step.width), step.value);
        if (step.kind == Step::Counted) {
            EXPECT_EQ(WriterTest::ReadText(reader, static_cast<unsigned int>(step.value)),
                      step.text);
        }
    }
    EXPECT_FALSE(reader.Failed());
    EXPECT_EQ(reader.Position(), length);
}

INSTANTIATE_TEST_SUITE_P(Alignments, DefinitionLayoutTest, testing::Values(1, 8),
                         [](testing::TestParamInfo<unsigned char> const& param) {
                             return "Alignment" + std::to_string(param.param);
                         });

} // namespace
