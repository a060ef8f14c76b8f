// SPDX-License-Identifier: Apache-2.0
// The paramctl binary of this build run from a test: to its exit, collecting its exit code and
// standard output, or as a server in a child process, started, waited for, and stopped within
// bounds.
#pragma once

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "tests/common/tempfile.h"

extern char** environ;

namespace ParamCtlTest {

struct Output
{
    int code = -1; ///< exit code, or 128 + signal
    std::string out;
};

/// paramctl with arguments (shell words); stderr is dropped, or with withErrors taken into out
/// behind stdout.
inline Output RunParamctl(std::string const& arguments, bool withErrors = false)
{
    Output result;
    std::string const command =
        std::string(PARAMCTL_PATH) + " " + arguments + (withErrors ? " 2>&1" : " 2>/dev/null");
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return result;
    std::array<char, 4096> chunk;
    for (size_t got; (got = std::fread(chunk.data(), 1, chunk.size(), pipe)) > 0;)
        result.out.append(chunk.data(), got);
    int const status = pclose(pipe);
    result.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

/// The bytes of the file at path; empty if it cannot be read.
inline std::vector<uint8_t> ReadBytes(std::string const& path)
{
    std::vector<uint8_t> bytes;
    if (FILE* file = std::fopen(path.c_str(), "rb")) {
        for (int c; (c = std::fgetc(file)) != EOF;)
            bytes.push_back(static_cast<uint8_t>(c));
        std::fclose(file);
    }
    return bytes;
}

/// Polls condition every 50 ms for at most ten seconds.
template <typename Condition> bool WaitFor(Condition condition)
{
    for (int i = 0; i < 200; ++i) {
        if (condition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

inline std::string TextOf(std::string const& path)
{
    std::vector<uint8_t> const bytes = ReadBytes(path);
    return std::string(bytes.begin(), bytes.end());
}

/// The file paramctl pack makes of a tuning description.
inline std::vector<uint8_t> Packed(std::string const& text)
{
    ParamTest::TempFile description(std::vector<uint8_t>(text.begin(), text.end()));
    ParamTest::TempFile file;
    EXPECT_EQ(RunParamctl("pack " + description.Path() + " -o " + file.Path()).code, 0) << text;
    return ReadBytes(file.Path());
}

/// paramctl (this build's, unless program names another) with arguments (shell words), its
/// stdout and stderr in a log file. Killed when the test ends without stopping it.
class ParamctlChild
{
public:
    explicit ParamctlChild(std::string const& arguments, std::string const& program = PARAMCTL_PATH)
    {
        std::string const command =
            "exec " + program + " " + arguments + " >" + m_log.Path() + " 2>&1";
        char const* const argv[] = {"sh", "-c", command.c_str(), nullptr};
        if (posix_spawn(&m_pid, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ) !=
            0)
            m_pid = 0;
    }
    ~ParamctlChild()
    {
        if (m_pid != 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
    }
    ParamctlChild(ParamctlChild const&) = delete;
    ParamctlChild& operator=(ParamctlChild const&) = delete;

    pid_t Pid() const { return m_pid; }
    std::string Log() const { return TextOf(m_log.Path()); }

    /// Waits until the log holds text; false when it does not within ten seconds.
    bool WaitForLog(std::string const& text) const
    {
        return m_pid != 0 && WaitFor([&] { return Log().find(text) != std::string::npos; });
    }

    /// Waits at most ten seconds for the exit; the exit code, or -1 when the child had to be
    /// killed or ended on a signal.
    int Wait()
    {
        if (m_pid == 0)
            return -1;
        int status = -1;
        bool const ended = WaitFor([&] { return waitpid(m_pid, &status, WNOHANG) == m_pid; });
        if (!ended) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, &status, 0);
        }
        m_pid = 0;
        return ended && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    /// The number the log gives behind prefix once it shows it; 0 when it does not within ten
    /// seconds (a port, behind "listening on port ").
    int NumberAfter(std::string const& prefix) const
    {
        if (!WaitForLog(prefix))
            return 0;
        std::string const log = Log();
        return std::stoi(log.substr(log.find(prefix) + prefix.size()));
    }

    /// Sends SIGTERM and waits for the exit, as Wait.
    int Stop()
    {
        if (m_pid != 0)
            kill(m_pid, SIGTERM);
        return Wait();
    }

private:
    ParamTest::TempFile m_log;
    pid_t m_pid = 0;
};

} // namespace ParamCtlTest
