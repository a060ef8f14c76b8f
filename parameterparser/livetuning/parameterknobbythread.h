// SPDX-License-Identifier: Apache-2.0
// ParameterKnobbyThread: one joinable service thread of the live tuning server.
#pragma once

#include <pthread.h>

class IParameterLoggingAPI;

/// Owns one POSIX thread from Start until Join. A thread that was started and not joined is
/// joined by the destructor, so an owner never leaves a thread running on freed memory.
/// Creation failures are logged and reported by the result; nothing throws.
class ParameterKnobbyThread
{
public:
    ParameterKnobbyThread() = default;
    ~ParameterKnobbyThread();

    ParameterKnobbyThread(ParameterKnobbyThread const&) = delete;
    ParameterKnobbyThread& operator=(ParameterKnobbyThread const&) = delete;
    ParameterKnobbyThread(ParameterKnobbyThread&&) = delete;
    ParameterKnobbyThread& operator=(ParameterKnobbyThread&&) = delete;

    /// Runs entry(argument) on a new thread. False if a thread is already held or the thread
    /// could not be created ("Knobby failed to start the %s thread: %s\n" at error level).
    bool Start(void* (*entry)(void*), void* argument, char const* name, IParameterLoggingAPI* log);

    /// Waits for the thread to end; nothing when none is held.
    void Join();

    /// True from a successful Start until Join.
    bool Joinable() const { return m_started; }

private:
    pthread_t m_thread = {};
    bool m_started = false;
};
