// SPDX-License-Identifier: Apache-2.0
// The rule by which pack and set read a value's text: form, range and finiteness per kind.
#include "tools/writer/numbertext.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using TuningWriter::NumberKind;
using TuningWriter::NumberValue;
using TuningWriter::ParseNumber;

TEST(NumberTextTest, ReadsWithinRangeAndRefusesEverythingElse)
{
    struct Case
    {
        NumberKind kind;
        char const* text;
        bool accepted;
        long double value;  ///< when accepted
        char const* reason; ///< when refused
    };
    Case const cases[] = {
        {NumberKind::UInt32, "0x10", true, 16, ""},
        {NumberKind::UInt32, "010", true, 10, ""}, // decimal, not octal
        {NumberKind::Int32, "-0x10", true, -16, ""},
        {NumberKind::UInt8, "+255", true, 255, ""},
        {NumberKind::UInt8, "256", false, 0, "'256' is outside UInt8 (0 to 255)"},
        {NumberKind::Int8, "-129", false, 0, "'-129' is outside Int8 (-128 to 127)"},
        {NumberKind::UInt32, "-0", true, 0, ""},
        {NumberKind::UInt64, "18446744073709551615", true, 18446744073709551615.0L, ""},
        {NumberKind::UInt64, "18446744073709551616", false, 0,
         "'18446744073709551616' is outside UInt64 (0 to 18446744073709551615)"},
        {NumberKind::Int64, "-9223372036854775808", true, -9223372036854775808.0L, ""},
        {NumberKind::Int64, "9223372036854775808", false, 0,
         "'9223372036854775808' is outside Int64 (-9223372036854775808 to 9223372036854775807)"},
        {NumberKind::Int32, "1e3", false, 0, "'1e3' is not an integer (Int32)"},
        {NumberKind::UInt32, " 5", false, 0, "' 5' is not a number (UInt32)"},
        {NumberKind::UInt32, "", false, 0, "an empty text is no value (UInt32)"},
        {NumberKind::Float, "0x1p3", true, 8, ""},
        {NumberKind::Float, "3.5e38", false, 0,
         "'3.5e38' is outside Float (-3.40282347e+38 to 3.40282347e+38)"},
        {NumberKind::Double, "1e308", true, 1e308L, ""},
        {NumberKind::Double, "1e309", false, 0,
         "'1e309' is outside Double (-1.79769313e+308 to 1.79769313e+308)"},
        {NumberKind::Double, "-inf", false, 0, "'-inf' is not a finite number (Double)"},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.text);
        NumberValue value;
        std::string reason;
        ASSERT_EQ(ParseNumber(test.kind, test.text, value, reason), test.accepted) << reason;
        if (!test.accepted) {
            EXPECT_EQ(reason, test.reason);
            continue;
        }
        bool const real = test.kind == NumberKind::Float || test.kind == NumberKind::Double;
        bool const isSigned = test.kind == NumberKind::Int8 || test.kind == NumberKind::Int32 ||
                              test.kind == NumberKind::Int64;
        if (real)
            EXPECT_EQ(value.real, static_cast<double>(test.value));
        else if (isSigned)
            EXPECT_EQ(static_cast<long double>(value.integer), test.value);
        else
            EXPECT_EQ(static_cast<long double>(value.unsignedInteger), test.value);
    }
}

} // namespace
