// SPDX-License-Identifier: Apache-2.0
// LoadedFile: loading a file for the read-only paramctl commands.
#include "tools/paramctl/loadedfile.h"

#include <cstdio>

#include "parameterparser/defaultmodule.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "tools/paramctl/inputfile.h"
#include "tools/paramctl/printable.h"

namespace ParamCtl {

bool OpenLoadedFile(std::string const& path, char const* command, LoadedFile& loaded)
{
    loaded.path = path;
    std::string reason;
    if (!ReadInputFile(path, loaded.bytes, reason)) {
        std::fprintf(stderr, "paramctl %s: %s: %s\n", command, Printable(path).c_str(),
                     reason.c_str());
        return false;
    }

    ParameterSetManager& manager = loaded.manager;
    // A load that stopped at module creation (a module of a kind this build does not know)
    // still has its tables in place, and every module it could make.
    loaded.refused = !manager.LoadBinaryParameters(loaded.bytes.data(), loaded.bytes.size());
    if (loaded.refused && manager.GetSymbolTable() == nullptr) {
        std::fprintf(stderr, "paramctl %s: %s: %s\n", command, Printable(path).c_str(),
                     Printable(manager.GetErrorString()).c_str());
        return false;
    }
    return true;
}

int LoadedExit(LoadedFile const& loaded, char const* command)
{
    if (!loaded.refused)
        return ExitSuccess;
    std::fprintf(stderr, "paramctl %s: %s: refused by the loader: %s\n", command,
                 Printable(loaded.path).c_str(),
                 Printable(loaded.manager.GetErrorString()).c_str());
    return ExitFailure;
}

std::vector<ModuleRecord> ModuleRecords(ToolSetManager& manager)
{
    std::vector<ModuleRecord> records;
    ParameterFileSymbolTable const* table = manager.GetSymbolTable();
    if (table == nullptr)
        return records;
    for (unsigned int i = 0; i < table->Modules().Count(); ++i) {
        ModuleData const* data = table->Modules()[i];
        if (data == nullptr)
            continue;
        ModuleRecord record{};
        // The registry names the kind; a hash it does not know is shown as the hash.
        DefaultModule* kind = manager.GetDefaultModule(data->NameHash);
        record.known = kind != nullptr && kind->module != nullptr;
        if (record.known) {
            record.name = kind->module->moduleName;
        } else {
            char hash[24];
            std::snprintf(hash, sizeof(hash), "0x%016lx", data->NameHash);
            record.name = hash;
        }
        record.nameHash = data->NameHash;
        record.id = data->ID;
        record.version = data->Version;
        record.modeTableIndex = data->GetModeTableIndex();
        record.modePath = data->ModePath != nullptr ? data->ModePath : "";
        records.push_back(record);
    }
    return records;
}

ParameterModule* InstanceOf(ParameterSetManager& manager, ModuleData const& data)
{
    DefaultModule* kind = manager.GetDefaultModule(data.NameHash);
    if (kind == nullptr || kind->module == nullptr)
        return nullptr;
    return kind->Find(data.DuplicateID != 0 ? data.DuplicateID : data.ID);
}

std::string VersionText(VersionUnion const& version)
{
    return std::to_string(version.Parts.Major) + "." + std::to_string(version.Parts.Minor) + "." +
           std::to_string(version.Parts.Patch);
}

std::string NumericModePath(ParameterSetManager& manager, std::string const& modePath)
{
    if (modePath.find_first_not_of("0123456789.|") == std::string::npos)
        return modePath;
    // Mode paths hold at most 128 characters.
    char numeric[128] = {};
    manager.GetModeShorthand(modePath.c_str(), numeric, sizeof(numeric));
    return numeric;
}

std::string NamedModePath(std::string const& modePath)
{
    char named[1024] = {};
    ParameterSetManager::GetKnobbyModesString(modePath.c_str(), named, sizeof(named));
    return named;
}

} // namespace ParamCtl
