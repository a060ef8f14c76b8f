// SPDX-License-Identifier: Apache-2.0
// CommandLine: option parsing for paramctl commands.
#include "tools/paramctl/commandline.h"

namespace ParamCtl {

bool CommandLine::Parse(int argc, char** argv)
{
    for (int i = 0; i < argc; ++i) {
        std::string const argument = argv[i];
        if (argument == "--help" || argument == "-h" || m_flags.count(argument) != 0) {
            m_seen.insert(argument == "-h" ? "--help" : argument);
        } else if (m_valueOptions.count(argument) != 0) {
            if (i + 1 >= argc) {
                m_error = "option " + argument + " needs a value";
                return false;
            }
            m_seen.insert(argument);
            m_values[argument] = argv[++i];
        } else if (argument.size() > 1 && argument[0] == '-') {
            m_error = "unknown option " + argument;
            return false;
        } else {
            m_operands.push_back(argument);
        }
    }
    return true;
}

std::string CommandLine::Value(std::string const& option, std::string const& fallback) const
{
    auto found = m_values.find(option);
    return found != m_values.end() ? found->second : fallback;
}

bool ParsePortNumber(std::string const& text, unsigned short& port)
{
    if (text.empty() || text.size() > 5)
        return false;
    unsigned long value = 0;
    for (char const c : text) {
        if (c < '0' || c > '9')
            return false;
        value = value * 10 + static_cast<unsigned long>(c - '0');
    }
    if (value == 0 || value > 65535)
        return false;
    port = static_cast<unsigned short>(value);
    return true;
}

} // namespace ParamCtl
