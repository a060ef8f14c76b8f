// SPDX-License-Identifier: Apache-2.0
// Fuzz target: paramctl's document of a tuning file and the way back. Bytes that open with '{'
// are a JSON document for the packer; anything else is a tuning file, read into a document that
// is exported as schema tables, written as text, parsed again and packed, as schema, dump --json
// and pack --json would.
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/paramctl/document/schematables.h"
#include "tools/paramctl/document/tuningdocument.h"

#include "fuzz/fuzzsupport.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    std::string error;
    std::vector<uint8_t> packed;
    if (size > 0 && data[0] == '{') {
        ParamCtl::Json const document = ParamCtl::Json::parse(data, data + size, nullptr, false);
        if (!document.is_discarded())
            (void)ParamCtl::PackTuningDocument(document, packed, error);
        return 0;
    }
    std::vector<unsigned char> const file(data, data + size);
    ParamCtl::Json document;
    if (!ParamCtl::ReadTuningDocument(file, document, error))
        return 0;
    std::map<std::string, std::string> tables;
    std::vector<std::string> notes;
    (void)ParamCtl::ExportSchemaTables(document, "", "Fuzzed", tables, notes, error);
    // Serialising throws on text that is no valid UTF-8: the reader must have escaped it.
    std::string const text = document.dump();
    ParamCtl::Json const reread = ParamCtl::Json::parse(text);
    (void)ParamCtl::PackTuningDocument(reread, packed, error);
    return 0;
}
