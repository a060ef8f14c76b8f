// SPDX-License-Identifier: Apache-2.0
// ParameterKnobbyHost: the live tuning worker behind the interface its set manager hosts.
#pragma once

#include "parameterparser/iparameterlivetuning.h"
#include "parameterparser/livetuning/parameterknobbyworker.h"
#include "parameterparser/parameterexport.h"

class IParameterDataAPI;

/// Owns one live tuning worker for the store data and offers it to a set manager as its live
/// tuning service (ParameterSetManager::AttachLiveTuning). The concrete managers that serve live
/// tuning own one; it must outlive the attachment, so its owner stops it (StopKnobbyWorker)
/// before destroying it.
class PARAMETERPARSER_API ParameterKnobbyHost final : public IParameterLiveTuning
{
public:
    /// data is the store and the logger of the worker; not owned, it must outlive the host.
    explicit ParameterKnobbyHost(IParameterDataAPI* data);
    ~ParameterKnobbyHost() override;

    ParameterKnobbyHost(ParameterKnobbyHost const&) = delete;
    ParameterKnobbyHost& operator=(ParameterKnobbyHost const&) = delete;
    ParameterKnobbyHost(ParameterKnobbyHost&&) = delete;
    ParameterKnobbyHost& operator=(ParameterKnobbyHost&&) = delete;

    void Start() override;
    void Stop() override;
    void Pause() override;
    void Resume() override;
    bool ParseRequest(unsigned char const* packet, unsigned int size, unsigned short& command,
                      unsigned long& id, unsigned int& requestID, unsigned char const*& payload,
                      unsigned int& payloadLength) override;
    bool BuildResponse(unsigned char* buffer, unsigned int bufferSize, unsigned int& totalLength,
                       unsigned short command, unsigned long id, unsigned int requestID,
                       unsigned char const* payload, unsigned int payloadLength) override;
    void SetControlValues(PList<ParameterCTValue> const& values) override;
    void SetControlValue(ParameterCTValue const& value) override;
    bool SetTriggerValues(char const* modePath, char const* module, char const* pipeline,
                          char const* instance, ParameterCTValue const* values,
                          unsigned int count) override;
    bool TriggerRequestExists(char const* modePath, char const* module,
                              char const* pipeline) override;
    void SetHandler(KnobbyHandler* handler) override;
    unsigned short GetPort() const override;
    [[nodiscard]] bool SetListenAddress(char const* host, unsigned short port) override;
    void SetIdleTimeout(unsigned int seconds) override;

private:
    IParameterDataAPI* m_data;
    ParameterKnobbyWorker m_worker;
};
