// Generated from tools/generator/tests/golden/goldensample.schema by the module generator. Do not edit.
#pragma once

#include "tools/generator/schemaset.h"

namespace ParamSchema::goldensample {

/// Adds the structures of goldensample (after those of the namespaces it uses) to set.
void Describe(TuningWriter::SchemaSet& set);

} // namespace ParamSchema::goldensample
