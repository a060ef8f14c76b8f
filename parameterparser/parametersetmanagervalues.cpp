// SPDX-License-Identifier: Apache-2.0
// ParameterSetManager: values by name, the text surface the live tuning worker uses.
#include "parameterparser/parametersetmanager.h"

bool ParameterSetManager::GetValue(unsigned char, char const*, char const*, char const*, char*,
                                   unsigned int)
{
    return false; // Value access arrives with module lookup; until then no variable is found.
}

bool ParameterSetManager::SetValue(unsigned char, char const*, char const*, char const*,
                                   char const*)
{
    return false; // Value access arrives with module lookup; until then no variable is found.
}

bool ParameterSetManager::GetInfo(unsigned char, char const*, char const*,
                                  PList<ParameterParserInfo>&)
{
    return false; // Value access arrives with module lookup; until then no variable is found.
}
