// SPDX-License-Identifier: Apache-2.0
// ModuleLeaves: walking a module's value tree through its value access.
#include "tools/paramctl/moduleleaves.h"

#include "parameterparser/parametermodule.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/parametervaluepath.h"

namespace ParamCtl {

namespace {

// Schemas nest a few levels; a deeper walk means a type that holds itself.
constexpr unsigned int MaxDepth = 32;

void Collect(ParameterModule& module, std::string const& path, unsigned int depth,
             ModuleLeaves& leaves)
{
    PList<ParameterParserInfo> records;
    if (depth > MaxDepth || !module.GetInfo(path.empty() ? nullptr : path.c_str(), records))
        return;
    for (unsigned int i = 0; i < records.Count(); ++i) {
        ParameterParserInfo const& record = records[i];
        if (record.name == nullptr)
            continue;
        std::string const member = path.empty() ? record.name : path + "." + record.name;
        if (record.type == ParameterTypeNames::Structure) {
            if (!record.isArray) {
                Collect(module, member, depth + 1, leaves);
                continue;
            }
            for (unsigned int index = 0; index < record.count; ++index)
                Collect(module, LeafName({member, static_cast<int>(index)}), depth + 1, leaves);
        } else if (record.isArray) {
            char text[ParameterParserInfo::ValueLength];
            for (unsigned int index = 0; index < record.count; ++index) {
                std::pair<std::string, int> const key{member, static_cast<int>(index)};
                if (module.GetValue(LeafName(key).c_str(), text, sizeof(text)))
                    leaves[key] = text;
            }
        } else {
            leaves[{member, -1}] = record.value;
        }
    }
}

} // namespace

ModuleLeaves ReadModuleLeaves(ParameterModule& module)
{
    ModuleLeaves leaves;
    Collect(module, "", 0, leaves);
    return leaves;
}

std::string LeafName(std::pair<std::string, int> const& key)
{
    return key.second < 0 ? key.first : key.first + "[" + std::to_string(key.second) + "]";
}

} // namespace ParamCtl
