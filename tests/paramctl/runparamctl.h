// SPDX-License-Identifier: Apache-2.0
// Runs the paramctl binary of this build and collects its exit code and standard output.
#pragma once

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include <sys/wait.h>

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

} // namespace ParamCtlTest
