// SPDX-License-Identifier: Apache-2.0
// Printable: what of a file's text reaches a terminal or a JSON document as it is.
#include "tools/paramctl/printable.h"

#include <string>

#include <gtest/gtest.h>

namespace {

TEST(PrintableTest, KeepsTextAndEscapesEveryOtherByte)
{
    struct Case
    {
        std::string text;
        std::string printed;
    };
    Case const cases[] = {
        {"plain text 123", "plain text 123"},
        {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\xb7", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\xb7"},
        {"\x1b[31m", "\\x1b[31m"},
        {"tab\tnew\nline\x7f", "tab\\x09new\\x0aline\\x7f"},
        {"back\\slash", "back\\\\slash"},
        {"\xc2\x9b"
         "2J",
         "\\xc2\\x9b2J"},                             // U+009B starts an escape sequence too
        {"\xc0\xaf", "\\xc0\\xaf"},                   // overlong "/"
        {"\xed\xa0\x80", "\\xed\\xa0\\x80"},          // a surrogate
        {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"}, // above U+10FFFF
        {"\xe2\x82", "\\xe2\\x82"},                   // cut short at the end
        {"\xff\xc3\x28", "\\xff\\xc3("},
        {std::string("a\0b", 3), "a\\x00b"},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.printed);
        EXPECT_EQ(ParamCtl::Printable(test.text), test.printed);
    }
}

} // namespace
