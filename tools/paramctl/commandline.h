// SPDX-License-Identifier: Apache-2.0
// CommandLine: the options and operands of one paramctl command.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace ParamCtl {

/// Exit codes of every command.
enum ExitCode : int
{
    ExitSuccess = 0,
    ExitFailure = 1,
    ExitUsage = 2,
};

/// Splits a command's arguments into flags ("--json"), options with a value ("-o FILE",
/// "--mode PATH") and operands, against the sets a command declares.
class CommandLine
{
public:
    CommandLine(std::set<std::string> flags, std::set<std::string> valueOptions)
        : m_flags(std::move(flags)), m_valueOptions(std::move(valueOptions))
    {
    }

    /// False with Error() set on an unknown option or a missing value. "--help" is always known.
    [[nodiscard]] bool Parse(int argc, char** argv);

    bool Has(std::string const& flag) const { return m_seen.count(flag) != 0; }
    std::string Value(std::string const& option, std::string const& fallback = "") const;
    std::vector<std::string> const& Operands() const { return m_operands; }
    std::string const& Error() const { return m_error; }

private:
    std::set<std::string> m_flags;
    std::set<std::string> m_valueOptions;
    std::set<std::string> m_seen;
    std::map<std::string, std::string> m_values;
    std::vector<std::string> m_operands;
    std::string m_error;
};

/// Reads a TCP port: decimal digits only, 1 to 65535. False for anything else, never a wrap.
[[nodiscard]] bool ParsePortNumber(std::string const& text, unsigned short& port);

} // namespace ParamCtl
