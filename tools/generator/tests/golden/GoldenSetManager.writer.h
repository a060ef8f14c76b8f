// Generated from tools/generator/tests/golden/GoldenSetManager.list by the module generator. Do not edit.
#pragma once

#include "tools/generator/instancecatalogue.h"

namespace ParamSchema::GoldenSetManager {

/// The module instances that GoldenSetManager registers, in its order, with the writer description
/// of each one's schema.
TuningWriter::InstanceCatalogue const& Instances();

} // namespace ParamSchema::GoldenSetManager
