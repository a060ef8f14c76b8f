// SPDX-License-Identifier: Apache-2.0
// InstanceCatalogue: the module instances of a set manager as the writer sees them, so that tools
// write module data under the names and schemas that the manager reads.
#pragma once

#include <cstddef>
#include <string>

#include "tools/generator/schemaset.h"
#include "tools/writer/tuningfilewriter.h"

namespace TuningWriter {

/// One module instance of a set manager: its name, the qualified name of its top structure in a
/// SchemaSet ("vornflindices::FLIndicesType"), the description of its namespace and the module
/// version that the manager's module class accepts.
struct InstanceSchema
{
    char const* instanceName;
    char const* topType;
    void (*describe)(SchemaSet& set);
    FileVersion version;
};

/// The instances of one set manager, in its registration order. Generated per manager as
/// ParamSchema::<manager>::Instances().
struct InstanceCatalogue
{
    char const* managerName;
    InstanceSchema const* instances;
    size_t count;

    /// The instance of this name; null if the manager has none.
    InstanceSchema const* Find(std::string const& name) const
    {
        for (size_t i = 0; i < count; ++i) {
            if (name == instances[i].instanceName)
                return &instances[i];
        }
        return nullptr;
    }
};

} // namespace TuningWriter
