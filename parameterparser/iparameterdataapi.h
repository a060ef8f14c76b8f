// SPDX-License-Identifier: Apache-2.0
// IParameterDataAPI: what the live-tuning worker sees of a set manager.
#pragma once

#include "parameterparser/parameterexport.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/plist.h"

/// A set manager as the live-tuning worker uses it: its logging identity, its mode tables and
/// tree as text, and values by mode path and variable name. The worker calls these from its
/// command thread while camera threads use the same store.
class PARAMETERPARSER_API IParameterDataAPI : public IParameterLoggingAPI
{
public:
    ~IParameterDataAPI() override = default;

    /// The number of mode tables held.
    virtual unsigned int GetModeTableCount() = 0;

    /// Appends each table's name (borrowed; null for an unnamed table) in table order; false
    /// when there are no tables.
    virtual bool GetModeTableNames(PList<char const*>& names) = 0;

    /// Writes the values of variable ("<module>" or "<module>.<path>") in the mode of modePath
    /// as "name=value" items joined by ";" into result, cut at resultLength. subVariables, if
    /// not null, is a comma list of names under variable to read instead of all of it. False
    /// when the module or a variable is not found; what was read before stays in result.
    virtual bool GetValue(unsigned char modeTableIndex, char const* modePath, char const* variable,
                          char const* subVariables, char* result, unsigned int resultLength) = 0;

    /// Sets variableName below variableBase in the mode of modePath from its text form. False
    /// when the module or the variable is not found or the value is refused.
    virtual bool SetValue(unsigned char modeTableIndex, char const* modePath,
                          char const* variableBase, char const* variableName,
                          char const* value) = 0;

    /// Appends the description of variable's members (its module's top level when variable has
    /// no path) to info. False when the module or the variable is not found.
    virtual bool GetInfo(unsigned char modeTableIndex, char const* modePath, char const* variable,
                         PList<ParameterParserInfo>& info) = 0;

    /// Writes the named paths of the table's active branches, joined by ";", into result.
    virtual void GetActiveModes(unsigned char modeTableIndex, char* result,
                                unsigned int resultLength) = 0;

    /// Writes the named children of the node at modePath, joined by ",", with a terminator into
    /// result; returns the bytes written, terminator included.
    virtual unsigned int GetChildModes(unsigned char modeTableIndex, char const* modePath,
                                       unsigned char* result, unsigned int resultLength) = 0;

    /// Turns a named mode path into its numeric form in result, cut at resultLength.
    virtual void GetModeShorthand(char const* modes, char* result, unsigned int resultLength) = 0;
};
