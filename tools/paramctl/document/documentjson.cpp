// SPDX-License-Identifier: Apache-2.0
// Conversions shared by the fields of a tuning file document.
#include "tools/paramctl/document/documentjson.h"

#include <cctype>
#include <cstdio>

namespace ParamCtl {

namespace {

int HexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

bool IsIdentifier(std::string const& name)
{
    if (name.empty() || !(std::isalpha(static_cast<unsigned char>(name[0])) || name[0] == '_'))
        return false;
    for (char c : name) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_')
            return false;
    }
    return true;
}

std::string StringField(Json const& object, char const* key)
{
    auto const found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

std::string Hex64(uint64_t value)
{
    char text[24];
    std::snprintf(text, sizeof(text), "0x%016llx", static_cast<unsigned long long>(value));
    return text;
}

std::string HexBytes(unsigned char const* data, size_t size)
{
    static char const digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * size);
    for (size_t i = 0; i < size; ++i) {
        text += digits[data[i] >> 4];
        text += digits[data[i] & 0xF];
    }
    return text;
}

bool BytesOfHex(std::string const& text, std::vector<uint8_t>& bytes)
{
    if (text.size() % 2 != 0)
        return false;
    bytes.clear();
    bytes.reserve(text.size() / 2);
    for (size_t i = 0; i < text.size(); i += 2) {
        int const high = HexDigit(text[i]);
        int const low = HexDigit(text[i + 1]);
        if (high < 0 || low < 0)
            return false;
        bytes.push_back(static_cast<uint8_t>(high * 16 + low));
    }
    return true;
}

bool UnsignedOf(Json const& value, uint64_t& number)
{
    if (value.is_number_unsigned()) {
        number = value.get<uint64_t>();
        return true;
    }
    if (value.is_number_integer()) {
        if (value.get<int64_t>() < 0)
            return false;
        number = static_cast<uint64_t>(value.get<int64_t>());
        return true;
    }
    if (!value.is_string())
        return false;
    std::string const& text = value.get_ref<std::string const&>();
    if (text.size() < 3 || text.size() > 18 || text[0] != '0' || (text[1] != 'x' && text[1] != 'X'))
        return false;
    number = 0;
    for (size_t i = 2; i < text.size(); ++i) {
        int const digit = HexDigit(text[i]);
        if (digit < 0)
            return false;
        number = number * 16 + static_cast<uint64_t>(digit);
    }
    return true;
}

} // namespace ParamCtl
