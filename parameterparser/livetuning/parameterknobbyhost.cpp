// SPDX-License-Identifier: Apache-2.0
// ParameterKnobbyHost: the live tuning worker behind the interface its set manager hosts.
#include "parameterparser/livetuning/parameterknobbyhost.h"

#include "parameterparser/iparameterdataapi.h"

ParameterKnobbyHost::ParameterKnobbyHost(IParameterDataAPI* data) : m_data(data), m_worker(data)
{
}

// The worker's destructor stops its threads before anything of it goes.
ParameterKnobbyHost::~ParameterKnobbyHost() = default;

void ParameterKnobbyHost::Start()
{
    m_worker.Start();
}

void ParameterKnobbyHost::Stop()
{
    m_worker.Stop();
}

void ParameterKnobbyHost::Pause()
{
    m_worker.Pause();
}

void ParameterKnobbyHost::Resume()
{
    m_worker.Resume();
}

bool ParameterKnobbyHost::ParseRequest(unsigned char const* packet, unsigned int size,
                                       unsigned short& command, unsigned long& id,
                                       unsigned int& requestID, unsigned char const*& payload,
                                       unsigned int& payloadLength)
{
    return ParameterKnobbyWorker::ParseRequest(packet, size, command, id, requestID, payload,
                                               payloadLength, m_data);
}

bool ParameterKnobbyHost::BuildResponse(unsigned char* buffer, unsigned int bufferSize,
                                        unsigned int& totalLength, unsigned short command,
                                        unsigned long id, unsigned int requestID,
                                        unsigned char const* payload, unsigned int payloadLength)
{
    return ParameterKnobbyWorker::BuildResponse(buffer, bufferSize, totalLength, command, id,
                                                requestID, payload, payloadLength, m_data);
}

void ParameterKnobbyHost::SetControlValues(PList<ParameterCTValue> const& values)
{
    m_worker.SetControlValues(values);
}

void ParameterKnobbyHost::SetControlValue(ParameterCTValue const& value)
{
    m_worker.SetControlValue(value);
}

bool ParameterKnobbyHost::SetTriggerValues(char const* modePath, char const* module,
                                           char const* pipeline, char const* instance,
                                           ParameterCTValue const* values, unsigned int count)
{
    return m_worker.SetTriggerValues(modePath, module, pipeline, instance, values, count);
}

bool ParameterKnobbyHost::TriggerRequestExists(char const* modePath, char const* module,
                                               char const* pipeline)
{
    return m_worker.TriggerRequestExists(modePath, module, pipeline);
}

void ParameterKnobbyHost::SetHandler(KnobbyHandler* handler)
{
    m_worker.SetHandler(handler);
}

unsigned short ParameterKnobbyHost::GetPort() const
{
    return m_worker.GetPort();
}

bool ParameterKnobbyHost::SetListenAddress(char const* host, unsigned short port)
{
    return m_worker.SetListenAddress(host, port);
}

void ParameterKnobbyHost::SetIdleTimeout(unsigned int seconds)
{
    m_worker.SetIdleTimeout(seconds);
}
