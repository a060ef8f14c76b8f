// SPDX-License-Identifier: Apache-2.0
// The member-by-member comparison of a file's structure with a compiled type.
#include "parameterparser/parameterschemadifference.h"

#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parametermemberaccess.h"
#include "parameterparser/parameterutilsread.h"

namespace {

using ParameterReadDetail::HasFlag;
using ParameterReadDetail::IsDirect;

bool IsDirectFor(ParameterStorage storage, ParameterDefinitionElementInfo const& info)
{
    switch (storage) {
    case ParameterStorage::Int8:
        return IsDirect<signed char>(info);
    case ParameterStorage::UInt8:
        return IsDirect<unsigned char>(info);
    case ParameterStorage::Int16:
        return IsDirect<short>(info);
    case ParameterStorage::UInt16:
        return IsDirect<unsigned short>(info);
    case ParameterStorage::Int32:
        return IsDirect<int>(info);
    case ParameterStorage::UInt32:
        return IsDirect<unsigned int>(info);
    case ParameterStorage::Int64:
        return IsDirect<long>(info);
    case ParameterStorage::UInt64:
        return IsDirect<unsigned long>(info);
    case ParameterStorage::Float:
        return IsDirect<float>(info);
    case ParameterStorage::Double:
        return IsDirect<double>(info);
    }
    return false;
}

// Whether the file's element has the form in which the compiled member is written: inline with
// the member's length (a single value has no count flag, a fixed array the fixed one), optional
// with one element, or counted; and the member's element type.
bool SameForm(ParameterDefinitionElementInfo const& info, ParameterMemberDescriptor const& member)
{
    bool const fixed = HasFlag(info, ElementFixedCount);
    bool const variable = HasFlag(info, ElementVariableCount);
    bool shape = false;
    switch (member.kind) {
    case ParameterMemberKind::Scalar:
    case ParameterMemberKind::FixedArray:
    case ParameterMemberKind::Structure:
    case ParameterMemberKind::StructureFixedArray:
    case ParameterMemberKind::String:
    case ParameterMemberKind::StringFixedArray:
        shape = !variable && info.Count == member.length && fixed == (member.length > 1);
        break;
    case ParameterMemberKind::OptionalScalar:
    case ParameterMemberKind::OptionalStructure:
    case ParameterMemberKind::OptionalString:
        shape = variable && !fixed && info.Count == 1;
        break;
    case ParameterMemberKind::CountedArray:
    case ParameterMemberKind::StructureArray:
    case ParameterMemberKind::StringArray:
        shape = variable;
        break;
    }
    if (!shape)
        return false;
    switch (member.kind) {
    case ParameterMemberKind::Structure:
    case ParameterMemberKind::StructureFixedArray:
    case ParameterMemberKind::StructureArray:
    case ParameterMemberKind::OptionalStructure:
        return info.Type == TypeStructure;
    case ParameterMemberKind::String:
    case ParameterMemberKind::StringFixedArray:
    case ParameterMemberKind::OptionalString:
    case ParameterMemberKind::StringArray:
        return info.Type >= TypeString && info.Type <= TypeStringLast;
    default:
        return IsDirectFor(member.storage, info);
    }
}

} // namespace

ParameterSchemaDifference CompareStructure(ParameterDefinitionStructure const& file,
                                           ParameterTypeDescriptor const& compiled)
{
    ParameterSchemaDifference difference;
    size_t matched = 0;
    for (uint32_t i = 0; i < compiled.memberCount; ++i) {
        ParameterMemberDescriptor const& member = compiled.members[i];
        if (member.hidden)
            continue;
        ParameterDefinitionElement const* element = file.FindChild(member.nameHash);
        if (element == nullptr) {
            ++difference.missing;
            continue;
        }
        ++matched;
        if (element->Info != nullptr && !SameForm(*element->Info, member))
            ++difference.changed;
    }
    // Two compiled members of one name would be matched twice; the file cannot hold fewer than
    // none it does not know.
    size_t const children = file.Children.size();
    difference.steppedOver = children > matched ? static_cast<unsigned int>(children - matched) : 0;
    return difference;
}
