// SPDX-License-Identifier: Apache-2.0
// TempFile: temporary files for tests.
#include "tempfile.h"

#include <cstdio>
#include <cstdlib>

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace ParamTest {

namespace {

void WriteAll(std::string const& path, std::vector<uint8_t> const& bytes)
{
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr)
        return;
    if (!bytes.empty())
        std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::fclose(file);
}

} // namespace

TempFile::TempFile()
{
    char const* folder = std::getenv("TMPDIR");
    std::string pattern = std::string(folder != nullptr ? folder : "/tmp") + "/paramtest-XXXXXX";
    int const fd = mkstemp(pattern.data());
    if (fd >= 0)
        close(fd);
    m_path = pattern;
}

TempFile::TempFile(std::vector<uint8_t> const& bytes) : TempFile()
{
    WriteAll(m_path, bytes);
}

TempFile::~TempFile()
{
    unlink(m_path.c_str());
}

void TempFile::Rewrite(std::vector<uint8_t> const& bytes)
{
    struct stat before = {};
    stat(m_path.c_str(), &before);
    WriteAll(m_path, bytes);
    struct timeval times[2] = {{before.st_mtime + 2, 0}, {before.st_mtime + 2, 0}};
    utimes(m_path.c_str(), times);
}

} // namespace ParamTest
