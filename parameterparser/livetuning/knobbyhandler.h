// SPDX-License-Identifier: Apache-2.0
// KnobbyHandler: the host's optional callbacks for custom commands and trigger requests.
#pragma once

#include "parameterparser/parameterexport.h"

/// Installed by the host on the live tuning worker (ParameterSetManager::SetKnobbyHandler). Both
/// operations run on the worker's command thread.
class PARAMETERPARSER_API KnobbyHandler
{
public:
    /// Answers a custom command. payload holds payloadLength opaque bytes from the client; the
    /// handler writes at most answerCapacity bytes to answer, sets answerLength and returns the
    /// result code that goes back to the client.
    virtual unsigned short Custom(unsigned char const* payload, unsigned int payloadLength,
                                  unsigned short answerCapacity, unsigned char* answer,
                                  unsigned short& answerLength) = 0;

    /// A client asked for the trigger values of module (name hash moduleHash) in modePath and
    /// pipeline. The host answers per instance through SetTriggerValues, now (the worker's value
    /// mutex is held and may be re-entered from this thread) or later.
    virtual void TriggerNotice(char const* modePath, char const* module, unsigned long moduleHash,
                               char const* pipeline) = 0;

    // Declared after the two operations so that they keep the first two slots of the table.
    // Defined out of line: the library then emits the class's vtable and type information itself,
    // in every build, rather than wherever a build happens to need them.
    virtual ~KnobbyHandler();
};
