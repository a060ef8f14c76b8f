// SPDX-License-Identifier: Apache-2.0
// Fixtures of the live tuning tests: bounded waits and a store with fixed answers.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/iparameterdataapi.h"

namespace ParamTest {

/// Waits, in short steps up to timeout, until condition holds; returns its last value. The bound
/// only ends a wait for what never comes; it is wide so that a loaded machine (a sanitizer build,
/// other suites beside this one) is not taken for a fault.
inline bool WaitFor(std::function<bool()> const& condition,
                    std::chrono::milliseconds timeout = std::chrono::milliseconds(20000))
{
    auto const end = std::chrono::steady_clock::now() + timeout;
    while (!condition() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return condition();
}

/// Runs a call that may block (a Stop, a destructor) on a thread and waits for it with a bound.
/// A call still running then hangs inside objects the test owns, which can be neither freed nor
/// joined: the failure is reported and the program ends at once.
inline void BoundedCall(std::function<void()> const& call,
                        std::chrono::milliseconds timeout = std::chrono::milliseconds(5000))
{
    auto finished = std::make_shared<std::atomic<bool>>(false);
    std::thread thread([finished, call] {
        call();
        *finished = true;
    });
    if (!WaitFor([&] { return finished->load(); }, timeout)) {
        ADD_FAILURE() << "a blocking call did not end within " << timeout.count() << " ms";
        std::fflush(nullptr);
        std::_Exit(EXIT_FAILURE);
    }
    thread.join();
}

/// A store with fixed answers, standing in for a set manager. The last call that named a mode is
/// kept as one line, its arguments joined by "|"; access is locked for the command thread.
class FakeDataAPI : public IParameterDataAPI
{
public:
    char const* GetLoggingIdentifier() override { return identifier.c_str(); }
    bool LoggingEnabled(ParameterLogging::ParameterLogLevel) override { return true; }
    unsigned int GetModeTableCount() override { return static_cast<unsigned int>(tables.size()); }
    void GetModeShorthand(char const* modes, char* result, unsigned int length) override
    {
        std::snprintf(result, length, "short(%s)", modes);
    }
    void GetActiveModes(unsigned char table, char* result, unsigned int length) override
    {
        std::snprintf(result, length, "%s#%u", activeModes.c_str(), table);
    }

    bool GetModeTableNames(PList<char const*>& names) override
    {
        for (std::string const& name : tables)
            names.Add(name.c_str());
        return !tables.empty();
    }

    bool GetValue(unsigned char table, char const* modePath, char const* variable,
                  char const* subVariables, char* result, unsigned int length) override
    {
        std::string const key = std::string(variable) + "/" + (subVariables ? subVariables : "-");
        Record("get|" + std::string(modePath) + "|" + key + "|" + std::to_string(table));
        std::this_thread::sleep_for(getDelay);
        std::lock_guard<std::mutex> lock(m_mutex);
        auto const found = values.find(key);
        if (found != values.end())
            std::snprintf(result, length, "%s", found->second.c_str());
        return found != values.end();
    }

    /// A name starting with "f" is refused; one starting with "q" reads back as an empty text.
    bool SetValue(unsigned char, char const* modePath, char const* variable, char const* name,
                  char const* value) override
    {
        Record("set|" + std::string(modePath) + "|" + variable + "|" + name + "=" + value);
        std::lock_guard<std::mutex> lock(m_mutex);
        if (name[0] != 'f')
            values[std::string(variable) + "/" + name] =
                name[0] == 'q' ? "" : std::string(name) + "=" + value;
        return name[0] != 'f';
    }

    bool GetInfo(unsigned char, char const* modePath, char const* variable,
                 PList<ParameterParserInfo>& info) override
    {
        Record("info|" + std::string(modePath) + "|" + (variable ? variable : "-"));
        for (ParameterParserInfo const& record : records)
            info.Add(record);
        return infoSucceeds;
    }

    unsigned int GetChildModes(unsigned char, char const* modePath, unsigned char* result,
                               unsigned int length) override
    {
        Record("children|" + std::string(modePath));
        size_t const count = std::min<size_t>(childModes.size() + 1, length);
        std::memcpy(result, childModes.c_str(), count);
        return static_cast<unsigned int>(count);
    }

    std::string LastCall()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lastCall;
    }

    // Set before the worker starts.
    std::string identifier = "FakeStore";
    std::vector<std::string> tables = {"rear"};
    std::string activeModes = "Default|Sensor.0";
    std::string childModes = "Usecase.Preview,Usecase.Video";
    std::map<std::string, std::string> values; ///< "variable/subVariables" ("-": none) to text
    std::vector<ParameterParserInfo> records;
    bool infoSucceeds = true;
    std::chrono::milliseconds getDelay{0}; ///< how long each value read takes

private:
    void Record(std::string call)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lastCall = std::move(call);
    }

    std::mutex m_mutex;
    std::string m_lastCall;
};

} // namespace ParamTest
