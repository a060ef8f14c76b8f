// SPDX-License-Identifier: Apache-2.0
// The member-by-member comparison of a file's structure with a compiled type.
#include "parameterparser/parameterschemadifference.h"

#include <algorithm>
#include <unordered_set>

#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterentryreader.h"
#include "parameterparser/parametermemberaccess.h"

ParameterMemberMatch MatchMember(ParameterDefinitionStructure const& file,
                                 ParameterMemberDescriptor const& member,
                                 ParameterDefinitionElement const** element)
{
    ParameterDefinitionElement const* found = file.FindChild(member.nameHash);
    if (element != nullptr)
        *element = found;
    if (found == nullptr)
        return ParameterMemberMatch::Missing;
    if (found->Info != nullptr && !ParameterEntryReader::HasExactForm(*found->Info, member))
        return ParameterMemberMatch::Converted;
    return ParameterMemberMatch::Matched;
}

std::vector<unsigned long> SteppedOverMembers(ParameterDefinitionStructure const& file,
                                              ParameterTypeDescriptor const& compiled)
{
    std::unordered_set<unsigned long> known;
    for (uint32_t i = 0; i < compiled.memberCount; ++i) {
        if (!compiled.members[i].hidden)
            known.insert(compiled.members[i].nameHash);
    }
    std::vector<unsigned long> stepped;
    for (auto const& child : file.Children) {
        if (known.count(child.first) == 0)
            stepped.push_back(child.first);
    }
    std::sort(stepped.begin(), stepped.end());
    return stepped;
}

ParameterSchemaDifference CompareStructure(ParameterDefinitionStructure const& file,
                                           ParameterTypeDescriptor const& compiled)
{
    ParameterSchemaDifference difference;
    for (uint32_t i = 0; i < compiled.memberCount; ++i) {
        ParameterMemberDescriptor const& member = compiled.members[i];
        if (member.hidden)
            continue;
        switch (MatchMember(file, member)) {
        case ParameterMemberMatch::Missing:
            ++difference.missing;
            break;
        case ParameterMemberMatch::Converted:
            ++difference.changed;
            break;
        case ParameterMemberMatch::Matched:
            break;
        }
    }
    difference.steppedOver = static_cast<unsigned int>(SteppedOverMembers(file, compiled).size());
    return difference;
}
