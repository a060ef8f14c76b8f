// SPDX-License-Identifier: Apache-2.0
// ParameterParserInfo: a variable's description for a tool.
#include "parameterparser/parameterparserinfo.h"

#include "platform/vornosutils.h"

#include "parameterparser/parameterutils.h"

ParameterParserInfo::ParameterParserInfo()
    : name(nullptr), type(nullptr), value{}, isArray(false), flag(false), count(0)
{
}

ParameterParserInfo::ParameterParserInfo(char const* variableName, char const* typeName)
    : name(variableName), type(typeName), value{}, isArray(false), flag(false), count(0)
{
}

ParameterParserInfo::ParameterParserInfo(char const* variableName, char const* typeName,
                                         double number, unsigned int precision)
    : ParameterParserInfo(variableName, typeName)
{
    bool ok = false;
    ParameterUtils::DoubleToString(number, value, ValueLength, precision, ok);
}

ParameterParserInfo::ParameterParserInfo(char const* variableName, char const* typeName,
                                         char const* text)
    : ParameterParserInfo(variableName, typeName)
{
    Vorn::OsUtils::StrLCpy(value, text, ValueLength);
}

ParameterParserInfo::ParameterParserInfo(char const* variableName, char const* typeName, bool array,
                                         bool second, unsigned int elements)
    : name(variableName), type(typeName), value{}, isArray(array), flag(second), count(elements)
{
}
