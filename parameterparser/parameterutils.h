// SPDX-License-Identifier: Apache-2.0
// ParameterUtils: bounded byte reads and locale-free text and number conversion.
#pragma once

#include "parameterparser/parameterexport.h"

class IParameterLoggingAPI;

/// Bytes a field of `width` bytes occupies at the file's alignment: the larger of the two.
inline unsigned int FieldStep(unsigned int width, unsigned char alignment)
{
    return width > alignment ? width : (alignment == 0 ? 1u : alignment);
}

/// count rounded up to a multiple of alignment (alignment 0 or 1 leaves it as it is).
inline unsigned int AlignUp(unsigned int count, unsigned char alignment)
{
    if (alignment <= 1)
        return count;
    unsigned int const remainder = count % alignment;
    return remainder == 0 ? count : count + (alignment - remainder);
}

/// Static helpers shared by every reader and producer of text. All reads are bounded by length,
/// and every read moves pos on by the full requested size rounded up to the alignment, whether or
/// not the bytes were there.
class PARAMETERPARSER_API ParameterUtils
{
public:
    /// New NUL-terminated string from the text at pos (at most maximum characters, never past
    /// length). Null buffer: null, pos unchanged. maximum 0: "", pos unchanged. Otherwise pos
    /// moves on by maximum rounded. The caller frees the result with VornFree.
    static char* ReadString(unsigned char* buffer, unsigned int length, unsigned int& pos,
                            unsigned int maximum, unsigned char alignment);

    /// Copies the lesser of count and the bytes left into value and puts a NUL at size - 1. A null
    /// value logs an error. pos moves on by count rounded. Returns whether value was there.
    static bool ReadString(char* value, unsigned char* buffer, unsigned int length,
                           unsigned int& pos, unsigned int size, unsigned int count,
                           unsigned char alignment, IParameterLoggingAPI* log);

    /// Copies count bytes at pos into value. Null buffer or value: error, pos unchanged, true only
    /// for count 0. A short buffer copies what is there, logs, and returns false. pos moves on by
    /// count rounded.
    static bool ReadBuffer(unsigned char* value, unsigned char const* buffer, unsigned int length,
                           unsigned int& pos, unsigned int count, unsigned char alignment,
                           IParameterLoggingAPI* log);

    /// Writes value (null: "") at pos if it and its NUL fit below length; pos moves on by its
    /// length, and one more if addNull. Logs and returns false when it does not fit.
    static bool WriteString(char const* value, unsigned char* buffer, unsigned int length,
                            unsigned int& pos, bool addNull, IParameterLoggingAPI* log);

    /// First index of character in text; -1 if none or text is null.
    static int GetStringPos(char const* text, char character);

    /// Copies text up to delimiter (not included) or its end, at most resultLength - 1
    /// characters, and terminates. Returns the number of characters copied.
    static unsigned int GetSubString(char const* text, char delimiter, char* result,
                                     unsigned int resultLength);

    /// Parses an optional sign, digits and one point (no exponent, no locale). ok tells whether
    /// the text was a number; a non-number gives 0.
    static double StringToDouble(char const* text, bool& ok);

    /// Takes the first component of a dotted path, "name" or "name[index]": name gets the name,
    /// index the index when one is given. Returns the characters consumed, including a "." that
    /// follows.
    static unsigned int GetVariable(char const* path, char* name, unsigned int& index,
                                    unsigned long nameLength);

    /// Formats value with at most precision digits behind the point, rounded half up, trailing
    /// zeros stripped to one digit. Returns the characters written; ok is false when integer
    /// digits were lost.
    static unsigned int DoubleToString(double value, char* text, unsigned int length,
                                       unsigned int precision, bool& ok);
};
