// SPDX-License-Identifier: Apache-2.0
// paramctl entries: the symbol table of a tuning file, one module instance a row.
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "parameterparser/moduledata.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterfilesymboltableentry.h"
#include "tools/paramctl/commandline.h"
#include "tools/paramctl/commands.h"
#include "tools/paramctl/jsonoutput.h"
#include "tools/paramctl/loadedfile.h"
#include "tools/paramctl/printable.h"

namespace ParamCtl {

namespace {

constexpr char EntriesUsage[] =
    "usage: paramctl entries [--json] FILE\n"
    "\n"
    "Lists the symbol table of FILE: per entry its identifier, the module's name hash and\n"
    "version, the mode path that holds it, the size of its data and its duplicate group (0 for\n"
    "data of its own; entries of one group share one block). From version 6.0.0 on, entry 0\n"
    "of each table is reserved: it is neither listed nor counted.\n";

struct EntryRow
{
    unsigned int id;
    unsigned int size;
    unsigned int group;
    ModuleData const* module; ///< null for an entry that is no module
};

std::string Hex64(unsigned long value)
{
    char text[24];
    std::snprintf(text, sizeof(text), "0x%016lx", value);
    return text;
}

} // namespace

int RunEntries(int argc, char** argv)
{
    CommandLine line({"--json"}, {});
    if (!line.Parse(argc, argv)) {
        std::fprintf(stderr, "paramctl entries: %s\n%s", line.Error().c_str(), EntriesUsage);
        return ExitUsage;
    }
    if (line.Has("--help")) {
        std::fputs(EntriesUsage, stdout);
        return ExitSuccess;
    }
    if (line.Operands().size() != 1) {
        std::fputs(EntriesUsage, stderr);
        return ExitUsage;
    }
    LoadedFile loaded;
    if (!OpenLoadedFile(line.Operands()[0], "entries", loaded))
        return ExitFailure;
    ToolSetManager& manager = loaded.manager;

    // The manager drops its entries once its modules exist; a table of our own keeps them.
    ParameterFileSymbolTable table(&manager, manager.GetSymbolTable()->GetAlignment(),
                                   manager.GetBinaryVersion());
    auto const length = static_cast<unsigned int>(loaded.bytes.size());
    if (!table.Load(loaded.bytes.data(), length, nullptr, nullptr, length,
                    manager.GetSymbolSection(), manager.GetDataTableSection(),
                    manager.GetDataSection(), manager.GetDefinitionSection(), &manager, false)) {
        std::fprintf(stderr, "paramctl entries: %s: the symbol table cannot be read\n",
                     loaded.path.c_str());
        return ExitFailure;
    }

    std::map<unsigned int, ModuleData const*> modules;
    for (unsigned int i = 0; i < table.Modules().Count(); ++i) {
        ModuleData const* data = table.Modules()[i];
        if (data != nullptr)
            modules[data->ID] = data;
    }
    // Stored identifiers run from 1 to the count below 6.0.0; from 6.0.0 an identifier is the
    // position, and position 0 of both tables is a reserved entry no pointer can name: it is
    // neither listed nor counted.
    unsigned int const reserved = manager.GetBinaryVersion() >= VersionUnion(6, 0, 0) ? 1 : 0;
    auto counted = [reserved](unsigned int count) {
        return count > reserved ? count - reserved : 0;
    };
    unsigned int const symbolCount = counted(table.GetSymbolCount());
    unsigned int const dataCount = counted(table.GetDataCount());
    std::vector<EntryRow> rows;
    ParameterFileSymbolTableEntry const* entries = table.GetSymbolEntries();
    ParameterFileSymbolTable::EntryData const* lookup = table.GetSymbolLookup();
    for (unsigned int id = 1; entries != nullptr && id <= symbolCount; ++id) {
        auto found = modules.find(id);
        rows.push_back({id, entries[id].Size, lookup != nullptr ? lookup[id].Duplicate : 0,
                        found != modules.end() ? found->second : nullptr});
    }

    if (line.Has("--json")) {
        Json list = Json::array();
        for (EntryRow const& row : rows) {
            Json entry = {{"id", row.id}, {"size", row.size}, {"group", row.group}};
            if (row.module != nullptr) {
                entry["nameHash"] = Hex64(row.module->NameHash);
                entry["version"] = VersionText(row.module->Version);
                entry["modeId"] = row.module->ModeId;
                entry["modePath"] =
                    Printable(row.module->ModePath != nullptr ? row.module->ModePath : "");
            }
            list.push_back(std::move(entry));
        }
        PrintJson({{"symbolCount", symbolCount},
                   {"dataCount", dataCount},
                   {"reservedEntries", reserved != 0},
                   {"entries", std::move(list)}});
        return LoadedExit(loaded, "entries");
    }
    std::printf("%u symbol entries, %u data entries%s\n", symbolCount, dataCount,
                reserved != 0 ? " (entry 0 of each table is reserved and not counted)" : "");
    std::printf("%6s  %-18s  %-10s  %-24s  %8s  %5s\n", "id", "name hash", "version", "mode path",
                "size", "group");
    for (EntryRow const& row : rows) {
        if (row.module == nullptr) {
            std::printf("%6u  %-18s  %-10s  %-24s  %8u  %5u\n", row.id, "(no module)", "", "",
                        row.size, row.group);
            continue;
        }
        std::printf("%6u  %-18s  %-10s  %-24s  %8u  %5u\n", row.id,
                    Hex64(row.module->NameHash).c_str(), VersionText(row.module->Version).c_str(),
                    Printable(row.module->ModePath != nullptr ? row.module->ModePath : "").c_str(),
                    row.size, row.group);
    }
    return LoadedExit(loaded, "entries");
}

} // namespace ParamCtl
