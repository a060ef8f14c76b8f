// SPDX-License-Identifier: Apache-2.0
// ConsoleAssets: the console page's static files, from one folder and nowhere else.
#pragma once

#include <string>

namespace ParamCtl {

class ConsoleAssets
{
public:
    /// Takes folder, or when it is empty the page installed with paramctl (the source tree's
    /// when paramctl runs from its build directory; none at all serves no file). False with
    /// error when folder is named but is no folder.
    [[nodiscard]] bool Open(std::string const& folder, std::string& error);

    /// The file for the request path ("/" is "/index.html") and its content type. False for a
    /// path that is no plain file inside the folder: "..", a backslash, a NUL, a symlink or
    /// anything else that resolves outside.
    bool Read(std::string const& requestPath, std::string& body, std::string& type) const;

private:
    std::string m_root; ///< resolved, without a trailing '/'; empty: no page
};

} // namespace ParamCtl
