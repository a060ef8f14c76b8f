// SPDX-License-Identifier: Apache-2.0
// InstanceCatalogue: the module instances of a set manager as the writer sees them, so that tools
// write module data under the names and schemas that the manager reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/generator/schemaset.h"
#include "tools/writer/tuningfilewriter.h"

namespace TuningWriter {

/// One module instance of a set manager: its name, the qualified name of its top structure
/// ("vornflindices::FLIndicesType"), that structure's type descriptor and the module version that
/// the manager's module class accepts.
struct InstanceSchema
{
    char const* instanceName;
    char const* topType;
    ParameterTypeDescriptor const* type;
    FileVersion version;

    /// Adds the instance's structures to set; returns the top structure's ID.
    uint32_t Describe(SchemaSet& set) const { return set.Describe(topType, *type); }
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
