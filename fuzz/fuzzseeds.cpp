// SPDX-License-Identifier: Apache-2.0
// Writes the seed corpus of the tuning-file fuzz targets: writer-made files of every layout, with
// mode trees, modules, shared data and schemas.
#include <cstdio>
#include <string>

#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/modesectionbuilder.h"
#include "tools/writer/symboltablebuilder.h"
#include "tools/writer/tuningfilewriter.h"

namespace {

using TuningWriter::DefinitionElement;
using TuningWriter::DefinitionTableBuilder;
using TuningWriter::ElementFourByte;
using TuningWriter::ElementType;
using TuningWriter::FileVersion;
using TuningWriter::SectionType;
using TuningWriter::TuningFileWriter;

DefinitionElement Member(char const* name, ElementType type, uint32_t minCount, uint32_t maxCount,
                         uint32_t id = 0)
{
    DefinitionElement element;
    element.name = name;
    element.type = type;
    element.id = id;
    element.minCount = minCount;
    element.maxCount = maxCount;
    return element;
}

// A schema with every record kind: nested, fixed, counted and optional members, text, a
// four-byte array, the opaque records and an enumeration.
DefinitionTableBuilder SampleDefinitions()
{
    DefinitionElement limits = Member("limits", ElementType::Float, 0, 8);
    limits.flags = ElementFourByte;
    limits.skipped = "range 0..1";
    DefinitionTableBuilder builder;
    builder.AddOpaque({0, "header", ""})
        .AddModule({1, "FLIndicesType", std::nullopt, "v3.4.0"})
        .AddStructure({2,
                       "module_versionStruct",
                       std::nullopt,
                       {Member("major_revision", ElementType::UInt32, 1, 1),
                        Member("minor_revision", ElementType::UInt32, 1, 1)}})
        .AddStructure({1,
                       "FLIndicesType",
                       std::nullopt,
                       {Member("module_version", ElementType::Structure, 1, 1, 2),
                        Member("numPoints", ElementType::UInt32, 1, 1),
                        Member("indices", ElementType::UInt16, 4, 4), limits,
                        Member("name", ElementType::String, 0, 1),
                        Member("points", ElementType::Structure, 1, 3, 2)}})
        .AddOpaque({1, "x", ""})
        .AddEnum({3, "modeType", std::nullopt, {{0, false, "Off", ""}, {1, true, "On", "lit"}}})
        .AddOpaque({2, "ab", "cde"});
    return builder;
}

bool WriteSeed(std::string const& folder, FileVersion version, bool withDefinitions)
{
    TuningFileWriter writer(version);
    // Modules over shared data and a mode tree, so that whole loads reach every table.
    TuningWriter::SymbolTableBuilder tables(version);
    uint32_t const shared = tables.AddData({1, 0, 0, 0, 2, 0, 0, 0});
    for (uint32_t slot = 0; slot < 3; ++slot) {
        TuningWriter::ModuleEntry module;
        module.name = "FLIndicesType";
        module.moduleVersion = {3, 4, 0};
        module.modeId = slot;
        module.data = {8, 0, 0, 0, 2, 0, 0, 0};
        module.data.push_back(static_cast<uint8_t>(shared));
        module.data.resize(16, 0);
        tables.AddModule(std::move(module));
    }
    tables.AddTo(writer);
    TuningWriter::ModeSectionBuilder modes(0, "rear");
    modes.AddPath("Default|Sensor.0|Usecase.Preview");
    modes.AddTo(writer);
    if (withDefinitions)
        writer.AddSection(SectionType::Definition, SampleDefinitions().Build(writer.Alignment()));
    std::string const path = folder + "/seed-" + std::to_string(version.major) + "." +
                             std::to_string(version.minor) + "." + std::to_string(version.patch) +
                             (withDefinitions ? "-definitions" : "-plain") + ".bin";
    if (writer.WriteFile(path))
        return true;
    std::perror(path.c_str());
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    // One per layout: both alignments, both checksums, each header size.
    FileVersion const versions[] = {{7, 0, 0}, {6, 0, 0}, {5, 0, 0}, {4, 0, 0}, {3, 0, 1},
                                    {3, 0, 0}, {2, 0, 0}, {1, 1, 0}, {1, 0, 2}, {1, 0, 1}};
    for (FileVersion const& version : versions) {
        for (bool withDefinitions : {true, false}) {
            if (!WriteSeed(argv[1], version, withDefinitions))
                return 1;
        }
    }
    return 0;
}
