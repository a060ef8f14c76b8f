// SPDX-License-Identifier: Apache-2.0
// ParameterSetManager: the host side of live tuning. The service is attached by the concrete
// manager that owns it; every call here acts on the main manager's service.
#include "parameterparser/iparameterlivetuning.h"
#include "parameterparser/parametersetmanager.h"

bool ParameterSetManager::AttachLiveTuning(IParameterLiveTuning* service)
{
    if (!m_hostsLiveTuning || m_liveTuning != nullptr)
        return false;
    m_liveTuning = service;
    return true;
}

void ParameterSetManager::StopKnobbyWorker()
{
    if (m_liveTuning == nullptr)
        return;
    m_liveTuning->Stop();
    m_liveTuning = nullptr;
}

void ParameterSetManager::StartKnobbyWorker()
{
    if (m_liveTuning != nullptr && m_knobbyEnabled && m_knobbyPauses == 0)
        m_liveTuning->Start();
}

void ParameterSetManager::PauseKnobbyWorker()
{
    ++m_knobbyPauses;
    if (m_liveTuning != nullptr)
        m_liveTuning->Pause();
}

void ParameterSetManager::ResumeKnobbyWorker()
{
    if (m_liveTuning != nullptr)
        m_liveTuning->Resume();
    if (--m_knobbyPauses != 0 || m_liveTuning == nullptr)
        return;
    // A reload that leaves nothing loaded stops the server until a load succeeds.
    if (m_knobbyEnabled && m_loadStatus)
        m_liveTuning->Start();
    else
        m_liveTuning->Stop();
}

bool ParameterSetManager::ParseKnobbyRequest(unsigned char const* packet, unsigned int size,
                                             unsigned short& command, unsigned long& id,
                                             unsigned int& requestID, unsigned char const*& payload,
                                             unsigned int& payloadLength)
{
    ParameterSetManager* main = MainManager();
    if (main->m_liveTuning == nullptr || !main->m_knobbyEnabled)
        return false;
    return main->m_liveTuning->ParseRequest(packet, size, command, id, requestID, payload,
                                            payloadLength);
}

bool ParameterSetManager::BuildKnobbyResponse(unsigned char* buffer, unsigned int bufferSize,
                                              unsigned int& totalLength, unsigned short command,
                                              unsigned long id, unsigned int requestID,
                                              unsigned char const* payload,
                                              unsigned int payloadLength)
{
    ParameterSetManager* main = MainManager();
    if (main->m_liveTuning == nullptr || !main->m_knobbyEnabled)
        return false;
    return main->m_liveTuning->BuildResponse(buffer, bufferSize, totalLength, command, id,
                                             requestID, payload, payloadLength);
}

void ParameterSetManager::SetControlValues(PList<ParameterCTValue> const& values)
{
    ParameterSetManager* main = MainManager();
    if (main->m_liveTuning != nullptr)
        main->m_liveTuning->SetControlValues(values);
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
    if (m_liveTuning != nullptr)
        m_liveTuning->SetControlValue(value);
}

bool ParameterSetManager::SetTriggerValues(char const* modePath, char const* module,
                                           char const* pipeline, char const* instance,
                                           ParameterCTValue const* values, unsigned int count)
{
    ParameterSetManager* main = MainManager();
    return main->m_liveTuning != nullptr &&
           main->m_liveTuning->SetTriggerValues(modePath, module, pipeline, instance, values,
                                                count);
}

bool ParameterSetManager::TriggerRequestExists(char const* modePath, char const* module,
                                               char const* pipeline)
{
    ParameterSetManager* main = MainManager();
    return main->m_liveTuning != nullptr &&
           main->m_liveTuning->TriggerRequestExists(modePath, module, pipeline);
}

void ParameterSetManager::SetKnobbyHandler(KnobbyHandler* handler)
{
    ParameterSetManager* main = MainManager();
    if (main->m_liveTuning != nullptr)
        main->m_liveTuning->SetHandler(handler);
}

unsigned short ParameterSetManager::GetKnobbyPort() const
{
    ParameterSetManager const* main = MainManager();
    return main->m_liveTuning != nullptr ? main->m_liveTuning->GetPort() : 0;
}

bool ParameterSetManager::SetKnobbyListenAddress(char const* host, unsigned short port)
{
    ParameterSetManager* main = MainManager();
    return main->m_liveTuning != nullptr && main->m_liveTuning->SetListenAddress(host, port);
}

void ParameterSetManager::SetKnobbyIdleTimeout(unsigned int seconds)
{
    ParameterSetManager* main = MainManager();
    if (main->m_liveTuning != nullptr)
        main->m_liveTuning->SetIdleTimeout(seconds);
}
