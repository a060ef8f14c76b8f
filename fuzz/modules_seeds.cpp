// SPDX-License-Identifier: Apache-2.0
// Writes the seed corpus of the generated-module fuzz target: writer-made sections holding a
// trigger tree with regions and a module with shared members, at both layouts, with and without
// definitions.
#include <string>
#include <vector>

#include "tools/generator/schemaset.h"
#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/entryencoder.h"
#include "tools/writer/symboltablebuilder.h"
#include "tools/writer/tuningfilewriter.h"

#include "fuzz/modulesinput.h"
#include "fuzz/seedwriter.h"
#include "paramgen/gamma_1_6_1.h"
#include "paramgen/trackerroimixer.h"

namespace {

using TuningWriter::EntryValue;
using TuningWriter::FileVersion;

EntryValue Node(double start, std::vector<EntryValue> children)
{
    std::vector<EntryValue> channel;
    for (unsigned int i = 0; i < 65; ++i)
        channel.push_back(EntryValue::UInt(i * 16));
    EntryValue const region = EntryValue::Struct(
        {{"channel_r_tab", EntryValue::Struct({{"channel_r", EntryValue::List(channel)}})}});
    return EntryValue::Struct({{"start", EntryValue::Real(start)},
                               {"end", EntryValue::Real(start + 1)},
                               {"region", EntryValue::List({region})},
                               {"trigger", EntryValue::List(std::move(children))}});
}

EntryValue GammaValue()
{
    return EntryValue::Struct(
        {{"control_variables",
          EntryValue::Struct({{"control_var_type",
                               EntryValue::List({EntryValue::UInt(4), EntryValue::UInt(9)})}})},
         {"varitonal_gamma16_core",
          EntryValue::Struct(
              {{"mod_gamma16_trigger_data",
                EntryValue::List({Node(0, {Node(10, {}), Node(20, {})}), Node(1, {})})}})}});
}

EntryValue MixerValue(bool shared)
{
    EntryValue extension = EntryValue::List({EntryValue::Struct({}), EntryValue::Struct({})});
    if (shared)
        extension.duplicateOf = "extension";
    else
        extension.blockName = "extension";
    return EntryValue::Struct(
        {{"parameter_version", EntryValue::Struct({{"revision", EntryValue::Text("seed")}})},
         {"enable", EntryValue::Int(1)},
         {"GazeFocus", EntryValue::Struct({{"YawThresholdLow", EntryValue::Int(-5)}})},
         {"extensionParam", extension}});
}

void Put32(std::vector<uint8_t>& out, uint32_t value)
{
    for (unsigned int i = 0; i < 4; ++i)
        out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

std::vector<uint8_t> Seed(FileVersion version, bool withDefinitions)
{
    TuningWriter::SchemaSet schema;
    schema.Describe("gamma_1_6_1::varitonal_gamma16Type",
                    gamma_1_6_1::varitonal_gamma16Type::Descriptor);
    schema.Describe("trackerroimixer::varitonalTrackerROIMixerType",
                    trackerroimixer::varitonalTrackerROIMixerType::Descriptor);
    TuningWriter::SymbolTableBuilder symbols(version);
    TuningWriter::EntryEncoder encoder(version, schema.Structures(), symbols);
    auto add = [&](char const* name, FileVersion moduleVersion, char const* type,
                   EntryValue const& value) {
        TuningWriter::ModuleEntry entry;
        entry.name = name;
        entry.moduleVersion = moduleVersion;
        entry.modeId = TuningWriter::NoModuleModeId;
        entry.data = encoder.Encode(schema.Id(type), &value);
        symbols.AddModule(std::move(entry));
    };
    add(ModulesFuzz::GammaInstance, {1, 6, 1}, "gamma_1_6_1::varitonal_gamma16Type", GammaValue());
    add(ModulesFuzz::MixerInstance, {1, 0, 0}, "trackerroimixer::varitonalTrackerROIMixerType",
        MixerValue(false));
    add(ModulesFuzz::MixerInstance, {1, 0, 0}, "trackerroimixer::varitonalTrackerROIMixerType",
        MixerValue(true));

    std::vector<uint8_t> definitions;
    if (withDefinitions) {
        TuningWriter::DefinitionTableBuilder builder;
        builder.AddModule(
            schema.Module(ModulesFuzz::GammaInstance, "gamma_1_6_1::varitonal_gamma16Type"));
        builder.AddModule(schema.Module(ModulesFuzz::MixerInstance,
                                        "trackerroimixer::varitonalTrackerROIMixerType"));
        schema.AddTo(builder);
        definitions = builder.Build(TuningWriter::AlignmentFor(version));
    }
    TuningWriter::SymbolTableBuilder::Sections const sections = symbols.Build();
    std::vector<uint8_t> out;
    out.push_back(static_cast<uint8_t>((version.major >= 7 ? ModulesFuzz::Version7 : 0) |
                                       (withDefinitions ? ModulesFuzz::KeepDefinitions : 0)));
    Put32(out, static_cast<uint32_t>(definitions.size()));
    Put32(out, static_cast<uint32_t>(sections.symbol.size()));
    Put32(out, static_cast<uint32_t>(sections.dataTable.size()));
    std::vector<uint8_t> const& definitionBytes = definitions;
    for (std::vector<uint8_t> const* part :
         {&definitionBytes, &sections.symbol, &sections.dataTable, &sections.data})
        out.insert(out.end(), part->begin(), part->end());
    return out;
}

bool WriteAll(std::string const& folder)
{
    for (uint16_t major : {6, 7}) {
        for (bool withDefinitions : {true, false}) {
            std::string const name = "modules_v" + std::to_string(major) +
                                     (withDefinitions ? "_defs" : "_nodefs") + ".bin";
            if (!FuzzSeeds::Write(folder, name, Seed({major, 0, 0}, withDefinitions)))
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
