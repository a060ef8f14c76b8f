// SPDX-License-Identifier: Apache-2.0
// paramctl info: what a tuning file holds, as the loader sees it.
#include <algorithm>
#include <cstdio>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/vornalloc.h"

#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterutils.h"
#include "tools/paramctl/commandline.h"
#include "tools/paramctl/commands.h"
#include "tools/paramctl/jsonwriter.h"
#include "tools/paramctl/loadedfile.h"

namespace ParamCtl {

namespace {

constexpr char InfoUsage[] =
    "usage: paramctl info [--json] [--modules] FILE\n"
    "\n"
    "Loads FILE as a camera process would and prints its tag, version, creator, header flags,\n"
    "section table, checksum verdict and the schema it carries (modules and structures with\n"
    "their sizes). --modules lists the module instances of the file instead, each with the\n"
    "mode that holds it (an instance of a kind this build does not know shows its name hash).\n"
    "A file the loader refuses prints the loader's error and exits 1.\n";

// Header offset of the CreatedBy field, present from 1.0.2 on: behind the 28-byte tag, the
// FileSize word and the 8-byte version.
constexpr unsigned int CreatedByOffset = 40;
constexpr unsigned int CreatedByLength = 48;

struct SectionRow
{
    std::string kind;
    ParameterSetManager::SectionInfo section;
};

struct StructureRow
{
    unsigned int id;
    std::string name;
    unsigned int size;
    size_t members;
};

struct ModuleRow
{
    std::string name;
    unsigned int structureId;
    unsigned int size;
};

struct FileSummary
{
    std::string path;
    size_t length = 0;
    std::string tag;
    VersionUnion version;
    std::string createdBy;
    unsigned long flags = 0;
    unsigned int sectionCount = 0;
    std::vector<SectionRow> sections;
    bool hasDefinitions = false;
    bool definitionsComplete = true;
    std::vector<ModuleRow> modules;
    std::vector<StructureRow> structures;
};

std::string CreatedBy(std::vector<unsigned char>& bytes, VersionUnion const& version)
{
    if (version < VersionUnion(1, 0, 2))
        return "";
    unsigned int pos = CreatedByOffset;
    std::unique_ptr<char, void (*)(char*)> text(
        ParameterUtils::ReadString(bytes.data(), static_cast<unsigned int>(bytes.size()), pos,
                                   CreatedByLength, 1),
        [](char* p) { VornFree(p, VornTagRelease); });
    return text ? text.get() : "";
}

void CollectSections(ToolSetManager const& manager, FileSummary& summary)
{
    auto add = [&summary](std::string kind, ParameterSetManager::SectionInfo const& section) {
        if (section.Offset != 0 || section.Size != 0)
            summary.sections.push_back({std::move(kind), section});
    };
    add("symbol", manager.GetSymbolSection());
    add("data", manager.GetDataSection());
    PList<ParameterSetManager::SectionInfo> const& modes = manager.GetModeSections();
    for (unsigned int i = 0; i < modes.Count(); ++i)
        add("mode[" + std::to_string(i) + "]", modes[i]);
    add("data-table", manager.GetDataTableSection());
    add("definition", manager.GetDefinitionSection());
}

// Reads the schema into a table of its own: the manager's table keeps only what loads need.
void CollectDefinitions(ToolSetManager& manager, std::vector<unsigned char>& bytes,
                        FileSummary& summary)
{
    ParameterSetManager::SectionInfo const section = manager.GetDefinitionSection();
    ParameterFileSymbolTable const* loaded = manager.GetSymbolTable();
    if (section.Size == 0 || loaded == nullptr)
        return;
    summary.hasDefinitions = true;
    ParameterFileSymbolTable table(&manager, loaded->GetAlignment(), summary.version);
    unsigned int pos = section.Offset;
    summary.definitionsComplete = table.ReadDefinitions(
        bytes.data(), static_cast<unsigned int>(bytes.size()), pos, section.Size, true);

    if (auto const* structures = table.GetDefinitionStructures()) {
        for (auto const& [id, structure] : *structures)
            summary.structures.push_back({id, structure->Name != nullptr ? structure->Name : "",
                                          structure->Size, structure->Children.size()});
    }
    if (auto const* modules = table.GetDefinitionModules()) {
        for (auto const& [hash, module] : *modules) {
            ParameterDefinitionStructure const* top = table.FindModuleStructure(hash);
            summary.modules.push_back({module->Name != nullptr ? module->Name : "",
                                       module->StructureID, top != nullptr ? top->Size : 0});
        }
    }
    std::sort(summary.structures.begin(), summary.structures.end(),
              [](StructureRow const& a, StructureRow const& b) { return a.id < b.id; });
    std::sort(summary.modules.begin(), summary.modules.end(),
              [](ModuleRow const& a, ModuleRow const& b) { return a.name < b.name; });
}

void PrintText(FileSummary const& s)
{
    bool const crc64 = s.version >= VersionUnion(6, 0, 0);
    std::printf("File:        %s (%zu bytes)\n", s.path.c_str(), s.length);
    std::printf("Tag:         %s\n", s.tag.c_str());
    std::printf("Version:     %s\n", VersionText(s.version).c_str());
    std::printf("Created by:  %s\n", s.createdBy.empty() ? "(not recorded)" : s.createdBy.c_str());
    std::printf("Flags:       0x%lx%s\n", s.flags, (s.flags & 2) != 0 ? " (compressed)" : "");
    std::printf("Checksum:    valid (%s)\n", crc64 ? "CRC-64" : "CRC-32");
    std::printf("Sections:    %u records\n", s.sectionCount);
    for (SectionRow const& row : s.sections)
        std::printf("  %-12s offset %10u  size %10u\n", row.kind.c_str(), row.section.Offset,
                    row.section.Size);
    if (!s.hasDefinitions) {
        std::printf("Definitions: none (the file is read by position alone)\n");
        return;
    }
    std::printf("Definitions: %zu modules, %zu structures%s\n", s.modules.size(),
                s.structures.size(), s.definitionsComplete ? "" : " (table damaged, partial)");
    for (ModuleRow const& module : s.modules)
        std::printf("  module    %-32s structure %u, %u bytes\n", module.name.c_str(),
                    module.structureId, module.size);
    for (StructureRow const& structure : s.structures)
        std::printf("  structure %-32s id %u, %u bytes, %zu members\n", structure.name.c_str(),
                    structure.id, structure.size, structure.members);
}

void PrintJson(FileSummary const& s)
{
    JsonWriter json(std::cout);
    json.BeginObject()
        .Field("file", s.path)
        .Field("length", static_cast<uint64_t>(s.length))
        .Field("tag", s.tag)
        .Field("version", VersionText(s.version))
        .Field("createdBy", s.createdBy)
        .Field("flags", static_cast<uint64_t>(s.flags))
        .Field("checksum", s.version >= VersionUnion(6, 0, 0) ? "crc64" : "crc32")
        .Field("checksumValid", true)
        .Field("sectionCount", s.sectionCount);
    json.Key("sections").BeginArray();
    for (SectionRow const& row : s.sections)
        json.BeginObject()
            .Field("kind", row.kind)
            .Field("offset", row.section.Offset)
            .Field("size", row.section.Size)
            .EndObject();
    json.EndArray();
    json.Key("definitions")
        .BeginObject()
        .Field("present", s.hasDefinitions)
        .Field("complete", s.definitionsComplete);
    json.Key("modules").BeginArray();
    for (ModuleRow const& module : s.modules)
        json.BeginObject()
            .Field("name", module.name)
            .Field("structure", module.structureId)
            .Field("size", module.size)
            .EndObject();
    json.EndArray();
    json.Key("structures").BeginArray();
    for (StructureRow const& structure : s.structures)
        json.BeginObject()
            .Field("id", structure.id)
            .Field("name", structure.name)
            .Field("size", structure.size)
            .Field("members", static_cast<uint64_t>(structure.members))
            .EndObject();
    json.EndArray();
    json.EndObject();
    json.EndObject();
}

void PrintModules(std::vector<ModuleRecord> const& records, bool json)
{
    if (json) {
        JsonWriter writer(std::cout);
        writer.BeginObject().Key("modules").BeginArray();
        for (ModuleRecord const& record : records)
            writer.BeginObject()
                .Field("name", record.name)
                .Field("known", record.known)
                .Field("id", record.id)
                .Field("version", VersionText(record.version))
                .Field("table", record.modeTableIndex)
                .Field("modePath", record.modePath)
                .Field("mode", NamedModePath(record.modePath))
                .EndObject();
        writer.EndArray().EndObject();
        return;
    }
    std::printf("%zu module instances\n", records.size());
    std::printf("%-32s  %6s  %-10s  %5s  %s\n", "instance", "id", "version", "table", "mode");
    for (ModuleRecord const& record : records)
        std::printf("%-32s  %6u  %-10s  %5u  %s\n", record.name.c_str(), record.id,
                    VersionText(record.version).c_str(), record.modeTableIndex,
                    NamedModePath(record.modePath).c_str());
}

} // namespace

int RunInfo(int argc, char** argv)
{
    CommandLine line({"--json", "--modules"}, {});
    if (!line.Parse(argc, argv)) {
        std::fprintf(stderr, "paramctl info: %s\n%s", line.Error().c_str(), InfoUsage);
        return ExitUsage;
    }
    if (line.Has("--help")) {
        std::fputs(InfoUsage, stdout);
        return ExitSuccess;
    }
    if (line.Operands().size() != 1) {
        std::fputs(InfoUsage, stderr);
        return ExitUsage;
    }

    LoadedFile loaded;
    if (!OpenLoadedFile(line.Operands()[0], "info", loaded))
        return ExitFailure;
    ToolSetManager& manager = loaded.manager;
    if (line.Has("--modules")) {
        PrintModules(ModuleRecords(manager), line.Has("--json"));
        return ExitSuccess;
    }
    std::vector<unsigned char>& bytes = loaded.bytes;
    FileSummary summary;
    summary.path = loaded.path;
    summary.length = bytes.size();
    summary.tag = manager.GetBinaryTag() != nullptr ? manager.GetBinaryTag() : "";
    summary.version = manager.GetBinaryVersion();
    summary.createdBy = CreatedBy(bytes, summary.version);
    summary.flags = manager.GetBinaryFlags();
    summary.sectionCount = manager.GetSectionCount();
    CollectSections(manager, summary);
    CollectDefinitions(manager, bytes, summary);

    if (line.Has("--json"))
        PrintJson(summary);
    else
        PrintText(summary);
    return ExitSuccess;
}

} // namespace ParamCtl
