// SPDX-License-Identifier: Apache-2.0
// ParameterKnobbyThread: one joinable service thread.
#include "parameterparser/livetuning/parameterknobbythread.h"

#include <cstring>

#include "parameterparser/parameterlogging.h"

ParameterKnobbyThread::~ParameterKnobbyThread()
{
    Join();
}

bool ParameterKnobbyThread::Start(void* (*entry)(void*), void* argument, char const* name,
                                  IParameterLoggingAPI* log)
{
    if (m_started)
        return false;
    // pthread_create reports its error as the result, not through errno.
    int const result = pthread_create(&m_thread, nullptr, entry, argument);
    if (result != 0) {
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "Knobby failed to start the %s thread: %s\n", name,
                                std::strerror(result));
        return false;
    }
    m_started = true;
    return true;
}

void ParameterKnobbyThread::Join()
{
    if (!m_started)
        return;
    pthread_join(m_thread, nullptr);
    m_started = false;
}
