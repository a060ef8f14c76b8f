// SPDX-License-Identifier: Apache-2.0
// GetParameterParserVersion: the library's version at run time.
#include "parameterparser/parameterparserversion.h"

char const* GetParameterParserVersion()
{
    return PARAMETERPARSER_VERSION_STRING;
}
