// SPDX-License-Identifier: Apache-2.0
// ParameterUtils: bounded byte reads and locale-free text and number conversion.
#pragma once

#include "parameterparser/parameterexport.h"

class IParameterLoggingAPI;
class ParameterDefinitionElement;

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
    /// New NUL-terminated string (VornCalloc, data tag) from the text at pos: at most maximum
    /// characters, stopping at a NUL, never past length. Null buffer: null, pos unchanged.
    /// maximum 0: "", pos unchanged. Otherwise pos moves on by maximum rounded, whatever the
    /// text's length; null if memory runs out. The caller frees the result with VornFree.
    static char* ReadString(unsigned char* buffer, unsigned int length, unsigned int& pos,
                            unsigned int maximum, unsigned char alignment);

    /// Copies the lesser of count and the bytes left (never more than size) into value and puts
    /// a NUL at size - 1, not behind the copied characters. A null value logs "ReadBuffer failed
    /// to allocate space for a string of %d length" at error level and returns false. pos moves
    /// on by count rounded in either case.
    static bool ReadString(char* value, unsigned char* buffer, unsigned int length,
                           unsigned int& pos, unsigned int size, unsigned int count,
                           unsigned char alignment, IParameterLoggingAPI* log);

    /// Copies count bytes at pos into value. Null buffer or value: logs "ReadBuffer called with
    /// nullptr buffer" (or "value") at error level, pos unchanged, true only for count 0. A short
    /// buffer copies what is there, logs "ReadBuffer failed, read %d bytes, expected %d bytes" at
    /// error level and returns false. pos moves on by count rounded either way.
    static bool ReadBuffer(unsigned char* value, unsigned char const* buffer, unsigned int length,
                           unsigned int& pos, unsigned int count, unsigned char alignment,
                           IParameterLoggingAPI* log);

    /// Writes value (null: "") and a NUL at pos if they end strictly below length; pos moves on
    /// by its length, and one more if addNull (without it the next write continues the text).
    /// Otherwise logs "Insufficient space in buffer to write string" (with ": value" when value
    /// is set) at error level, writes nothing and returns false.
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

    /// Takes the first component of a dotted path, "name" or "name[index]", of at most 128
    /// characters: name gets the name (cut to nameLength), index the index when one is given
    /// (an index no unsigned int holds becomes 0xFFFFFFFF). Returns the characters consumed,
    /// including a "." that follows; an empty component gives 0.
    static unsigned int GetVariable(char const* path, char* name, unsigned int& index,
                                    unsigned long nameLength);

    /// Formats value with at most precision digits behind the point (none for precision 0),
    /// rounded half up, trailing zeros stripped to one digit, always terminated within length.
    /// Returns the characters written; ok is false when digits were lost: the integer part did
    /// not fit ("0", or "-" for a negative value), only the sign fitted, or a rounding carry
    /// pushed out the last digit.
    static unsigned int DoubleToString(double value, char* text, unsigned int length,
                                       unsigned int precision, bool& ok);

    // Typed reads of numbers against the file's element (definitions in
    // parameterparser/parameterutilsread.h, instances in parameterentryreader.cpp).

    /// One value at pos, converted from the element's type code to T; no element or no Info reads
    /// T's own width. Null value: false. A short read of T's own width logs the byte reader's
    /// message and gives false; a short read of a converted width stores 0 and gives true. A code
    /// that is no number logs "Read: Invalid read type %u" and gives false.
    template <typename T>
    static bool Read(T* value, ParameterDefinitionElement* element, unsigned char const* buffer,
                     unsigned int length, unsigned int& pos, unsigned char alignment,
                     IParameterLoggingAPI* log);

    /// count values at pos into values, read straight when the element's code is T's own and
    /// converted otherwise. False when the bytes were short, and also after converting from
    /// another integer width (callers drop such counted arrays). A code that is no number logs
    /// "ReadArrayNoFloat: Invalid read type %u. XSD structure modified" and gives false.
    template <typename T>
    static bool ReadArray(T* values, ParameterDefinitionElement* element,
                          unsigned char const* buffer, unsigned int length, unsigned int& pos,
                          unsigned int count, unsigned int alignment, IParameterLoggingAPI* log);

    /// ReadArray for enumerations (four bytes in memory): converted values are kept, and the
    /// result is that of the byte read.
    template <typename T>
    static bool ReadArrayNoFloat(T* values, ParameterDefinitionElement* element,
                                 unsigned char const* buffer, unsigned int length,
                                 unsigned int& pos, unsigned int count, unsigned int alignment,
                                 IParameterLoggingAPI* log);
};
