// SPDX-License-Identifier: Apache-2.0
// Gamma tree files: the tuning set's gamma16_bps_v2 with a trigger tree of a chosen shape, written
// by the writer, for the tests and benchmarks that read a big tree through a mode branch.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tools/generator/schemaset.h"
#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/entryencoder.h"
#include "tools/writer/modesectionbuilder.h"
#include "tools/writer/symboltablebuilder.h"
#include "tools/writer/tuningfilewriter.h"

#include "paramgen/TuningSetManager.writer.h"

namespace ParamTest {

/// The tree's shape: fanouts[level] nodes under each node of the level above (fanouts[0] roots),
/// and the control variable of each level.
struct GammaTreeShape
{
    std::vector<unsigned int> fanouts;
    std::vector<uint64_t> controlVariables;
    /// The names the file's trigger_types enumeration gives control variables; none: no record.
    std::vector<std::pair<uint32_t, std::string>> controlNames;
};

/// Every node of a level spans [10 i, 10 i + 10) for its index i among its siblings; each leaf
/// holds one region whose three 65-point curves start at the leaf's number (its place in the
/// tree's leaf order) times 16.
inline TuningWriter::EntryValue GammaTreeNodes(GammaTreeShape const& shape, size_t level,
                                               unsigned int& leaf)
{
    using TuningWriter::EntryValue;
    std::vector<EntryValue> nodes;
    for (unsigned int i = 0; i < shape.fanouts[level]; ++i) {
        std::vector<std::pair<std::string, EntryValue>> fields = {
            {"start", EntryValue::Real(10.0 * i)}, {"end", EntryValue::Real(10.0 * i + 10)}};
        if (level + 1 < shape.fanouts.size()) {
            fields.emplace_back("trigger", GammaTreeNodes(shape, level + 1, leaf));
        } else {
            std::vector<std::pair<std::string, EntryValue>> region;
            for (char const* channel : {"channel_r", "channel_g", "channel_b"}) {
                std::vector<EntryValue> points;
                for (int point = 0; point < 65; ++point)
                    points.push_back(EntryValue::Real(16.0 * leaf + point));
                region.emplace_back(std::string(channel) + "_tab",
                                    EntryValue::Struct({{channel, EntryValue::List(points)}}));
            }
            fields.emplace_back("region", EntryValue::List({EntryValue::Struct(region)}));
            ++leaf;
        }
        nodes.push_back(EntryValue::Struct(std::move(fields)));
    }
    return EntryValue::List(std::move(nodes));
}

/// A 7.0.0 file with the mode table "rear" (Default|Sensor.0) and gamma16_bps_v2 in Default.
inline std::vector<uint8_t> GammaTreeFile(GammaTreeShape const& shape)
{
    using TuningWriter::EntryValue;
    TuningWriter::FileVersion const version{7, 0, 0};
    TuningWriter::InstanceSchema const* instance =
        ParamSchema::TuningSetManager::Instances().Find("gamma16_bps_v2");
    TuningWriter::SchemaSet set;
    uint32_t const top = instance->Describe(set);

    std::vector<EntryValue> variables;
    for (uint64_t variable : shape.controlVariables)
        variables.push_back(EntryValue::UInt(variable));
    unsigned int leaf = 0;
    EntryValue const value = EntryValue::Struct(
        {{"enable_section", EntryValue::Struct({{"gamma_enable", EntryValue::Int(1)}})},
         {"control_variables",
          EntryValue::Struct({{"control_var_type", EntryValue::List(std::move(variables))}})},
         {"varitonal_gamma16_core",
          EntryValue::Struct({{"mod_gamma16_trigger_data", GammaTreeNodes(shape, 0, leaf)}})}});

    TuningWriter::SymbolTableBuilder symbols(version);
    TuningWriter::EntryEncoder encoder(version, set.Structures(), symbols);
    TuningWriter::ModeSectionBuilder modes(0, "rear");
    modes.AddPath("Default|Sensor.0");
    TuningWriter::ModuleEntry entry;
    entry.name = instance->instanceName;
    entry.moduleVersion = instance->version;
    entry.modeId = modes.AddPath("Default");
    entry.data = encoder.Encode(top, &value);
    symbols.AddModule(std::move(entry));
    TuningWriter::DefinitionTableBuilder definitions;
    definitions.AddModule(set.Module(instance->instanceName, instance->topType));
    set.AddTo(definitions);
    if (!shape.controlNames.empty()) {
        TuningWriter::DefinitionEnum names;
        names.name = "trigger_types";
        for (auto const& [number, name] : shape.controlNames)
            names.values.push_back({number, false, name, ""});
        definitions.AddEnum(std::move(names));
    }

    TuningWriter::TuningFileWriter writer(version);
    writer.SetBinaryTag("gamma-tree");
    symbols.AddTo(writer);
    modes.AddTo(writer);
    writer.AddSection(TuningWriter::SectionType::Definition, definitions.Build(writer.Alignment()));
    return writer.Build();
}

} // namespace ParamTest
