// SPDX-License-Identifier: Apache-2.0
// ParameterParserInfo: the record in which a module describes one of its variables to a tool.
#pragma once

#include "parameterparser/parameterexport.h"

/// One described variable: its name, its reported type, its value as text and, for an array, its
/// element count. A plain record held in a PList and copied bytewise; name and type are borrowed
/// (string literals of the module code), the value text is held inline.
class PARAMETERPARSER_API ParameterParserInfo
{
public:
    /// Room for the value text, terminator included.
    static constexpr unsigned int ValueLength = 1024;

    /// All zero: no name, no type, empty value.
    ParameterParserInfo();

    /// A variable with no value text of its own (a structure, a module).
    ParameterParserInfo(char const* variableName, char const* typeName);

    /// The value as DoubleToString writes it with the given precision (0 for whole numbers, 10
    /// for floats), cut to fit ValueLength.
    ParameterParserInfo(char const* variableName, char const* typeName, double number,
                        unsigned int precision);

    /// The value text copied and cut to fit ValueLength; null gives an empty value.
    ParameterParserInfo(char const* variableName, char const* typeName, char const* text);

    /// An array (or other counted variable) of count elements, with no value text.
    ParameterParserInfo(char const* variableName, char const* typeName, bool array, bool second,
                        unsigned int elements);

    char const* name;
    char const* type;
    char value[ValueLength];
    /// The variable is an array; count holds its element count.
    bool isArray;
    /// A second marker that also makes count meaningful; module code always leaves it false.
    bool flag;
    unsigned int count;
};
