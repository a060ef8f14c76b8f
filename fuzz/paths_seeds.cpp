// SPDX-License-Identifier: Apache-2.0
// Writes the seed corpus of the path fuzz target from the manager it runs against: every node's
// path in numeric and named form, and every member of every instance by its value path, in the
// branch that holds the instance.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "parameterparser/modeentry.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/plist.h"

#include "fuzz/fuzzsupport.h"
#include "fuzz/pathsinput.h"
#include "fuzz/seedwriter.h"

namespace {

unsigned int g_number = 0;

// The fields of one input: a mode path, a variable, no sub-variables and a value.
bool WriteSeed(std::string const& folder, std::string const& modePath, std::string const& variable,
               std::string const& value)
{
    return FuzzSeeds::Write(folder, "seed-" + std::to_string(g_number++),
                            modePath + "\n" + variable + "\n\n" + value);
}

bool WriteAll(std::string const& folder)
{
    FuzzSupport::SilenceLog();
    PathsFuzz::LoadedManager manager;
    ParameterModeTable const* table = manager.GetModeTable(0);
    if (!manager.Loaded() || table == nullptr || table->rootMode == nullptr) {
        std::fprintf(stderr, "paths seeds: the description did not load\n");
        return false;
    }

    // Every node, depth first: its numeric path with a member read through it, and its named
    // path.
    ModeEntry* stack[64] = {table->rootMode};
    unsigned int depth = 1;
    while (depth > 0) {
        ModeEntry* node = stack[--depth];
        char numeric[256] = {};
        node->GetModePath(numeric, sizeof(numeric));
        char named[256] = {};
        ParameterSetManager::GetKnobbyModesString(numeric, named, sizeof(named));
        if (!WriteSeed(folder, numeric, "t2tconfigdata.operationMode", "3") ||
            !WriteSeed(folder, named, "t2tconfigdata", "0.75"))
            return false;
        for (ModeEntry* child = node->firstChild; child != nullptr && depth < 64;
             child = child->nextSibling)
            stack[depth++] = child;
    }

    // Every member of every instance and of its nested structures, as the module lists them,
    // with an index on arrays, through a branch that reaches the instance.
    for (char const* instance : PathsFuzz::Instances) {
        for (char const* modePath : {"0.0|1.0|2.0", "0.0|1.1|2.0"}) {
            std::vector<std::string> structures = {instance};
            PList<ParameterParserInfo> members;
            if (!manager.GetInfo(0, modePath, instance, members))
                continue;
            while (!structures.empty()) {
                std::string const base = structures.back();
                structures.pop_back();
                members.Clear();
                (void)manager.GetInfo(0, modePath, base.c_str(), members);
                for (unsigned int i = 0; i < members.Count(); ++i) {
                    ParameterParserInfo const& member = members[i];
                    std::string const variable = base + "." + member.name;
                    if (std::strcmp(member.type, "Structure") == 0 && !member.isArray)
                        structures.push_back(variable);
                    else if (!WriteSeed(folder, modePath,
                                        member.isArray ? variable + "[1]" : variable, "5,-6.5,7e2"))
                        return false;
                }
            }
            break;
        }
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    return FuzzSeeds::Main(argc, argv, WriteAll);
}
