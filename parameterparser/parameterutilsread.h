// SPDX-License-Identifier: Apache-2.0
// Template definitions of the typed number reads of ParameterUtils, for the units that
// instantiate them (the entry reader, and generated code for its enumerations).
#pragma once

#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "platform/vornalloc.h"

#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/parameterutils.h"

namespace ParameterReadDetail {

/// How a number of the file is to be taken before it is converted.
enum class SourceKind
{
    Signed,
    Unsigned,
    Real,
};

/// One number of the file, widened.
struct SourceValue
{
    SourceKind kind;
    int64_t signedValue;
    uint64_t unsignedValue;
    double realValue;
};

inline bool IsNumberCode(uint32_t code)
{
    return code >= TypeInt8 && code <= TypeUIntLike2;
}

inline bool HasFlag(ParameterDefinitionElementInfo const& info, uint16_t flag)
{
    return (info.Flags & flag) != 0;
}

/// TypeIntLike is signed in arrays and in reads into integers, but unsigned when a single value
/// goes into a float or a double: intLikeUnsigned selects the latter.
inline SourceKind CodeKind(uint32_t code, bool intLikeUnsigned)
{
    switch (code) {
    case TypeInt8:
    case TypeInt16:
    case TypeInt32:
    case TypeInt64:
        return SourceKind::Signed;
    case TypeIntLike:
        return intLikeUnsigned ? SourceKind::Unsigned : SourceKind::Signed;
    case TypeFloat:
    case TypeDouble:
        return SourceKind::Real;
    default:
        return SourceKind::Unsigned;
    }
}

/// Codes whose numbers have T's very form, so that their bytes are T's bytes.
template <typename T> bool IsDirectCode(uint32_t code)
{
    if constexpr (std::is_same_v<T, signed char>)
        return code == TypeInt8;
    else if constexpr (std::is_same_v<T, unsigned char>)
        return code == TypeUInt8 || code == TypeByteLike;
    else if constexpr (std::is_same_v<T, short>)
        return code == TypeInt16;
    else if constexpr (std::is_same_v<T, unsigned short>)
        return code == TypeUInt16 || code == TypeShortLike;
    else if constexpr (std::is_same_v<T, int>)
        return code == TypeInt32 || code == TypeIntLike;
    else if constexpr (std::is_same_v<T, unsigned int>)
        return code == TypeUInt32 || code == TypeUIntLike || code == TypeUIntLike2;
    else if constexpr (std::is_same_v<T, long>)
        return code == TypeInt64;
    else if constexpr (std::is_same_v<T, unsigned long>)
        return code == TypeUInt64 || code == TypeLongLike;
    else if constexpr (std::is_same_v<T, float>)
        return code == TypeFloat;
    else if constexpr (std::is_same_v<T, double>)
        return code == TypeDouble;
    else
        return false;
}

/// True when the element's numbers can be copied into T unchanged. ElementFourByte marks four-byte
/// floats, which only a float takes as they are.
template <typename T> bool IsDirect(ParameterDefinitionElementInfo const& info)
{
    bool const fourByte = HasFlag(info, ElementFourByte);
    if constexpr (std::is_same_v<T, float>)
        return fourByte || info.Type == TypeFloat;
    else
        return !fourByte && IsDirectCode<T>(info.Type);
}

/// The number of width bytes (little-endian) at bytes.
inline SourceValue Decode(unsigned char const* bytes, unsigned int width, SourceKind kind)
{
    uint64_t raw = 0;
    for (unsigned int i = 0; i < width; ++i)
        raw |= static_cast<uint64_t>(bytes[i]) << (8 * i);
    SourceValue value{kind, 0, raw, 0.0};
    if (kind == SourceKind::Signed) {
        // Sign-extend from the file's width.
        unsigned int const unused = 64 - 8 * width;
        value.signedValue = static_cast<int64_t>(raw << unused) >> unused;
    } else if (kind == SourceKind::Real) {
        if (width == 4) {
            float single;
            uint32_t const bits = static_cast<uint32_t>(raw);
            std::memcpy(&single, &bits, sizeof(single));
            value.realValue = single;
        } else {
            std::memcpy(&value.realValue, &raw, sizeof(value.realValue));
        }
    }
    return value;
}

/// A floating value truncated toward zero into integer type U, saturating at U's range; an
/// undefined value becomes 0.
template <typename U> U SaturateFromReal(double value)
{
    if (value != value)
        return 0;
    // The limits as doubles round up for 64-bit types, so ">=" also catches the first value
    // that no U can hold.
    if (value <= static_cast<double>(std::numeric_limits<U>::lowest()))
        return std::numeric_limits<U>::lowest();
    if (value >= static_cast<double>(std::numeric_limits<U>::max()))
        return std::numeric_limits<U>::max();
    return static_cast<U>(value);
}

/// A number of the file as T: integers are sign- or zero-extended or cut (two's complement
/// wrap), floating values truncated with saturation; floating targets take the value as it is.
template <typename T> T ConvertTo(SourceValue const& value)
{
    if constexpr (std::is_enum_v<T>) {
        return static_cast<T>(ConvertTo<std::underlying_type_t<T>>(value));
    } else if constexpr (std::is_floating_point_v<T>) {
        switch (value.kind) {
        case SourceKind::Signed:
            return static_cast<T>(value.signedValue);
        case SourceKind::Unsigned:
            return static_cast<T>(value.unsignedValue);
        default:
            return static_cast<T>(value.realValue);
        }
    } else {
        using Unsigned = std::make_unsigned_t<T>;
        switch (value.kind) {
        case SourceKind::Signed:
            return static_cast<T>(static_cast<Unsigned>(value.signedValue));
        case SourceKind::Unsigned:
            return static_cast<T>(static_cast<Unsigned>(value.unsignedValue));
        default:
            return SaturateFromReal<T>(value.realValue);
        }
    }
}

/// Bytes of count elements of width bytes, capped so that the sum cannot wrap: a request that
/// large cannot fit in any entry and fails as a short read.
inline unsigned int BlockBytes(unsigned int count, unsigned int width)
{
    uint64_t const bytes = static_cast<uint64_t>(count) * width;
    return bytes > 0x7FFFFFFFu ? 0x7FFFFFFFu : static_cast<unsigned int>(bytes);
}

/// Reads count numbers of width bytes as one block through reader into a temporary array and
/// converts each into values. Returns the block read's result; false if the temporary array
/// cannot be had.
template <typename T>
bool ReadConverted(T* values, ParameterByteReader& reader, unsigned int count, unsigned int width,
                   SourceKind kind)
{
    unsigned int const bytes = BlockBytes(count, width);
    auto* temporary = static_cast<unsigned char*>(VornCalloc(bytes, VornTagAllocData));
    if (temporary == nullptr)
        return false;
    bool const ok = reader.ReadBlock(temporary, bytes);
    // Only what the (possibly capped) block holds is converted; values past it stay as they are.
    unsigned int const converted = width != 0 && bytes / width < count ? bytes / width : count;
    for (unsigned int i = 0; i < converted; ++i)
        values[i] = ConvertTo<T>(Decode(temporary + static_cast<size_t>(i) * width, width, kind));
    VornFree(temporary, VornTagRelease);
    return ok;
}

/// The logic shared by ReadArray and ReadArrayNoFloat, reading count values through reader. With
/// noFloat (enumerations) the result of a conversion is that of the byte read; otherwise a
/// conversion between integer widths fails the read though values hold the converted numbers.
template <typename T>
bool ReadArrayCommon(T* values, ParameterDefinitionElement* element, ParameterByteReader& reader,
                     unsigned int count, bool noFloat)
{
    ParameterDefinitionElementInfo const* info = element != nullptr ? element->Info : nullptr;
    bool direct = info == nullptr;
    if (!direct && !noFloat)
        direct = IsDirect<T>(*info);
    auto* bytes = reinterpret_cast<unsigned char*>(values);
    if (direct)
        return reader.ReadBlock(bytes, BlockBytes(count, sizeof(T)));

    uint32_t const code = info->Type;
    if (noFloat && HasFlag(*info, ElementFourByte))
        return reader.ReadBlock(bytes, BlockBytes(count, 4));
    if (!noFloat && (HasFlag(*info, ElementFourByte) || code == TypeFloat))
        return ReadConverted(values, reader, count, 4, SourceKind::Real);
    if (!noFloat && code == TypeDouble)
        return ReadConverted(values, reader, count, 8, SourceKind::Real);
    if (IsNumberCode(code)) {
        bool const ok =
            ReadConverted(values, reader, count, TypeCodeWidth(code), CodeKind(code, false));
        // Integers of another width are converted all the same, but reported as a failure: a
        // counted array is then dropped rather than shared with a schema it does not match.
        return noFloat ? ok : false;
    }
    ParameterLogging::Write(reader.Log(), ParameterLogging::LogError,
                            "%s: Invalid read type %u. XSD structure modified\n",
                            "ReadArrayNoFloat", static_cast<unsigned int>(code));
    return false;
}

/// Reads a number of width bytes (1, 2, 4 or 8) through reader; false after its message.
inline bool ReadWidth(ParameterByteReader& reader, unsigned int width, uint64_t& raw)
{
    uint8_t u8 = 0;
    uint16_t u16 = 0;
    uint32_t u32 = 0;
    bool ok = false;
    switch (width) {
    case 1:
        ok = reader.ReadU8(u8);
        raw = u8;
        break;
    case 2:
        ok = reader.ReadU16(u16);
        raw = u16;
        break;
    case 4:
        ok = reader.ReadU32(u32);
        raw = u32;
        break;
    default:
        ok = reader.ReadU64(raw);
        break;
    }
    return ok;
}

/// One value through reader, converted from the element's type code to T (see
/// ParameterUtils::Read).
template <typename T>
bool ReadValue(T& value, ParameterDefinitionElement* element, ParameterByteReader& reader)
{
    static_assert(sizeof(T) <= 8, "numbers are at most eight bytes wide");
    ParameterDefinitionElementInfo const* info = element != nullptr ? element->Info : nullptr;
    uint64_t raw = 0;
    if (info == nullptr || IsDirect<T>(*info)) {
        if (!ReadWidth(reader, sizeof(T), raw))
            return false;
        std::memcpy(&value, &raw, sizeof(T));
        return true;
    }
    if (!IsNumberCode(info->Type)) {
        ParameterLogging::Write(reader.Log(), ParameterLogging::LogError,
                                "%s: Invalid read type %u\n", "Read",
                                static_cast<unsigned int>(info->Type));
        return false;
    }
    // ElementFourByte stands for a four-byte float whatever the code, as in the array reads.
    bool const fourByte = HasFlag(*info, ElementFourByte);
    unsigned int const width = fourByte ? 4 : TypeCodeWidth(info->Type);
    SourceKind const kind =
        fourByte ? SourceKind::Real : CodeKind(info->Type, std::is_floating_point_v<T>);
    if (!ReadWidth(reader, width, raw)) {
        // A converted value that is not there reads as 0; the field is not failed for it.
        value = T();
        return true;
    }
    unsigned char bytes[8];
    std::memcpy(bytes, &raw, sizeof(bytes));
    value = ConvertTo<T>(Decode(bytes, width, kind));
    return true;
}

} // namespace ParameterReadDetail

template <typename T>
bool ParameterUtils::Read(T* value, ParameterDefinitionElement* element,
                          unsigned char const* buffer, unsigned int length, unsigned int& pos,
                          unsigned char alignment, IParameterLoggingAPI* log)
{
    if (value == nullptr)
        return false;
    ParameterByteReader reader(buffer, length, alignment, log, pos);
    bool const read = ParameterReadDetail::ReadValue(*value, element, reader);
    pos = reader.Position();
    return read;
}

template <typename T>
bool ParameterUtils::ReadArray(T* values, ParameterDefinitionElement* element,
                               unsigned char const* buffer, unsigned int length, unsigned int& pos,
                               unsigned int count, unsigned int alignment,
                               IParameterLoggingAPI* log)
{
    ParameterByteReader reader(buffer, length, static_cast<unsigned char>(alignment), log, pos);
    bool const read = ParameterReadDetail::ReadArrayCommon(values, element, reader, count, false);
    pos = reader.Position();
    return read;
}

template <typename T>
bool ParameterUtils::ReadArrayNoFloat(T* values, ParameterDefinitionElement* element,
                                      unsigned char const* buffer, unsigned int length,
                                      unsigned int& pos, unsigned int count, unsigned int alignment,
                                      IParameterLoggingAPI* log)
{
    static_assert(sizeof(T) == 4, "enumerations are four bytes in memory");
    ParameterByteReader reader(buffer, length, static_cast<unsigned char>(alignment), log, pos);
    bool const read = ParameterReadDetail::ReadArrayCommon(values, element, reader, count, true);
    pos = reader.Position();
    return read;
}
