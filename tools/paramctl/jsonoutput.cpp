// SPDX-License-Identifier: Apache-2.0
// PrintJson: one JSON document on stdout.
#include "tools/paramctl/jsonoutput.h"

#include <cstdio>
#include <string>

namespace ParamCtl {

void PrintJson(Json const& document)
{
    // Invalid UTF-8 cannot reach here (file text is escaped first); were it to, it is replaced
    // rather than thrown on, so the output stays a document.
    std::string const text = document.dump(2, ' ', false, Json::error_handler_t::replace);
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
}

} // namespace ParamCtl
