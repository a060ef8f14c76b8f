// SPDX-License-Identifier: Apache-2.0
// FileSnapshot: the header, mode trees and module values of a loaded file.
#include "tools/paramctl/filesnapshot.h"

#include <cstdio>

#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parametermodule.h"
#include "tools/paramctl/loadedfile.h"

namespace ParamCtl {

namespace {

// Mode paths hold at most 128 characters.
constexpr unsigned int ModePathLength = 128;

std::string NamedPathOf(ModeEntry& node)
{
    char numeric[ModePathLength] = {};
    node.GetModePath(numeric, sizeof(numeric));
    return NamedModePath(numeric);
}

// What a node is besides its place: whether it stays loaded, and the pipelines of its slots.
std::string Describe(ParameterModeTable const& table, ModeEntry const* node)
{
    std::string text = node->resident ? "resident" : "not resident";
    char const* separator = ", pipelines ";
    for (uint32_t i = 0; i < table.m_modeCount; ++i) {
        if (table.modes[i].mode == node && table.modes[i].pipeline != 0) {
            text += separator + std::to_string(table.modes[i].pipeline);
            separator = ",";
        }
    }
    return text;
}

void AddModes(ToolSetManager& manager, FileSnapshot& snapshot)
{
    for (unsigned int index = 0; index < 256; ++index) {
        ParameterModeTable* table = manager.GetModeTable(static_cast<unsigned char>(index));
        if (table == nullptr)
            break;
        for (uint32_t i = 0; i < table->m_modeCount; ++i) {
            ModeEntry* node = table->modes[i].mode;
            if (node == nullptr)
                continue;
            std::string description = Describe(*table, node);
            if (node == table->rootMode && table->name != nullptr && table->name[0] != '\0')
                description = "table " + std::string(table->name) + ", " + description;
            snapshot.modes[{index, NamedPathOf(*node)}] = description;
        }
    }
}

} // namespace

FileSnapshot SnapshotOf(LoadedFile& loaded)
{
    ToolSetManager& manager = loaded.manager;
    FileSnapshot snapshot;
    char flags[24];
    std::snprintf(flags, sizeof(flags), "0x%lx", manager.GetBinaryFlags());
    snapshot.header = {{"tag", manager.GetBinaryTag() != nullptr ? manager.GetBinaryTag() : ""},
                       {"version", VersionText(manager.GetBinaryVersion())},
                       {"flags", flags}};
    AddModes(manager, snapshot);
    ParameterFileSymbolTable const* table = manager.GetSymbolTable();
    for (unsigned int i = 0; table != nullptr && i < table->Modules().Count(); ++i) {
        ModuleData const* data = table->Modules()[i];
        if (data == nullptr)
            continue;
        InstanceSnapshot instance;
        ParameterModule* module = InstanceOf(manager, *data);
        instance.known = module != nullptr;
        if (module != nullptr) {
            instance.name = module->moduleName;
            instance.values = ReadModuleLeaves(*module);
        } else {
            char hash[24];
            std::snprintf(hash, sizeof(hash), "0x%016lx", data->NameHash);
            instance.name = hash;
        }
        instance.table = data->GetModeTableIndex();
        instance.mode = NamedModePath(data->ModePath != nullptr ? data->ModePath : "");
        instance.version = VersionText(data->Version);
        snapshot.instances[{instance.name, {instance.table, instance.mode}}] = std::move(instance);
    }
    return snapshot;
}

} // namespace ParamCtl
