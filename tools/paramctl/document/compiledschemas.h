// SPDX-License-Identifier: Apache-2.0
// CompiledSchemas: the structures of the shipped set managers' module instances, for files that
// carry no definition table of their own.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/generator/schemaset.h"

namespace ParamCtl {

class CompiledSchemas
{
public:
    /// The top structure ID of the instance of this name, or of this name hash when the name is
    /// empty, describing its structures on first use; manager gets the set manager that lists
    /// it. 0 if no shipped set manager has such an instance.
    uint32_t Find(std::string const& name, uint64_t nameHash, std::string& manager);

    /// Every structure described so far.
    std::vector<TuningWriter::DefinitionStructure> const& Structures() const
    {
        return m_set.Structures();
    }

private:
    TuningWriter::SchemaSet m_set;
};

} // namespace ParamCtl
