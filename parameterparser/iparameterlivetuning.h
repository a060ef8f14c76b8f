// SPDX-License-Identifier: Apache-2.0
// IParameterLiveTuning: the live tuning service as the set manager hosting it sees it.
#pragma once

#include "parameterparser/parametercontrolvalues.h"
#include "parameterparser/parameterexport.h"
#include "parameterparser/plist.h"

class KnobbyHandler;

/// A live tuning service attached to a main set manager by the concrete manager that owns it.
/// The set manager starts it after a load, holds it off the tables while a reload or an update
/// rewires them, stops it before anything it reads goes, and forwards the host's calls to it.
/// The set manager never knows how the service is made; only the owner does.
class PARAMETERPARSER_API IParameterLiveTuning
{
public:
    virtual ~IParameterLiveTuning() = default;

    /// Starts serving; nothing while already serving.
    virtual void Start() = 0;
    /// Stops serving and waits for the service's threads; safe to call twice.
    virtual void Stop() = 0;
    /// Holds the service's commands off the store until as many Resume calls have come; the
    /// connection stays open and requests wait.
    virtual void Pause() = 0;
    virtual void Resume() = 0;

    /// Reads a request's head; false for a malformed one (logged).
    virtual bool ParseRequest(unsigned char const* packet, unsigned int size,
                              unsigned short& command, unsigned long& id, unsigned int& requestID,
                              unsigned char const*& payload, unsigned int& payloadLength) = 0;
    /// Writes a response head and payload into buffer; false when it does not fit.
    virtual bool BuildResponse(unsigned char* buffer, unsigned int bufferSize,
                               unsigned int& totalLength, unsigned short command, unsigned long id,
                               unsigned int requestID, unsigned char const* payload,
                               unsigned int payloadLength) = 0;

    virtual void SetControlValues(PList<ParameterCTValue> const& values) = 0;
    virtual void SetControlValue(ParameterCTValue const& value) = 0;
    virtual bool SetTriggerValues(char const* modePath, char const* module, char const* pipeline,
                                  char const* instance, ParameterCTValue const* values,
                                  unsigned int count) = 0;
    virtual bool TriggerRequestExists(char const* modePath, char const* module,
                                      char const* pipeline) = 0;
    virtual void SetHandler(KnobbyHandler* handler) = 0;
    virtual unsigned short GetPort() const = 0;
    [[nodiscard]] virtual bool SetListenAddress(char const* host, unsigned short port) = 0;
    virtual void SetIdleTimeout(unsigned int seconds) = 0;
};
