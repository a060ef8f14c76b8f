// SPDX-License-Identifier: Apache-2.0
// Instance files: one module of the tuning set (the tracker's t2tconfigdata, mostly) written by
// the writer in the modes given, from the build's schema or from one changed the way an older or
// newer tuning tool writes it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/generator/schemaset.h"
#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/entryencoder.h"
#include "tools/writer/modesectionbuilder.h"
#include "tools/writer/symboltablebuilder.h"
#include "tools/writer/tuningfilewriter.h"

#include "paramgen/TuningSetManager.writer.h"

namespace ParamCtlTest {

using TuningWriter::DefinitionStructure;
using TuningWriter::EntryValue;

/// Changes the file's schema (the top structure is named "T2TCtrlType") before anything is
/// written with it; the instances' values go through the changed schema.
using SchemaEdit = std::function<void(std::vector<DefinitionStructure>&)>;

/// The member of a schema structure by name; a test failure, and the first member, if none.
inline TuningWriter::DefinitionElement& ElementNamed(DefinitionStructure& structure,
                                                     std::string const& member)
{
    for (TuningWriter::DefinitionElement& element : structure.elements) {
        if (element.name == member)
            return element;
    }
    ADD_FAILURE() << "no member " << member;
    return structure.elements.front();
}

/// What a tracker file is written with.
struct TrackerOptions
{
    SchemaEdit edit;
    TuningWriter::FileVersion moduleVersion{1, 0, 0};
    /// A member the build does not know, written into both instances (with the edit adding it).
    EntryValue const* extraValue = nullptr;
    char const* extraName = "";
    /// Whether the schema has the module's record (without it, the build reads the module by its
    /// compiled layout).
    bool moduleRecord = true;
};

/// One instance's values in one mode of an instance file.
struct InstanceValues
{
    char const* mode;
    EntryValue value;
};

/// A 7.0.0 file holding instanceName's values in each given mode, written with the build's schema
/// of it as options change it, and a mode table "rear"; long enough to be loaded from disk.
inline std::vector<uint8_t> InstanceFile(char const* instanceName,
                                         std::vector<InstanceValues> const& instances,
                                         TrackerOptions const& options = {})
{
    TuningWriter::FileVersion const version{7, 0, 0};
    TuningWriter::InstanceSchema const* instance =
        ParamSchema::TuningSetManager::Instances().Find(instanceName);
    TuningWriter::SchemaSet set;
    uint32_t const top = instance->Describe(set);
    std::vector<DefinitionStructure> structures = set.Structures();
    if (options.edit)
        options.edit(structures);

    TuningWriter::SymbolTableBuilder symbols(version);
    TuningWriter::EntryEncoder encoder(version, structures, symbols);
    TuningWriter::ModeSectionBuilder modes(0, "rear");
    for (InstanceValues const& values : instances) {
        EntryValue value = values.value;
        if (options.extraValue != nullptr)
            value.Set(options.extraName, *options.extraValue);
        TuningWriter::ModuleEntry entry;
        entry.name = instance->instanceName;
        entry.moduleVersion = options.moduleVersion;
        entry.modeId = modes.AddPath(values.mode);
        entry.data = encoder.Encode(top, &value);
        symbols.AddModule(std::move(entry));
    }
    TuningWriter::DefinitionTableBuilder definitions;
    if (options.moduleRecord)
        definitions.AddModule(set.Module(instance->instanceName, instance->topType));
    for (DefinitionStructure const& structure : structures)
        definitions.AddStructure(structure);

    TuningWriter::TuningFileWriter writer(version);
    writer.SetBinaryTag("tracker").SetMinimumFileSize(TuningWriter::FileModeWindow);
    symbols.AddTo(writer);
    modes.AddTo(writer);
    writer.AddSection(TuningWriter::SectionType::Definition, definitions.Build(writer.Alignment()));
    return writer.Build();
}

/// The file: t2tconfigdata in Default (operationMode 1, downscaleRatio 0.5, confidenceThreshold
/// 60) and in Default|Sensor.0 (2, 0.25, 75).
inline std::vector<uint8_t> TrackerFile(TrackerOptions const& options = {})
{
    auto const values = [](uint64_t operationMode, double downscaleRatio,
                           uint64_t confidenceThreshold) {
        return EntryValue::Struct(
            {{"module_version", EntryValue::Struct({{"major_revision", EntryValue::Int(1)}})},
             {"operationMode", EntryValue::UInt(operationMode)},
             {"downscaleRatio", EntryValue::Real(downscaleRatio)},
             {"confidenceThreshold", EntryValue::UInt(confidenceThreshold)}});
    };
    return InstanceFile(
        "t2tconfigdata",
        {{"Default", values(1, 0.5, 60)}, {"Default|Sensor.0", values(2, 0.25, 75)}}, options);
}

/// The structure of the file's schema named name (the top one is "T2TCtrlType").
inline DefinitionStructure& StructureNamed(std::vector<DefinitionStructure>& structures,
                                           std::string const& name)
{
    for (DefinitionStructure& structure : structures) {
        if (structure.name == name)
            return structure;
    }
    return structures.front();
}

} // namespace ParamCtlTest
