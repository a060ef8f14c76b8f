// SPDX-License-Identifier: Apache-2.0
// ParameterFileSymbolTable: the tables of a loaded tuning file (schema maps for now).
#pragma once

#include <cstdint>
#include <unordered_map>

#include "parameterparser/parameterexport.h"
#include "parameterparser/versionunion.h"

class ParameterSetManager;

class PARAMETERPARSER_API ParameterFileSymbolTable
{
public:
    /// Where a section stands in the file.
    struct SectionInfo
    {
        uint32_t Offset;
        uint32_t Size;
    };

    ParameterFileSymbolTable(ParameterSetManager* manager, unsigned char alignment,
                             VersionUnion const& version);
    ~ParameterFileSymbolTable();

    ParameterFileSymbolTable(ParameterFileSymbolTable const&) = delete;
    ParameterFileSymbolTable& operator=(ParameterFileSymbolTable const&) = delete;
};
