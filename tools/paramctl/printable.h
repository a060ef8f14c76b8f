// SPDX-License-Identifier: Apache-2.0
// Printable: text taken from a tuning file, made safe for a terminal and for JSON.
#pragma once

#include <string>

namespace ParamCtl {

/// text with every byte that is not printable text escaped: control characters (tab, newline,
/// escape, DEL, U+0080 to U+009F) and bytes that do not form valid UTF-8 become "\xNN" per byte,
/// and a backslash becomes "\\", so the result is valid UTF-8 that no terminal acts on, and the
/// original bytes can be read back from it.
std::string Printable(std::string const& text);

/// The bytes that Printable(bytes) == text stands for: "\\" is a backslash, "\xNN" the byte NN,
/// anything else itself. False for a backslash followed by anything else.
[[nodiscard]] bool FromPrintable(std::string const& text, std::string& bytes);

} // namespace ParamCtl
