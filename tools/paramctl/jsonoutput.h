// SPDX-License-Identifier: Apache-2.0
// The JSON documents of paramctl's --json output.
#pragma once

#include <nlohmann/json.hpp>

namespace ParamCtl {

/// Members keep the order they are added in; 64-bit integers stay exact.
using Json = nlohmann::ordered_json;

/// Writes document to stdout, indented by two spaces, and a newline. Text taken from a file goes
/// in through Printable, so the document is always valid UTF-8.
void PrintJson(Json const& document);

} // namespace ParamCtl
