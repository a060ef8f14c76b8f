// SPDX-License-Identifier: Apache-2.0
// Fuzz target: generated modules (a trigger tree and a module of nested, counted and shared
// members) loaded from arbitrary sections in buffer mode, read by value path and unloaded.
#include <cstdint>
#include <cstring>
#include <vector>

#include "parameterparser/defaultmodule.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parametersetmanager.h"
#include "parameterparser/parsercrc.h"

#include "fuzz/fuzzsupport.h"
#include "fuzz/modulesinput.h"
#include "paramgen/gamma_1_6_1.h"
#include "paramgen/trackerroimixer.h"

namespace {

uint32_t ReadU32(uint8_t const* bytes)
{
    return static_cast<uint32_t>(bytes[0]) | (static_cast<uint32_t>(bytes[1]) << 8) |
           (static_cast<uint32_t>(bytes[2]) << 16) | (static_cast<uint32_t>(bytes[3]) << 24);
}

// Creates an instance of Class for symbol entry id, loads it, reads paths and unloads it.
template <typename Class>
void Exercise(ParameterSetManager& manager, ParameterFileSymbolTable& table, uint32_t id,
              char const* name, VersionUnion version, char const* const* paths,
              unsigned int pathCount)
{
    DefaultModule kind(new Class(name));
    ModuleData record(ParserCRC64::HashName(name), id, 0, version, 0, nullptr, &manager, &table);
    auto* module = static_cast<Class*>(kind.module->Create(&record, &kind));
    if (module == nullptr)
        return;
    if (module->LoadModule(&table)) {
        char text[128];
        for (unsigned int i = 0; i < pathCount; ++i)
            (void)module->GetValue(paths[i], text, sizeof(text));
        (void)module->GetValue(paths[0], text, 0);
    }
    module->UnloadModule();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    if (size < ModulesFuzz::FrameSize || size > 0x100000)
        return 0;
    uint8_t const flags = data[0];
    uint32_t const sizes[3] = {ReadU32(data + 1), ReadU32(data + 5), ReadU32(data + 9)};
    std::vector<unsigned char> buffer(data + ModulesFuzz::FrameSize, data + size);
    auto const length = static_cast<unsigned int>(buffer.size());
    ParameterFileSymbolTable::SectionInfo sections[4] = {};
    unsigned int offset = 0;
    for (unsigned int i = 0; i < 3; ++i) {
        uint32_t const part = sizes[i] < length - offset ? sizes[i] : length - offset;
        sections[i] = {offset, part};
        offset += part;
    }
    sections[3] = {offset, length - offset};

    VersionUnion const fileVersion((flags & ModulesFuzz::Version7) != 0 ? 7 : 6, 0, 0);
    FuzzSupport::FuzzSetManager manager;
    ParameterFileSymbolTable table(&manager, 1, fileVersion);
    if (!table.Load(buffer.data(), length, nullptr, nullptr, length, sections[1], sections[2],
                    sections[3], sections[0], nullptr, (flags & ModulesFuzz::KeepDefinitions) != 0))
        return 0;

    // The deepest leaf of a gamma tree: six steps down to one table value.
    static char const gammaLeaf[] = "varitonal_gamma16_core.mod_gamma16_trigger_data[0].trigger[1]."
                                    "region[0].channel_r_tab.channel_r[64]";
    static char const* const gammaPaths[] = {
        gammaLeaf,
        "varitonal_gamma16_core.mod_gamma16_trigger_data[0].trigger[0].start",
        "control_variables.control_var_type",
    };
    static char const* const mixerPaths[] = {
        "extensionParam[0]",
        "GazeFocus.YawThresholdLow",
        "parameter_version.revision",
    };
    // A few entries are enough: every one is tried as both kinds.
    unsigned int const count = table.GetSymbolCount() < 8 ? table.GetSymbolCount() : 8;
    for (uint32_t id = 1; id <= count; ++id) {
        Exercise<gamma_1_6_1::varitonal_gamma16TypeClass>(
            manager, table, id, ModulesFuzz::GammaInstance, VersionUnion(1, 6, 1), gammaPaths, 3);
        Exercise<trackerroimixer::varitonalTrackerROIMixerTypeClass>(
            manager, table, id, ModulesFuzz::MixerInstance, VersionUnion(1, 0, 0), mixerPaths, 3);
    }
    return 0;
}
