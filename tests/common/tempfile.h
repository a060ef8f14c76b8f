// SPDX-License-Identifier: Apache-2.0
// TempFile: a uniquely named file that is removed when the test ends.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ParamTest {

class TempFile
{
public:
    /// Creates an empty file under the system's temporary folder.
    TempFile();
    /// Creates the file holding bytes.
    explicit TempFile(std::vector<uint8_t> const& bytes);
    ~TempFile();

    TempFile(TempFile const&) = delete;
    TempFile& operator=(TempFile const&) = delete;

    std::string const& Path() const { return m_path; }

    /// Replaces the content; the modification time moves forward by at least one second so that
    /// readers which compare st_mtime see the change.
    void Rewrite(std::vector<uint8_t> const& bytes);

private:
    std::string m_path;
};

} // namespace ParamTest
