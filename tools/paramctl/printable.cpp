// SPDX-License-Identifier: Apache-2.0
// Printable: escaping control characters and invalid UTF-8.
#include "tools/paramctl/printable.h"

#include <cctype>
#include <cstdio>

namespace ParamCtl {

namespace {

// Length of the valid UTF-8 sequence at text[at], 0 when the bytes there form none. Overlong
// forms, surrogates and code points above U+10FFFF are not valid.
size_t Utf8Length(std::string const& text, size_t at)
{
    auto byte = [&text](size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned char const lead = byte(at);
    size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        low = lead == 0xE0 ? 0xA0 : 0x80;
        high = lead == 0xED ? 0x9F : 0xBF;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        low = lead == 0xF0 ? 0x90 : 0x80;
        high = lead == 0xF4 ? 0x8F : 0xBF;
    } else {
        return 0;
    }
    if (at + length > text.size())
        return 0;
    // Only the second byte has a narrowed range; the others are plain continuation bytes.
    if (byte(at + 1) < low || byte(at + 1) > high)
        return 0;
    for (size_t i = 2; i < length; ++i) {
        if (byte(at + i) < 0x80 || byte(at + i) > 0xBF)
            return 0;
    }
    return length;
}

// U+0080 to U+009F are valid UTF-8 but control characters: a terminal takes U+009B as the start
// of an escape sequence.
bool IsC1Control(std::string const& text, size_t at)
{
    return static_cast<unsigned char>(text[at]) == 0xC2 && at + 1 < text.size() &&
           static_cast<unsigned char>(text[at + 1]) < 0xA0;
}

} // namespace

std::string Printable(std::string const& text)
{
    std::string out;
    out.reserve(text.size());
    size_t at = 0;
    while (at < text.size()) {
        auto const byte = static_cast<unsigned char>(text[at]);
        if (byte == '\\') {
            out += "\\\\";
            ++at;
        } else if (byte >= 0x20 && byte < 0x7F) {
            out += static_cast<char>(byte);
            ++at;
        } else if (size_t const length = byte >= 0x80 ? Utf8Length(text, at) : 0;
                   length != 0 && !IsC1Control(text, at)) {
            out.append(text, at, length);
            at += length;
        } else {
            char escaped[5];
            std::snprintf(escaped, sizeof(escaped), "\\x%02x", byte);
            out += escaped;
            ++at;
        }
    }
    return out;
}

bool FromPrintable(std::string const& text, std::string& bytes)
{
    bytes.clear();
    bytes.reserve(text.size());
    for (size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\') {
            bytes += text[at];
            continue;
        }
        if (at + 1 < text.size() && text[at + 1] == '\\') {
            bytes += '\\';
            ++at;
            continue;
        }
        if (at + 3 >= text.size() || text[at + 1] != 'x')
            return false;
        unsigned int byte = 0;
        for (size_t i = at + 2; i < at + 4; ++i) {
            auto const digit = static_cast<unsigned char>(text[i]);
            if (!std::isxdigit(digit))
                return false;
            byte = byte * 16 + static_cast<unsigned int>(
                                   std::isdigit(digit) ? digit - '0' : (digit | 0x20) - 'a' + 10);
        }
        bytes += static_cast<char>(byte);
        at += 3;
    }
    return true;
}

} // namespace ParamCtl
