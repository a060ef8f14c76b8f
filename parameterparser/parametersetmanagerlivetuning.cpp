// SPDX-License-Identifier: Apache-2.0
// ParameterSetManager: the live tuning worker's forwards; all of them act on the main manager.
#include "parameterparser/livetuning/parameterknobbyworker.h"
#include "parameterparser/parametersetmanager.h"

void ParameterSetManager::StopKnobbyWorker()
{
    if (m_knobbyWorker == nullptr)
        return;
    m_knobbyWorker->Stop();
    m_knobbyWorker->Stop();
    delete m_knobbyWorker;
    m_knobbyWorker = nullptr;
}

bool ParameterSetManager::ParseKnobbyRequest(unsigned char const* packet, unsigned int size,
                                             unsigned short& command, unsigned long& id,
                                             unsigned int& requestID, unsigned char const*& payload,
                                             unsigned int& payloadLength)
{
    ParameterSetManager* main = MainManager();
    if (main->m_knobbyWorker == nullptr)
        return false;
    if (!main->m_knobbyEnabled)
        return main->m_knobbyEnabled;
    return ParameterKnobbyWorker::ParseRequest(packet, size, command, id, requestID, payload,
                                               payloadLength, main);
}

bool ParameterSetManager::BuildKnobbyResponse(unsigned char* buffer, unsigned int bufferSize,
                                              unsigned int& totalLength, unsigned short command,
                                              unsigned long id, unsigned int requestID,
                                              unsigned char const* payload,
                                              unsigned int payloadLength)
{
    ParameterSetManager* main = MainManager();
    if (main->m_knobbyWorker == nullptr)
        return false;
    if (!main->m_knobbyEnabled)
        return main->m_knobbyEnabled;
    return ParameterKnobbyWorker::BuildResponse(buffer, bufferSize, totalLength, command, id,
                                                requestID, payload, payloadLength, main);
}

void ParameterSetManager::SetControlValues(PList<ParameterCTValue> const& values)
{
    ParameterSetManager* main = MainManager();
    if (main->m_knobbyWorker != nullptr)
        main->m_knobbyWorker->SetControlValues(values);
}

void ParameterSetManager::SetControlValue(ParameterCTValue const& value)
{
    if (m_mainSetManager != nullptr) {
        // A derived manager publishes its value as the main manager's whole list.
        PList<ParameterCTValue> values;
        values.Add(value);
        m_mainSetManager->SetControlValues(values);
        return;
    }
    if (m_knobbyWorker != nullptr)
        m_knobbyWorker->SetControlValue(value);
}

bool ParameterSetManager::SetTriggerValues(char const* modePath, char const* module,
                                           char const* pipeline, char const* instance,
                                           ParameterCTValue const* values, unsigned int count)
{
    ParameterSetManager* main = MainManager();
    if (main->m_knobbyWorker == nullptr)
        return false;
    return main->m_knobbyWorker->SetTriggerValues(modePath, module, pipeline, instance, values,
                                                  count);
}

bool ParameterSetManager::TriggerRequestExists(char const* modePath, char const* module,
                                               char const* pipeline)
{
    ParameterSetManager* main = MainManager();
    if (main->m_knobbyWorker == nullptr)
        return false;
    return main->m_knobbyWorker->TriggerRequestExists(modePath, module, pipeline);
}

void ParameterSetManager::SetKnobbyHandler(KnobbyHandler* handler)
{
    ParameterSetManager* main = MainManager();
    if (main->m_knobbyWorker != nullptr)
        main->m_knobbyWorker->SetHandler(handler);
}

unsigned short ParameterSetManager::GetKnobbyPort() const
{
    ParameterSetManager const* main = MainManager();
    return main->m_knobbyWorker != nullptr ? main->m_knobbyWorker->GetPort() : 0;
}

bool ParameterSetManager::SetKnobbyListenAddress(char const* host, unsigned short port)
{
    ParameterSetManager* main = MainManager();
    return main->m_knobbyWorker != nullptr && main->m_knobbyWorker->SetListenAddress(host, port);
}

void ParameterSetManager::SetKnobbyIdleTimeout(unsigned int seconds)
{
    ParameterSetManager* main = MainManager();
    if (main->m_knobbyWorker != nullptr)
        main->m_knobbyWorker->SetIdleTimeout(seconds);
}
