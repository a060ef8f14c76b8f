// SPDX-License-Identifier: Apache-2.0
// paramctl info: what a tuning file holds, as the loader sees it.
#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/vornalloc.h"

#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "tools/paramctl/commandline.h"
#include "tools/paramctl/commands.h"
#include "tools/paramctl/jsonoutput.h"
#include "tools/paramctl/loadedfile.h"
#include "tools/paramctl/printable.h"

namespace ParamCtl {

namespace {

constexpr char InfoUsage[] =
    "usage: paramctl info [--json] [--modules] FILE\n"
    "\n"
    "Loads FILE as a camera process would and prints its tag, version, creator, header flags,\n"
    "section table, checksum verdict and the schema it carries (modules and structures with\n"
    "their sizes). --modules lists the module instances of the file instead, each with the\n"
    "mode that holds it (an instance of a kind this build does not know shows its name hash).\n"
    "A file the loader refuses prints the loader's error and exits 1, after what could be read\n"
    "of it when its tables loaded.\n";

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
    ParameterByteReader reader(bytes.data(), static_cast<unsigned int>(bytes.size()), 1, nullptr,
                               CreatedByOffset);
    std::unique_ptr<char, void (*)(char*)> text(reader.ReadTextField(CreatedByLength),
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
    std::printf("File:        %s (%zu bytes)\n", Printable(s.path).c_str(), s.length);
    std::printf("Tag:         %s\n", Printable(s.tag).c_str());
    std::printf("Version:     %s\n", VersionText(s.version).c_str());
    std::printf("Created by:  %s\n",
                s.createdBy.empty() ? "(not recorded)" : Printable(s.createdBy).c_str());
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
        std::printf("  module    %-32s structure %u, %u bytes\n", Printable(module.name).c_str(),
                    module.structureId, module.size);
    for (StructureRow const& structure : s.structures)
        std::printf("  structure %-32s id %u, %u bytes, %zu members\n",
                    Printable(structure.name).c_str(), structure.id, structure.size,
                    structure.members);
}

void PrintJsonSummary(FileSummary const& s)
{
    Json sections = Json::array();
    for (SectionRow const& row : s.sections)
        sections.push_back(
            {{"kind", row.kind}, {"offset", row.section.Offset}, {"size", row.section.Size}});
    Json modules = Json::array();
    for (ModuleRow const& module : s.modules)
        modules.push_back({{"name", Printable(module.name)},
                           {"structure", module.structureId},
                           {"size", module.size}});
    Json structures = Json::array();
    for (StructureRow const& structure : s.structures)
        structures.push_back({{"id", structure.id},
                              {"name", Printable(structure.name)},
                              {"size", structure.size},
                              {"members", structure.members}});
    PrintJson({{"file", Printable(s.path)},
               {"length", s.length},
               {"tag", Printable(s.tag)},
               {"version", VersionText(s.version)},
               {"createdBy", Printable(s.createdBy)},
               {"flags", s.flags},
               {"checksum", s.version >= VersionUnion(6, 0, 0) ? "crc64" : "crc32"},
               {"checksumValid", true},
               {"sectionCount", s.sectionCount},
               {"sections", std::move(sections)},
               {"definitions",
                {{"present", s.hasDefinitions},
                 {"complete", s.definitionsComplete},
                 {"modules", std::move(modules)},
                 {"structures", std::move(structures)}}}});
}

void PrintModules(std::vector<ModuleRecord> const& records, bool json)
{
    if (json) {
        Json modules = Json::array();
        for (ModuleRecord const& record : records)
            modules.push_back({{"name", Printable(record.name)},
                               {"known", record.known},
                               {"id", record.id},
                               {"version", VersionText(record.version)},
                               {"table", record.modeTableIndex},
                               {"modePath", Printable(record.modePath)},
                               {"mode", Printable(NamedModePath(record.modePath))}});
        PrintJson({{"modules", std::move(modules)}});
        return;
    }
    std::printf("%zu module instances\n", records.size());
    std::printf("%-32s  %6s  %-10s  %5s  %s\n", "instance", "id", "version", "table", "mode");
    for (ModuleRecord const& record : records)
        std::printf("%-32s  %6u  %-10s  %5u  %s\n", Printable(record.name).c_str(), record.id,
                    VersionText(record.version).c_str(), record.modeTableIndex,
                    Printable(NamedModePath(record.modePath)).c_str());
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
        return LoadedExit(loaded, "info");
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
        PrintJsonSummary(summary);
    else
        PrintText(summary);
    return LoadedExit(loaded, "info");
}

} // namespace ParamCtl
