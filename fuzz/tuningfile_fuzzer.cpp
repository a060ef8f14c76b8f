// SPDX-License-Identifier: Apache-2.0
// Fuzz target: the header, section table and definition table of arbitrary bytes.
#include <cstdint>
#include <cstring>
#include <vector>

#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterfileheader.h"
#include "parameterparser/parameterfilesymboltable.h"

#include "fuzz/fuzzsupport.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    std::vector<unsigned char> file(data, data + size);
    auto const length = static_cast<unsigned int>(size);
    ParameterFileHeader header;
    char errorText[2048] = {};
    // The checksum is checked last, after every header field was read: go on past a mismatch so
    // that mutated files still reach the tables.
    if (!ReadFileHeader(file.data(), length, header, errorText, nullptr) &&
        std::strcmp(errorText, "Binary file CRC validation failed") != 0)
        return 0;

    ParameterSectionTable sections;
    if (!ReadSectionTable(file.data(), length, header, sections, errorText, nullptr) ||
        sections.definitions.Size == 0)
        return 0;

    ParameterFileSymbolTable table(nullptr, header.layout.alignment, header.layout.version);
    unsigned int pos = sections.definitions.Offset;
    (void)table.ReadDefinitions(file.data(), length, pos, sections.definitions.Size, true);
    if (table.GetDefinitionModules() != nullptr) {
        for (auto const& module : *table.GetDefinitionModules())
            delete table.BuildModuleElement(module.first);
    }
    table.ClearDefinitions(false);
    return 0;
}
