// SPDX-License-Identifier: Apache-2.0
// TriggerTree: trigger nodes told apart by the compiled schema, not by the look of their names.
#include "tools/paramctl/triggertree.h"

#include <cctype>
#include <cstdlib>
#include <vector>

#include "parameterparser/parametermemberaccess.h"
#include "tools/paramctl/document/blockshape.h"

namespace ParamCtl {

namespace {

// The enumeration whose values name the control variables of the trigger levels.
constexpr char ControlEnumeration[] = "trigger_types";

ParameterMemberDescriptor const* MemberNamed(ParameterTypeDescriptor const& type,
                                             std::string const& name)
{
    for (uint32_t i = 0; i < type.memberCount; ++i) {
        ParameterMemberDescriptor const& member = type.members[i];
        if (!member.hidden && name == member.name)
            return &member;
    }
    return nullptr;
}

Json* JsonMember(Json& structure, std::string const& name)
{
    if (!structure.contains("members"))
        return nullptr;
    for (Json& member : structure["members"]) {
        if (member.value("name", "") == name)
            return &member;
    }
    return nullptr;
}

/// A node of a recursive tree: its type holds its children as an array of itself, "trigger".
bool IsTreeNode(ParameterTypeDescriptor const& type)
{
    ParameterMemberDescriptor const* children = MemberNamed(type, "trigger");
    return children != nullptr && children->type == &type &&
           children->kind == ParameterMemberKind::StructureArray;
}

/// The dimension of a nest level: its type holds one of the table's trigger members.
TriggerDimension const* NestDimension(ParameterTypeDescriptor const& type, std::string& trigger)
{
    for (uint32_t i = 0; i < type.memberCount; ++i) {
        auto const found = DimensionsByTrigger().find(type.members[i].name);
        if (found != DimensionsByTrigger().end()) {
            trigger = found->first;
            return &found->second;
        }
    }
    return nullptr;
}

bool EndsWithStart(std::string const& name)
{
    size_t at = name.rfind("start");
    if (at == std::string::npos)
        return false;
    size_t const tail = name.size() - at - 5;
    bool const digitTail = tail == 1 && std::isdigit(static_cast<unsigned char>(name.back()));
    return (tail == 0 || digitTail) && (at == 0 || name[at - 1] == '_');
}

/// The trigger's interval ("start", "end": the first start/end pair of a structure) or, for a
/// trigger that is one number, its "value".
Json SpanOf(Json const& trigger)
{
    Json span = {{"start", nullptr}, {"end", nullptr}};
    if (!trigger.is_object())
        return span;
    if (trigger.value("kind", "") == "value") {
        span = {{"value", trigger.value("value", "")}};
    } else if (trigger.contains("members")) {
        Json const& members = trigger["members"];
        for (Json const& member : members) {
            std::string const name = member.value("name", "");
            if (member.value("kind", "") != "value" || !EndsWithStart(name))
                continue;
            std::string endName = name;
            endName.replace(name.rfind("start"), 5, "end");
            span["start"] = member.value("value", "");
            for (Json const& other : members) {
                if (other.value("name", "") == endName)
                    span["end"] = other.value("value", "");
            }
            break;
        }
    }
    return span;
}

void SetSpan(Json& node, Json const& span)
{
    for (auto const& [key, value] : span.items())
        node[key] = value;
}

class Marker
{
public:
    Marker(ControlNames const& names, std::vector<uint64_t> controls)
        : m_names(names), m_controls(std::move(controls))
    {
    }

    Json Summary() const
    {
        if (m_generation < 0)
            return nullptr;
        Json levels = Json::array();
        for (auto const& [level, variable] : m_levels) {
            Json entry = {{"level", level}, {"control", nullptr}, {"variable", nullptr}};
            if (m_generation == 1 && level < m_controls.size())
                entry["control"] = m_controls[level];
            if (!variable.empty())
                entry["variable"] = variable;
            levels.push_back(std::move(entry));
        }
        return {{"generation", m_generation}, {"path", m_rootPath}, {"levels", std::move(levels)}};
    }

    /// Goes through the members of one structure of type.
    void Structure(Json& structure, ParameterTypeDescriptor const& type, unsigned int depth)
    {
        if (depth > MaxDepth || !structure.contains("members"))
            return;
        for (Json& member : structure["members"])
            Member(member, type, depth);
    }

private:
    // Schemas nest a few levels; the member tree is cut at the same depth.
    static constexpr unsigned int MaxDepth = 64;

    void Member(Json& member, ParameterTypeDescriptor const& parent, unsigned int depth)
    {
        ParameterMemberDescriptor const* described = MemberNamed(parent, member.value("name", ""));
        if (described == nullptr || described->type == nullptr)
            return;
        ParameterTypeDescriptor const& type = *described->type;
        std::string const kind = member.value("kind", "");
        if (kind == "structure") {
            Structure(member, type, depth + 1);
        } else if (kind == "list") {
            std::string trigger;
            bool const tree = IsTreeNode(type);
            TriggerDimension const* dimension = tree ? nullptr : NestDimension(type, trigger);
            if ((tree || dimension != nullptr) && m_generation < 0) {
                m_generation = tree ? 1 : 0;
                m_rootPath = member.value("path", "");
            }
            for (Json& element : member["elements"]) {
                if (tree)
                    TreeNode(element, type, 0, depth + 1);
                else if (dimension != nullptr)
                    NestNode(element, type, *dimension, trigger, 0, depth + 1);
                else
                    Structure(element, type, depth + 1);
            }
        }
    }

    void Level(unsigned int level, std::string const& variable)
    {
        if (m_levels.count(level) == 0)
            m_levels[level] = variable;
    }

    void TreeNode(Json& node, ParameterTypeDescriptor const& type, unsigned int level,
                  unsigned int depth)
    {
        if (depth > MaxDepth)
            return;
        node["kind"] = "trigger";
        node["generation"] = 1;
        node["level"] = level;
        node["control"] = nullptr;
        node["variable"] = nullptr;
        if (level < m_controls.size()) {
            node["control"] = m_controls[level];
            auto const name = m_names.find(m_controls[level]);
            if (name != m_names.end())
                node["variable"] = name->second;
        }
        Level(level, node["variable"].is_string() ? node["variable"].get<std::string>() : "");
        SetSpan(node, SpanOf(node));
        node["region"] = nullptr;
        for (Json& member : node["members"]) {
            std::string const name = member.value("name", "");
            if (name == "trigger" && member.value("kind", "") == "list") {
                for (Json& child : member["elements"])
                    TreeNode(child, type, level + 1, depth + 1);
            } else {
                if (name == "region" &&
                    (member.value("kind", "") != "list" || member.value("count", 0) > 0))
                    node["region"] = member.value("path", "");
                Member(member, type, depth);
            }
        }
    }

    void NestNode(Json& node, ParameterTypeDescriptor const& type,
                  TriggerDimension const& dimension, std::string const& trigger, unsigned int level,
                  unsigned int depth)
    {
        if (depth > MaxDepth)
            return;
        node["kind"] = "trigger";
        node["generation"] = 0;
        node["level"] = level;
        node["control"] = nullptr;
        node["variable"] = dimension.name;
        Level(level, dimension.name);
        Json const* triggerMember = JsonMember(node, trigger);
        SetSpan(node, SpanOf(triggerMember != nullptr ? *triggerMember : Json()));
        node["region"] = nullptr;
        for (Json& member : node["members"]) {
            std::string const name = member.value("name", "");
            ParameterMemberDescriptor const* described = MemberNamed(type, name);
            if (name == trigger || described == nullptr || described->type == nullptr)
                continue;
            // The level's data: the next level in, or innermost the region itself.
            Json* inner = nullptr;
            ParameterTypeDescriptor const* innerType = nullptr;
            std::string innerTrigger;
            TriggerDimension const* innerDimension = nullptr;
            Json& candidates = member.contains("members") ? member["members"] : m_none;
            for (Json& candidate : candidates) {
                ParameterMemberDescriptor const* list =
                    MemberNamed(*described->type, candidate.value("name", ""));
                if (list != nullptr && list->type != nullptr &&
                    candidate.value("kind", "") == "list" &&
                    (innerDimension = NestDimension(*list->type, innerTrigger)) != nullptr) {
                    inner = &candidate;
                    innerType = list->type;
                    break;
                }
            }
            if (inner != nullptr) {
                for (Json& child : (*inner)["elements"])
                    NestNode(child, *innerType, *innerDimension, innerTrigger, level + 1,
                             depth + 1);
            } else {
                node["region"] = member.value("path", "");
                Member(member, type, depth);
            }
        }
    }

    ControlNames const& m_names;
    std::vector<uint64_t> m_controls;
    int m_generation = -1;
    std::string m_rootPath;
    std::map<unsigned int, std::string> m_levels;
    Json m_none = Json::array();
};

} // namespace

ControlNames ControlNamesOf(Json const& definitions)
{
    ControlNames names;
    if (!definitions.is_array())
        return names;
    for (Json const& record : definitions) {
        if (record.value("record", "") != "enum" || record.value("name", "") != ControlEnumeration)
            continue;
        for (Json const& value : record.value("values", Json::array()))
            names[value.value("value", uint64_t{0})] = value.value("name", "");
    }
    return names;
}

Json MarkTriggerTree(Json& members, ParameterTypeDescriptor const& type, ControlNames const& names)
{
    // A second-generation tree names the control variable of each level in control_var_type.
    std::vector<uint64_t> controls;
    for (Json const& member : members) {
        if (member.value("name", "") != "control_variables")
            continue;
        for (Json const& variables : member.value("members", Json::array())) {
            if (variables.value("name", "") != "control_var_type")
                continue;
            for (Json const& element : variables.value("elements", Json::array())) {
                if (element.is_string())
                    controls.push_back(
                        std::strtoull(element.get<std::string>().c_str(), nullptr, 10));
            }
        }
    }
    Marker marker(names, std::move(controls));
    Json top = {{"members", std::move(members)}};
    marker.Structure(top, type, 0);
    members = std::move(top["members"]);
    return marker.Summary();
}

} // namespace ParamCtl
