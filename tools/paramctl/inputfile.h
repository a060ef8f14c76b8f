// SPDX-License-Identifier: Apache-2.0
// ReadInputFile: the whole of a file named on paramctl's command line, or the reason it cannot be.
#pragma once

#include <string>
#include <vector>

namespace ParamCtl {

/// Positions and sizes in a tuning file are 32-bit, so no input of paramctl is larger.
constexpr unsigned long long MaxInputSize = 0xFFFFFFFFull;

/// Reads the regular file at path into bytes. False with reason set ("No such file or directory",
/// "is a directory", "is not a regular file", "is empty", "is too large ...") when it cannot be
/// read whole; a device, a pipe or a directory is refused before anything is read.
[[nodiscard]] bool ReadInputFile(std::string const& path, std::vector<unsigned char>& bytes,
                                 std::string& reason);

} // namespace ParamCtl
