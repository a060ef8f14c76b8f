// SPDX-License-Identifier: Apache-2.0
// Fixtures of the live tuning tests: bounded waits and a store with fixed answers.
#pragma once

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

/// Waits, in short steps up to timeout, until condition holds; returns its last value.
inline bool WaitFor(std::function<bool()> const& condition,
                    std::chrono::milliseconds timeout = std::chrono::milliseconds(5000))
{
    auto const end = std::chrono::steady_clock::now() + timeout;
    while (!condition() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return condition();
}

/// Runs a call that may block (a Stop, a destructor) on a thread of its own and waits for it
/// with a bound. A call still running then hangs inside objects the test owns, which can be
/// neither freed nor joined: the failure is reported and the program ends at once.
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
        std::fprintf(stderr, "a blocking call did not end: giving up\n");
        std::fflush(nullptr);
        std::_Exit(EXIT_FAILURE);
    }
    thread.join();
}

/// A store with fixed answers, standing in for a set manager. Each call is recorded as one line
/// ("get", "set", "info", "children" with its arguments joined by "|"); all access is locked,
/// since the worker's command thread calls in.
class FakeDataAPI : public IParameterDataAPI
{
public:
    char const* GetLoggingIdentifier() override { return identifier.c_str(); }
    bool LoggingEnabled(ParameterLogging::ParameterLogLevel) override { return true; }
    unsigned int GetModeTableCount() override { return static_cast<unsigned int>(tables.size()); }

    bool GetModeTableNames(PList<char const*>& names) override
    {
        for (std::string const& name : tables)
            names.Add(name.c_str());
        return !tables.empty();
    }

    bool GetValue(unsigned char table, char const* modePath, char const* variable,
                  char const* subVariables, char* result, unsigned int resultLength) override
    {
        std::string const sub = subVariables != nullptr ? subVariables : "<null>";
        Record("get|" + std::string(modePath) + "|" + variable + "|" + sub + "|" +
               std::to_string(table));
        std::lock_guard<std::mutex> lock(m_mutex);
        auto const found = values.find(std::string(variable) + "/" + sub);
        if (found == values.end())
            return false;
        std::snprintf(result, resultLength, "%s", found->second.c_str());
        return true;
    }

    bool SetValue(unsigned char, char const* modePath, char const* variable, char const* name,
                  char const* value) override
    {
        Record("set|" + std::string(modePath) + "|" + variable + "|" + name + "=" + value);
        std::lock_guard<std::mutex> lock(m_mutex);
        if (failingNames.count(name) != 0)
            return false;
        // A name starting with "q" is stored but reads back as an empty text.
        values[std::string(variable) + "/" + name] =
            name[0] == 'q' ? std::string() : std::string(name) + "=" + value;
        return true;
    }

    bool GetInfo(unsigned char, char const* modePath, char const* variable,
                 PList<ParameterParserInfo>& info) override
    {
        Record("info|" + std::string(modePath) + "|" + (variable != nullptr ? variable : "<null>"));
        for (ParameterParserInfo const& record : records)
            info.Add(record);
        return infoSucceeds;
    }

    void GetActiveModes(unsigned char table, char* result, unsigned int resultLength) override
    {
        std::snprintf(result, resultLength, "%s#%u", activeModes.c_str(), table);
    }

    unsigned int GetChildModes(unsigned char, char const* modePath, unsigned char* result,
                               unsigned int resultLength) override
    {
        Record("children|" + std::string(modePath));
        size_t const count = std::min<size_t>(childModes.size() + 1, resultLength);
        std::memcpy(result, childModes.c_str(), count);
        return static_cast<unsigned int>(count);
    }

    void GetModeShorthand(char const* modes, char* result, unsigned int resultLength) override
    {
        std::snprintf(result, resultLength, "short(%s)", modes);
    }

    std::vector<std::string> Calls()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_calls;
    }

    // Configuration; set before the worker starts.
    std::string identifier = "FakeStore";
    std::vector<std::string> tables = {"rear"};
    std::string activeModes = "Default|Sensor.0";
    std::string childModes = "Usecase.Preview,Usecase.Video";
    std::map<std::string, std::string> values; ///< "variable/subVariables" to the answer
    std::map<std::string, bool> failingNames;
    std::vector<ParameterParserInfo> records;
    bool infoSucceeds = true;

private:
    void Record(std::string call)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.push_back(std::move(call));
    }

    std::mutex m_mutex;
    std::vector<std::string> m_calls;
};

} // namespace ParamTest
