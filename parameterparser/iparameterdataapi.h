// SPDX-License-Identifier: Apache-2.0
// IParameterDataAPI: what the live-tuning worker sees of a set manager.
#pragma once

#include "parameterparser/parameterexport.h"
#include "parameterparser/parameterlogging.h"

/// A set manager as the live-tuning worker uses it: a logging identity for now, with the mode and
/// value operations joining behind the logging slots.
class PARAMETERPARSER_API IParameterDataAPI : public IParameterLoggingAPI
{
public:
    ~IParameterDataAPI() override = default;
};
