// Generated from tools/generator/tests/golden/GoldenSetManager.list by the module generator. Do not edit.
#include "paramgen/GoldenSetManager.writer.h"

#include "paramgen/goldensample.h"

namespace ParamSchema::GoldenSetManager {

namespace {

TuningWriter::InstanceSchema const InstanceList[] = {
    {"sampleA", "goldensample::sampleType", &::goldensample::sampleType::Descriptor, {2, 1, 0u}},
    {"sampleB", "goldensample::sampleType", &::goldensample::sampleType::Descriptor, {2, 1, 0u}},
};

} // namespace

TuningWriter::InstanceCatalogue const& Instances()
{
    static TuningWriter::InstanceCatalogue const catalogue{"GoldenSetManager", InstanceList, sizeof(InstanceList) / sizeof(InstanceList[0])};
    return catalogue;
}

} // namespace ParamSchema::GoldenSetManager
