// SPDX-License-Identifier: Apache-2.0
// Writes the seed corpus of the tuning-file fuzz targets: writer-made files of every layout, with
// mode trees, modules, shared data and schemas.
#include <string>

#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/modesectionbuilder.h"
#include "tools/writer/symboltablebuilder.h"
#include "tools/writer/tuningfilewriter.h"

#include "fuzz/seedwriter.h"
#include "tests/common/definitionmember.h"

namespace {

using ParamTest::Member;
using ParamTest::StructMember;
using TuningWriter::DefinitionElement;
using TuningWriter::DefinitionTableBuilder;
using TuningWriter::ElementFourByte;
using TuningWriter::ElementType;
using TuningWriter::FileVersion;
using TuningWriter::SectionType;
using TuningWriter::TuningFileWriter;

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
        .AddStructure(
            {1,
             "FLIndicesType",
             std::nullopt,
             {StructMember("module_version", 2), Member("numPoints", ElementType::UInt32, 1, 1),
              Member("indices", ElementType::UInt16, 4, 4), limits,
              Member("name", ElementType::String, 0, 1), StructMember("points", 2, 1, 3)}})
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
    std::string const name = "seed-" + std::to_string(version.major) + "." +
                             std::to_string(version.minor) + "." + std::to_string(version.patch) +
                             (withDefinitions ? "-definitions" : "-plain") + ".bin";
    return FuzzSeeds::Write(folder, name, writer.Build());
}

bool WriteAll(std::string const& folder)
{
    // One per layout: both alignments, both checksums, each header size.
    FileVersion const versions[] = {{7, 0, 0}, {6, 0, 0}, {5, 0, 0}, {4, 0, 0}, {3, 0, 1},
                                    {3, 0, 0}, {2, 0, 0}, {1, 1, 0}, {1, 0, 2}, {1, 0, 1}};
    for (FileVersion const& version : versions) {
        for (bool withDefinitions : {true, false}) {
            if (!WriteSeed(folder, version, withDefinitions))
                return false;
        }
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    return FuzzSeeds::Main(argc, argv, WriteAll);
}
