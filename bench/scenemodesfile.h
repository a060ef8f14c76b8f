// SPDX-License-Identifier: Apache-2.0
// A writer-made tuning file of many modules over many modes, for the benchmarks that want a
// realistically shaped large file: one flIndices module in each Scene mode below a grid of
// Usecase, Feature1 and Feature2 modes, about 1.2 KiB of data each.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "tools/generator/schemaset.h"
#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/entryencoder.h"
#include "tools/writer/modesectionbuilder.h"
#include "tools/writer/symboltablebuilder.h"
#include "tools/writer/tuningfilewriter.h"

#include "paramgen/fdSetManager.h"
#include "paramgen/fdSetManager.writer.h"

namespace BenchFiles {

/// How many modes each level of the grid has; every Scene mode holds one module.
struct SceneGrid
{
    uint16_t usecases;
    uint16_t features1;
    uint16_t features2;
    uint16_t scenes;

    unsigned int Modules() const
    {
        return static_cast<unsigned int>(usecases) * features1 * features2 * scenes;
    }
};

/// The file's bytes, padded with zeros up to minimumSize when that is larger.
inline std::vector<uint8_t> BuildSceneModesFile(SceneGrid const& grid, size_t minimumSize = 0)
{
    TuningWriter::FileVersion const version{};
    TuningWriter::InstanceCatalogue const& catalogue = ParamSchema::fdSetManager::Instances();
    TuningWriter::InstanceSchema const* instance = catalogue.Find("flIndices");
    TuningWriter::SchemaSet schema;
    instance->Describe(schema);
    TuningWriter::DefinitionTableBuilder definitions;
    definitions.AddModule(schema.Module(instance->instanceName, instance->topType));
    schema.AddTo(definitions);

    TuningWriter::SymbolTableBuilder symbols(version);
    TuningWriter::EntryEncoder encoder(version, schema.Structures(), symbols);
    TuningWriter::ModeSectionBuilder tree(0, "bench");
    uint32_t const sensor = tree.AddPath("Default|Sensor.0");
    uint32_t points = 0;
    for (uint16_t usecase = 0; usecase < grid.usecases; ++usecase) {
        uint32_t const u = tree.AddChild(sensor, ModeUsecase, usecase);
        for (uint16_t feature1 = 0; feature1 < grid.features1; ++feature1) {
            uint32_t const f1 = tree.AddChild(u, ModeFeature1, feature1);
            for (uint16_t feature2 = 0; feature2 < grid.features2; ++feature2) {
                uint32_t const f2 = tree.AddChild(f1, ModeFeature2, feature2);
                for (uint16_t scene = 0; scene < grid.scenes; ++scene) {
                    std::vector<TuningWriter::EntryValue> indices(
                        300, TuningWriter::EntryValue::UInt(++points));
                    TuningWriter::EntryValue const value = TuningWriter::EntryValue::Struct(
                        {{"numPoints", TuningWriter::EntryValue::UInt(points)},
                         {"indices", TuningWriter::EntryValue::List(indices)}});
                    TuningWriter::ModuleEntry entry;
                    entry.name = instance->instanceName;
                    entry.moduleVersion = instance->version;
                    entry.modeId = tree.AddChild(f2, ModeScene, scene);
                    entry.data = encoder.Encode(schema.Id(instance->topType), &value);
                    symbols.AddModule(std::move(entry));
                }
            }
        }
    }
    TuningWriter::TuningFileWriter writer(version);
    writer.AddSection(TuningWriter::SectionType::Definition, definitions.Build(writer.Alignment()));
    symbols.AddTo(writer);
    tree.AddTo(writer);
    if (minimumSize > 0)
        writer.SetMinimumFileSize(minimumSize);
    return writer.Build();
}

} // namespace BenchFiles
