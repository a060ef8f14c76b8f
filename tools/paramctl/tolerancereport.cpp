// SPDX-License-Identifier: Apache-2.0
// ToleranceReport: the schema comparison of one module, walked through its structures.
#include "tools/paramctl/tolerancereport.h"

#include <cstdio>
#include <set>
#include <utility>

#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parametermemberaccess.h"
#include "parameterparser/parameterschemadifference.h"

namespace ParamCtl {

namespace {

// Schemas nest a few levels; the walk stops well below any stack limit on a hostile table.
constexpr unsigned int MaxDepth = 64;

char const* CodeName(uint32_t code)
{
    static char const* const names[] = {
        "Int8",  "UInt8",  "Int16",    "UInt16",    "Int32",    "UInt32",   "Int64",   "UInt64",
        "Float", "Double", "ByteLike", "ShortLike", "UIntLike", "LongLike", "IntLike", "UIntLike2"};
    if (code >= TypeInt8 && code <= TypeUIntLike2)
        return names[code - TypeInt8];
    if (code >= TypeString && code <= TypeStringLast)
        return "String";
    return code == TypeStructure ? "struct" : "unknown";
}

char const* StorageName(ParameterStorage storage)
{
    static char const* const names[] = {"Int8",   "UInt8", "Int16",  "UInt16", "Int32",
                                        "UInt32", "Int64", "UInt64", "Float",  "Double"};
    return names[static_cast<int>(storage)];
}

std::string FileForm(ParameterDefinitionElementInfo const& info)
{
    std::string form = CodeName(info.Type);
    if (info.Type == TypeStructure && info.Structure != nullptr && info.Structure->Name != nullptr)
        form += std::string(" ") + info.Structure->Name;
    if ((info.Flags & ElementVariableCount) != 0)
        form += info.Count == 1 ? "?" : "[]";
    else if (info.Count != 1)
        form += "[" + std::to_string(info.Count) + "]";
    if ((info.Flags & ElementFourByte) != 0)
        form += " four-byte";
    return form;
}

std::string BuildForm(ParameterMemberDescriptor const& member)
{
    std::string form;
    switch (member.kind) {
    case ParameterMemberKind::Structure:
    case ParameterMemberKind::StructureFixedArray:
    case ParameterMemberKind::StructureArray:
    case ParameterMemberKind::OptionalStructure:
        form = std::string("struct ") + (member.type != nullptr ? member.type->name : "");
        break;
    case ParameterMemberKind::String:
    case ParameterMemberKind::StringFixedArray:
    case ParameterMemberKind::OptionalString:
    case ParameterMemberKind::StringArray:
        form = "String";
        break;
    default:
        form = StorageName(member.storage);
        break;
    }
    switch (member.kind) {
    case ParameterMemberKind::FixedArray:
    case ParameterMemberKind::StructureFixedArray:
    case ParameterMemberKind::StringFixedArray:
        return form + "[" + std::to_string(member.length) + "]";
    case ParameterMemberKind::CountedArray:
    case ParameterMemberKind::StructureArray:
    case ParameterMemberKind::StringArray:
        return form + "[]";
    case ParameterMemberKind::OptionalScalar:
    case ParameterMemberKind::OptionalStructure:
    case ParameterMemberKind::OptionalString:
        return form + "?";
    default:
        return form;
    }
}

bool IsArrayOfStructures(ParameterMemberDescriptor const& member)
{
    return member.kind == ParameterMemberKind::StructureFixedArray ||
           member.kind == ParameterMemberKind::StructureArray;
}

class Walk
{
public:
    Walk(ToleranceReport& report, MemberNameLookup const& names) : m_report(report), m_names(names)
    {
    }

    void Compare(ParameterDefinitionStructure const& file, ParameterTypeDescriptor const& compiled,
                 std::string const& prefix, unsigned int depth)
    {
        if (depth > MaxDepth || !m_seen.insert({&file, &compiled}).second)
            return;
        for (uint32_t i = 0; i < compiled.memberCount; ++i) {
            ParameterMemberDescriptor const& member = compiled.members[i];
            if (member.hidden)
                continue;
            std::string const path = prefix + member.name;
            ParameterDefinitionElement const* element = nullptr;
            switch (MatchMember(file, member, &element)) {
            case ParameterMemberMatch::Missing:
                m_report.missing.push_back(path);
                continue;
            case ParameterMemberMatch::Converted:
                m_report.converted.push_back({path, FileForm(*element->Info), BuildForm(member)});
                break;
            case ParameterMemberMatch::Matched:
                ++m_report.matched;
                break;
            }
            if (member.type != nullptr && element->Info != nullptr &&
                element->Info->Structure != nullptr)
                Compare(*element->Info->Structure, *member.type,
                        path + (IsArrayOfStructures(member) ? "[]." : "."), depth + 1);
        }
        for (unsigned long hash : SteppedOverMembers(file, compiled)) {
            std::string name = m_names ? m_names(file.ID, hash) : "";
            if (name.empty()) {
                char text[24];
                std::snprintf(text, sizeof(text), "#0x%016lx", hash);
                name = text;
            }
            m_report.extra.push_back(prefix + name);
        }
    }

private:
    ToleranceReport& m_report;
    MemberNameLookup const& m_names;
    std::set<std::pair<ParameterDefinitionStructure const*, ParameterTypeDescriptor const*>> m_seen;
};

} // namespace

ToleranceReport CompareModuleSchema(ParameterDefinitionStructure const& file,
                                    ParameterTypeDescriptor const& compiled,
                                    MemberNameLookup const& names)
{
    ToleranceReport report;
    Walk(report, names).Compare(file, compiled, "", 0);
    return report;
}

} // namespace ParamCtl
