// SPDX-License-Identifier: Apache-2.0
// ParseNumber: range, integer-ness and finiteness of a value's text.
#include "tools/writer/numbertext.h"

#include <cctype>
#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "parameterparser/parameterclocale.h"

namespace TuningWriter {

namespace {

struct KindLimits
{
    char const* name;
    bool isSigned;
    bool isReal;
    long double minimum;
    long double maximum;
};

template <typename T> KindLimits IntegerLimits(char const* name)
{
    return {name, std::numeric_limits<T>::is_signed, false,
            static_cast<long double>(std::numeric_limits<T>::min()),
            static_cast<long double>(std::numeric_limits<T>::max())};
}

KindLimits LimitsOf(NumberKind kind)
{
    switch (kind) {
    case NumberKind::Int8:
        return IntegerLimits<int8_t>("Int8");
    case NumberKind::UInt8:
        return IntegerLimits<uint8_t>("UInt8");
    case NumberKind::Int16:
        return IntegerLimits<int16_t>("Int16");
    case NumberKind::UInt16:
        return IntegerLimits<uint16_t>("UInt16");
    case NumberKind::Int32:
        return IntegerLimits<int32_t>("Int32");
    case NumberKind::UInt32:
        return IntegerLimits<uint32_t>("UInt32");
    case NumberKind::Int64:
        return IntegerLimits<int64_t>("Int64");
    case NumberKind::UInt64:
        return IntegerLimits<uint64_t>("UInt64");
    case NumberKind::Float:
        return {"Float", true, true, -FLT_MAX, FLT_MAX};
    default:
        return {"Double", true, true, -DBL_MAX, DBL_MAX};
    }
}

std::string LimitText(KindLimits const& limits)
{
    char text[96];
    ParameterCLocaleScope const cLocale;
    if (limits.isReal)
        std::snprintf(text, sizeof(text), "%s (%.9Lg to %.9Lg)", limits.name, limits.minimum,
                      limits.maximum);
    else
        std::snprintf(text, sizeof(text), "%s (%.0Lf to %.0Lf)", limits.name, limits.minimum,
                      limits.maximum);
    return text;
}

bool ParseReal(KindLimits const& limits, std::string const& text, double& real, std::string& reason)
{
    // A description is written with a decimal point whatever locale the process runs in.
    ParameterCLocaleScope const cLocale;
    char* end = nullptr;
    errno = 0;
    real = std::strtod(text.c_str(), &end);
    // strtod passes over leading blanks; a value's text has none.
    if (end == text.c_str() || *end != '\0' || std::isspace(static_cast<unsigned char>(text[0]))) {
        reason = "'" + text + "' is not a number (" + limits.name + ")";
        return false;
    }
    // strtod gives an infinity both for "inf" and for a finite text beyond double.
    bool const overflow = errno == ERANGE && std::isinf(real);
    if (std::isnan(real) || (std::isinf(real) && !overflow)) {
        reason = "'" + text + "' is not a finite number (" + limits.name + ")";
        return false;
    }
    if (overflow || std::fabs(static_cast<long double>(real)) > limits.maximum) {
        reason = "'" + text + "' is outside " + LimitText(limits);
        return false;
    }
    return true;
}

} // namespace

bool ParseNumber(NumberKind kind, std::string const& text, NumberValue& value, std::string& reason)
{
    KindLimits const limits = LimitsOf(kind);
    if (text.empty()) {
        reason = std::string("an empty text is no value (") + limits.name + ")";
        return false;
    }
    if (limits.isReal)
        return ParseReal(limits, text, value.real, reason);

    size_t at = 0;
    bool const negative = text[0] == '-';
    if (text[0] == '-' || text[0] == '+')
        ++at;
    int base = 10;
    if (text.compare(at, 2, "0x") == 0 || text.compare(at, 2, "0X") == 0) {
        base = 16;
        at += 2;
    }
    // Digits only: strtoull alone would take blanks, a second sign, or an octal leading zero.
    bool digits = at < text.size();
    for (size_t i = at; i < text.size(); ++i)
        digits = digits && (base == 16 ? std::isxdigit(static_cast<unsigned char>(text[i])) != 0
                                       : std::isdigit(static_cast<unsigned char>(text[i])) != 0);
    if (!digits) {
        double real = 0;
        std::string ignored;
        bool const number = ParseReal(LimitsOf(NumberKind::Double), text, real, ignored);
        reason = "'" + text + "' is " + (number ? "not an integer (" : "not a number (") +
                 limits.name + ")";
        return false;
    }
    errno = 0;
    unsigned long long const magnitude = std::strtoull(text.c_str() + at, nullptr, base);
    bool const tooLarge = errno == ERANGE;
    long double const signedValue =
        negative ? -static_cast<long double>(magnitude) : static_cast<long double>(magnitude);
    if (tooLarge || signedValue < limits.minimum || signedValue > limits.maximum) {
        reason = "'" + text + "' is outside " + LimitText(limits);
        return false;
    }
    if (limits.isSigned)
        value.integer =
            negative ? static_cast<int64_t>(0 - magnitude) : static_cast<int64_t>(magnitude);
    else
        value.unsignedInteger = magnitude;
    return true;
}

bool NumberKindOfTypeName(std::string const& typeName, NumberKind& kind)
{
    static struct
    {
        char const* name;
        NumberKind kind;
    } const names[] = {
        {"Boolean", NumberKind::Int32}, {"Enum", NumberKind::UInt32},
        {"Int32", NumberKind::Int32},   {"Int64", NumberKind::Int64},
        {"UInt8", NumberKind::UInt8},   {"UInt16", NumberKind::UInt16},
        {"UInt32", NumberKind::UInt32}, {"UInt64", NumberKind::UInt64},
        {"Float", NumberKind::Float},   {"Double", NumberKind::Double},
    };
    for (auto const& entry : names) {
        if (typeName == entry.name) {
            kind = entry.kind;
            return true;
        }
    }
    return false;
}

} // namespace TuningWriter
