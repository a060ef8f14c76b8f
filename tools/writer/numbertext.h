// SPDX-License-Identifier: Apache-2.0
// ParseNumber: the one rule by which a member's value text is read, for packing and for setting.
#pragma once

#include <cstdint>
#include <string>

namespace TuningWriter {

/// What a member holds, as far as the form and range of its text go.
enum class NumberKind
{
    Int8,
    UInt8,
    Int16,
    UInt16,
    Int32,
    UInt32,
    Int64,
    UInt64,
    Float,
    Double,
};

/// A number read from text: integer for signed kinds, unsignedInteger for unsigned ones, real
/// for Float and Double.
struct NumberValue
{
    int64_t integer = 0;
    uint64_t unsignedInteger = 0;
    double real = 0;
};

/// Reads text as a number of kind. Integers are decimal, or hexadecimal behind "0x", with a sign
/// only where the kind has one, and must lie in the kind's range; Float and Double take a finite
/// number within their range. False with reason set, naming the kind and its limits
/// ("4294967296 is outside UInt32 (0 to 4294967295)", "1.7 is not an integer (UInt32)",
/// "nan is not a finite number (Float)"); nothing is ever wrapped or clamped.
[[nodiscard]] bool ParseNumber(NumberKind kind, std::string const& text, NumberValue& value,
                               std::string& reason);

/// The kind of a type name that value access reports ("UInt32", "Float"; "Boolean" and "Enum"
/// as their 32-bit storage). False for names that hold no number ("String", "Structure").
[[nodiscard]] bool NumberKindOfTypeName(std::string const& typeName, NumberKind& kind);

} // namespace TuningWriter
