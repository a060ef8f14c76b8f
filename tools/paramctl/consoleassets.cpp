// SPDX-License-Identifier: Apache-2.0
// ConsoleAssets: static files served only from inside the page's folder.
#include "tools/paramctl/consoleassets.h"

#include <climits>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <vector>

#include <sys/stat.h>

namespace ParamCtl {

namespace {

/// The resolved form of path; empty when it does not exist.
std::string Resolved(std::string const& path)
{
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) != nullptr ? resolved : "";
}

bool IsFolder(std::string const& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string TypeOf(std::string const& path)
{
    static constexpr std::pair<char const*, char const*> types[] = {
        {".html", "text/html; charset=utf-8"},
        {".js", "text/javascript; charset=utf-8"},
        {".css", "text/css; charset=utf-8"},
        {".svg", "image/svg+xml"},
        {".png", "image/png"},
        {".json", "application/json"},
        {".txt", "text/plain; charset=utf-8"},
    };
    for (auto const& [extension, type] : types) {
        std::string const ending = extension;
        if (path.size() >= ending.size() &&
            path.compare(path.size() - ending.size(), ending.size(), ending) == 0)
            return type;
    }
    return "application/octet-stream";
}

} // namespace

bool ConsoleAssets::Open(std::string const& folder, std::string& error)
{
    std::vector<std::string> const candidates =
        folder.empty()
            ? std::vector<std::string>{PARAMCTL_CONSOLE_INSTALLED, PARAMCTL_CONSOLE_SOURCE}
            : std::vector<std::string>{folder};
    for (std::string const& candidate : candidates) {
        std::string const resolved = Resolved(candidate);
        if (!resolved.empty() && IsFolder(resolved)) {
            m_root = resolved;
            return true;
        }
    }
    // Without a page installed the API still serves; a folder asked for must be there.
    error = "no console page at " + folder;
    return folder.empty();
}

bool ConsoleAssets::Read(std::string const& requestPath, std::string& body, std::string& type) const
{
    std::string const path = requestPath == "/" ? "/index.html" : requestPath;
    if (m_root.empty() || path.empty() || path[0] != '/' || path.find("..") != std::string::npos ||
        path.find('\\') != std::string::npos || path.find('\0') != std::string::npos)
        return false;
    // A symlink inside the folder may lead anywhere: what counts is where the path resolves.
    std::string const resolved = Resolved(m_root + path);
    struct stat status = {};
    if (resolved.rfind(m_root + "/", 0) != 0 || stat(resolved.c_str(), &status) != 0 ||
        !S_ISREG(status.st_mode))
        return false;
    std::ifstream file(resolved, std::ios::binary);
    if (!file)
        return false;
    body.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    type = TypeOf(resolved);
    return true;
}

} // namespace ParamCtl
