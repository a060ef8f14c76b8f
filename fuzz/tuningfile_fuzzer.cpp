// SPDX-License-Identifier: Apache-2.0
// Fuzz target: the header, section table and definition table of arbitrary bytes.
#include <cstdint>
#include <cstring>
#include <vector>

#include "platform/vornalloc.h"

#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parametersetmanager.h"

#include "fuzz/fuzzsupport.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    FuzzSupport::SilenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    std::vector<unsigned char> file(data, data + size);
    auto const length = static_cast<unsigned int>(size);
    unsigned int pos = 0;
    unsigned int sectionOffset = 0;
    unsigned int sectionCount = 0;
    unsigned char alignment = 1;
    VersionUnion version;
    char* binaryTag = nullptr;
    unsigned long flags = 0;
    char errorText[2048] = {};
    bool const header =
        ParameterSetManager::ReadHeader(file.data(), length, pos, sectionOffset, alignment, version,
                                        binaryTag, flags, sectionCount, errorText, nullptr);
    VornFree(binaryTag, VornTagRelease);
    // The checksum is checked last, after every header field was read: go on past a mismatch so
    // that mutated files still reach the tables.
    if (!header && std::strcmp(errorText, "Binary file CRC validation failed") != 0)
        return 0;

    ParameterSetManager::SectionInfo symbol{}, dataTable{}, dataSection{}, definitions{};
    PList<ParameterSetManager::SectionInfo> modes;
    pos = sectionOffset;
    if (!ParameterSetManager::ReadSectionInfo(file.data(), length, pos, alignment, sectionCount,
                                              symbol, dataTable, modes, dataSection, definitions,
                                              errorText, nullptr) ||
        definitions.Size == 0)
        return 0;

    ParameterFileSymbolTable table(nullptr, alignment, version);
    pos = definitions.Offset;
    (void)table.ReadDefinitions(file.data(), length, pos, definitions.Size, true);
    if (table.GetDefinitionModules() != nullptr) {
        for (auto const& module : *table.GetDefinitionModules())
            delete table.BuildModuleElement(module.first);
    }
    table.ClearDefinitions(false);
    return 0;
}
