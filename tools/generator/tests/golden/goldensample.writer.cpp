// Generated from tools/generator/tests/golden/goldensample.schema by the module generator. Do not edit.
#include "paramgen/goldensample.writer.h"

namespace ParamSchema::goldensample {

void Describe(TuningWriter::SchemaSet& set)
{
    using TuningWriter::ElementType;
    using TuningWriter::SchemaElement;
    if (!set.Begin("goldensample"))
        return;
    set.AddStructure("goldensample::pointType", "pointType", {
        SchemaElement("x", ElementType::Float, 0, 1, 1),
        SchemaElement("y", ElementType::Float, 0, 1, 1),
    });
    set.AddStructure("goldensample::sampleType::module_versionStruct", "module_versionStruct", {
        SchemaElement("major_revision", ElementType::Int32, 0, 1, 1),
        SchemaElement("minor_revision", ElementType::Int32, 0, 1, 1),
        SchemaElement("incr_revision", ElementType::Int32, 0, 1, 1),
    });
    set.AddStructure("goldensample::sampleType::limitsStruct", "limitsStruct", {
        SchemaElement("low", ElementType::Double, 0, 1, 1),
        SchemaElement("high", ElementType::Double, 0, 1, 1),
    });
    set.AddStructure("goldensample::sampleType", "sampleType", {
        SchemaElement("module_version", ElementType::Structure, set.Id("goldensample::sampleType::module_versionStruct"), 1, 1),
        SchemaElement("enable", ElementType::Int32, 0, 1, 1),
        SchemaElement("threshold", ElementType::Float, 0, 1, 1),
        SchemaElement("gains", ElementType::Float, 0, 3, 3),
        SchemaElement("passes", ElementType::UInt32, 0, 0, 65535),
        SchemaElement("offset", ElementType::Int16, 0, 0, 1),
        SchemaElement("points", ElementType::Structure, set.Id("goldensample::pointType"), 1, 65535),
        SchemaElement("corners", ElementType::Structure, set.Id("goldensample::pointType"), 2, 2),
        SchemaElement("label", ElementType::String, 0, 0, 1),
        SchemaElement("default", ElementType::UInt8, 0, 1, 1),
        SchemaElement("limits", ElementType::Structure, set.Id("goldensample::sampleType::limitsStruct"), 1, 1),
        SchemaElement("unnamed_832c67f0", ElementType::Int32, 0, 1, 1),
    });
}

} // namespace ParamSchema::goldensample
