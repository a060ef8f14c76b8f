// SPDX-License-Identifier: Apache-2.0
// CompiledSchemas: module instances of the shipped set managers by name or name hash.
#include "tools/paramctl/document/compiledschemas.h"

#include "parameterparser/parsercrc.h"
#include "tools/generator/instancecatalogue.h"

#include "paramgen/ImageSensorModuleSetManager.writer.h"
#include "paramgen/TuningSetManager.writer.h"
#include "paramgen/bitmlSetManager.writer.h"
#include "paramgen/fdSetManager.writer.h"

namespace ParamCtl {

uint32_t CompiledSchemas::Find(std::string const& name, uint64_t nameHash, std::string& manager)
{
    TuningWriter::InstanceCatalogue const* const catalogues[] = {
        &ParamSchema::TuningSetManager::Instances(),
        &ParamSchema::ImageSensorModuleSetManager::Instances(),
        &ParamSchema::fdSetManager::Instances(), &ParamSchema::bitmlSetManager::Instances()};
    for (TuningWriter::InstanceCatalogue const* catalogue : catalogues) {
        for (size_t i = 0; i < catalogue->count; ++i) {
            TuningWriter::InstanceSchema const& instance = catalogue->instances[i];
            bool const match = name.empty()
                                   ? ParserCRC64::HashName(instance.instanceName) == nameHash
                                   : name == instance.instanceName;
            if (match) {
                manager = catalogue->managerName;
                return instance.Describe(m_set);
            }
        }
    }
    return 0;
}

} // namespace ParamCtl
