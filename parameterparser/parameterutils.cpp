// SPDX-License-Identifier: Apache-2.0
// ParameterUtils: bounded byte reads and locale-free text and number conversion.
#include "parameterparser/parameterutils.h"

#include <cmath>
#include <cstring>

#include "platform/vornalloc.h"
#include "platform/vornosutils.h"

#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterlogging.h"

namespace {

// A parsed index outside what an unsigned int holds (negative, huge, not a number) becomes an
// index no array has, instead of a conversion with undefined behaviour.
unsigned int TruncateToIndex(double value)
{
    if (value > -1.0 && value < 4294967296.0)
        return static_cast<unsigned int>(value);
    return 0xFFFFFFFFu;
}

// Moves the digits at text[start..end) one place up and puts a '1' at start: the carry of a
// rounding that ran out of digits.
void ShiftInLeadingOne(char* text, unsigned int start, unsigned int end)
{
    std::memmove(text + start + 1, text + start, end - start);
    text[start] = '1';
}

// One digit at the current power: the quotient truncated, then the rest by a fused multiply-add.
// Rounding in the quotient can overshoot by one, which would leave a negative rest; step back a
// digit when it does.
double NextDigit(double rest, double place)
{
    double digit = std::trunc(rest / place);
    if (digit > 9.0)
        digit = 9.0;
    if (digit < 0.0)
        digit = 0.0;
    if (digit > 0.0 && std::fma(-digit, place, rest) < 0.0)
        digit -= 1.0;
    return digit;
}

// Writes the digit of value at power to text[pos], takes it off value and moves power down.
void PutDigit(char* text, unsigned int& pos, double& value, double& power)
{
    double const digit = NextDigit(value, power);
    value = std::fma(-digit, power, value);
    text[pos++] = static_cast<char>('0' + static_cast<int>(digit));
    power /= 10.0;
}

// Rounds the digits text[digitStart..pos) up by one in the last place, carrying over nines and
// across the point at pointPos. When every digit was a nine a leading '1' moves in front; without
// room for it (length) the last character gives way. True when that lost a digit.
bool RoundUp(char* text, unsigned int digitStart, unsigned int& pos, unsigned int& pointPos,
             unsigned int length)
{
    unsigned int i = pos;
    while (i > digitStart) {
        --i;
        if (text[i] == '.')
            continue;
        if (text[i] != '9') {
            ++text[i];
            return false;
        }
        text[i] = '0';
    }
    ++pointPos;
    if (pos + 1 < length) {
        ShiftInLeadingOne(text, digitStart, pos);
        ++pos;
        return false;
    }
    ShiftInLeadingOne(text, digitStart, pos - 1);
    return true;
}

// Drops trailing zeros of the fraction behind the point at pointPos, keeping one digit; a bare
// point without room for that digit says nothing and goes too.
void TrimFraction(char* text, unsigned int& pos, unsigned int pointPos, unsigned int length)
{
    while (pos > pointPos + 1 && text[pos - 1] == '0')
        --pos;
    if (pos == pointPos + 1) {
        if (pos + 1 < length)
            text[pos++] = '0';
        else
            pos = pointPos;
    }
}

} // namespace

char* ParameterUtils::ReadString(unsigned char* buffer, unsigned int length, unsigned int& pos,
                                 unsigned int maximum, unsigned char alignment)
{
    if (buffer == nullptr)
        return nullptr;
    // Strings stand in fixed-size or counted fields: the field's size moves the cursor, not the
    // length of the text found in it.
    ParameterByteReader reader(buffer, length, alignment, nullptr, pos);
    char* text = reader.ReadTextField(maximum);
    pos = reader.Position();
    return text;
}

bool ParameterUtils::ReadString(char* value, unsigned char* buffer, unsigned int length,
                                unsigned int& pos, unsigned int size, unsigned int count,
                                unsigned char alignment, IParameterLoggingAPI* log)
{
    ParameterByteReader reader(buffer, length, alignment, log, pos);
    // Never more than the caller's array holds, whatever count the file claims.
    reader.CopyField(reinterpret_cast<unsigned char*>(value), size, count);
    pos = reader.Position();
    if (value == nullptr) {
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "ReadBuffer failed to allocate space for a string of %d length\n",
                                static_cast<int>(count));
        return false;
    }
    // The terminator goes at the end of the caller's array, not behind the copied characters:
    // fixed fields are full-width and the array is sized for them.
    if (size > 0)
        value[size - 1] = '\0';
    return true;
}

bool ParameterUtils::ReadBuffer(unsigned char* value, unsigned char const* buffer,
                                unsigned int length, unsigned int& pos, unsigned int count,
                                unsigned char alignment, IParameterLoggingAPI* log)
{
    ParameterByteReader reader(buffer, length, alignment, log, pos);
    bool const read = reader.ReadBlock(value, count);
    pos = reader.Position();
    return read;
}

bool ParameterUtils::WriteString(char const* value, unsigned char* buffer, unsigned int length,
                                 unsigned int& pos, bool addNull, IParameterLoggingAPI* log)
{
    char const* text = value != nullptr ? value : "";
    size_t const characters = std::strlen(text);
    // The text and its NUL must stay strictly below length; 64-bit sums cannot wrap here.
    bool const fits = buffer != nullptr && static_cast<unsigned long>(length) >
                                               static_cast<unsigned long>(pos) + characters + 1;
    if (!fits) {
        if (value == nullptr)
            ParameterLogging::Write(log, ParameterLogging::LogError,
                                    "Insufficient space in buffer to write string\n");
        else
            ParameterLogging::Write(log, ParameterLogging::LogError,
                                    "Insufficient space in buffer to write string: %s\n", value);
        return false;
    }
    Vorn::OsUtils::StrLCpy(reinterpret_cast<char*>(buffer + pos), text, length - pos);
    pos += static_cast<unsigned int>(characters);
    // Without the NUL the cursor stays on it, so the next write continues the text.
    if (addNull)
        ++pos;
    return true;
}

int ParameterUtils::GetStringPos(char const* text, char character)
{
    if (text == nullptr)
        return -1;
    for (int i = 0; text[i] != '\0'; ++i) {
        if (text[i] == character)
            return i;
    }
    return -1;
}

unsigned int ParameterUtils::GetSubString(char const* text, char delimiter, char* result,
                                          unsigned int resultLength)
{
    if (text == nullptr || result == nullptr || resultLength == 0)
        return 0;
    unsigned int copied = 0;
    while (copied + 1 < resultLength && text[copied] != '\0' && text[copied] != delimiter) {
        result[copied] = text[copied];
        ++copied;
    }
    result[copied] = '\0';
    return copied;
}

double ParameterUtils::StringToDouble(char const* text, bool& ok)
{
    ok = false;
    if (text == nullptr || text[0] == '\0')
        return 0.0;

    int const length = static_cast<int>(std::strlen(text));
    int const minus = GetStringPos(text, '-');
    int const point = GetStringPos(text, '.');
    // Whatever stands ahead of a '-' is ignored: the digits start behind it.
    int const start = minus >= 0 ? minus + 1 : 0;
    double weight = std::pow(10.0, (point >= 0 ? point : length) - 1 - start);

    ok = true;
    double value = 0.0;
    bool seenPoint = false;
    for (int i = start; i < length; ++i) {
        char const c = text[i];
        if (c == '.') {
            if (seenPoint) {
                ok = false;
                return 0.0;
            }
            seenPoint = true;
        } else if (c >= '0' && c <= '9') {
            value = std::fma(static_cast<double>(c - '0'), weight, value);
            weight /= 10.0;
        } else {
            ok = false;
            return 0.0;
        }
    }
    return minus >= 0 ? -value : value;
}

unsigned int ParameterUtils::GetVariable(char const* path, char* name, unsigned int& index,
                                         unsigned long nameLength)
{
    char component[129];
    unsigned int const consumed = GetSubString(path, '.', component, sizeof(component));
    if (consumed == 0) {
        if (name != nullptr && nameLength > 0)
            name[0] = '\0';
        return 0;
    }

    int const bracket = GetStringPos(component, '[');
    if (bracket >= 0) {
        if (component[bracket + 1] != '\0') {
            char indexText[10];
            if (GetSubString(component + bracket + 1, ']', indexText, sizeof(indexText)) > 0) {
                // A malformed index is not reported here: it reads as whatever number its
                // digits give, and the caller's bounds check rejects it.
                bool ok = false;
                index = TruncateToIndex(StringToDouble(indexText, ok));
            }
        }
        component[bracket] = '\0';
    }
    if (name != nullptr)
        Vorn::OsUtils::StrLCpy(name, component, nameLength);
    return path[consumed] == '.' ? consumed + 1 : consumed;
}

unsigned int ParameterUtils::DoubleToString(double value, char* text, unsigned int length,
                                            unsigned int precision, bool& ok)
{
    ok = false;
    if (text == nullptr || length == 0)
        return 0;

    unsigned int pos = 0;
    bool const negative = value < 0.0;
    if (negative) {
        if (length >= 2)
            text[pos++] = '-';
        value = -value;
    }
    // Room for nothing but the sign or the terminator: nothing more can be said.
    if (pos + 1 >= length) {
        text[pos] = '\0';
        return pos;
    }
    unsigned int const digitStart = pos;

    // The largest power of ten not above the value, at least 1. An infinite or undefined value
    // has no integer part that could ever fit.
    double power = 1.0;
    unsigned int integerDigits = 1;
    bool const finite = std::isfinite(value);
    if (finite) {
        while (power * 10.0 <= value && std::isfinite(power * 10.0)) {
            power *= 10.0;
            ++integerDigits;
        }
    }
    if (!finite || pos + integerDigits + 1 > length) {
        if (!negative)
            text[pos++] = '0';
        text[pos] = '\0';
        return pos;
    }

    for (unsigned int i = 0; i < integerDigits; ++i)
        PutDigit(text, pos, value, power);

    // A point needs room behind it for one digit and the terminator.
    unsigned int pointPos = 0;
    bool const point = precision != 0 && pos + 3 <= length;
    if (point) {
        pointPos = pos;
        text[pos++] = '.';
        for (unsigned int fraction = 0; fraction < precision && value != 0.0 && pos + 1 < length;
             ++fraction)
            PutDigit(text, pos, value, power);
    }
    // Round half up.
    bool lostDigits = false;
    if (point && value != 0.0 && NextDigit(value, power) >= 5.0)
        lostDigits = RoundUp(text, digitStart, pos, pointPos, length);
    if (point && pointPos < pos)
        TrimFraction(text, pos, pointPos, length);

    text[pos] = '\0';
    ok = !lostDigits && value <= 1.0;
    return pos;
}
