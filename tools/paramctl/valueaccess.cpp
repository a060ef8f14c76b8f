// SPDX-License-Identifier: Apache-2.0
// Value access: a module's values read through a mode branch, and values checked before a set.
#include "tools/paramctl/valueaccess.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "parameterparser/parametermodule.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/parametervaluepath.h"
#include "tools/writer/numbertext.h"

#include "paramgen/TuningSetManager.h"

namespace ParamCtl {

namespace {

/// The text the library's value parser takes for a number that passed the rule: it reads plain
/// decimals only, so hexadecimal and exponent forms are written out.
std::string LibraryText(TuningWriter::NumberKind kind, TuningWriter::NumberValue const& value)
{
    using TuningWriter::NumberKind;
    switch (kind) {
    case NumberKind::Float:
    case NumberKind::Double: {
        double const magnitude = std::fabs(value.real);
        int const exponent =
            magnitude > 0 ? static_cast<int>(std::floor(std::log10(magnitude))) : 0;
        int const precision = std::max(0, std::min(400, 17 - exponent));
        std::vector<char> text(800);
        std::snprintf(text.data(), text.size(), "%.*f", precision, value.real);
        return text.data();
    }
    case NumberKind::Int8:
    case NumberKind::Int16:
    case NumberKind::Int32:
    case NumberKind::Int64:
        return std::to_string(value.integer);
    default:
        return std::to_string(value.unsignedInteger);
    }
}

} // namespace

Items SplitItems(std::string const& text)
{
    Items items;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find(';', start);
        if (end == std::string::npos)
            end = text.size();
        std::string const item = text.substr(start, end - start);
        size_t const equals = item.find('=');
        if (equals == std::string::npos)
            items.emplace_back(item, "");
        else
            items.emplace_back(item.substr(0, equals), item.substr(equals + 1));
        start = end + 1;
    }
    return items;
}

namespace {

// Schemas nest a few levels; a deeper walk means a type that holds itself.
constexpr unsigned int MaxDepth = 32;

/// The whole text of the number array at path: every element joined by ",". The buffer grows
/// until the text is not cut, up to the room a value read has.
std::string ArrayText(ParameterModule& module, std::string const& path, unsigned int count)
{
    // A number's text: sign, up to 20 digits each side of the point.
    size_t size = static_cast<size_t>(count) * 48 + 64;
    std::string text;
    for (;;) {
        size = std::min<size_t>(size, ResultLength);
        text.assign(size, '\0');
        if (!module.GetValue(path.c_str(), &text[0], static_cast<unsigned int>(size)))
            return "";
        text.resize(std::strlen(text.c_str()));
        if (text.size() + 1 < size || size == ResultLength)
            return text;
        size *= 4;
    }
}

/// A module's members, asked of the module itself: each level once, an array of numbers whole
/// from one read.
class ModuleSource final : public ValueSource
{
public:
    explicit ModuleSource(ParameterModule& module) : m_module(module) {}

    bool Describe(std::string const& path, bool arrays, std::vector<MemberInfo>& members) override
    {
        PList<ParameterParserInfo> records;
        if (!m_module.GetInfo(path.empty() ? nullptr : path.c_str(), records))
            return false;
        for (unsigned int i = 0; i < records.Count(); ++i) {
            ParameterParserInfo const& record = records[i];
            if (record.name == nullptr)
                continue;
            MemberInfo member;
            member.name = record.name;
            member.type = record.type != nullptr ? record.type : "";
            member.value = record.value;
            member.array = record.isArray;
            member.count = record.count;
            if (arrays && member.array && record.type != ParameterTypeNames::Structure)
                member.value = ArrayText(
                    m_module, path.empty() ? member.name : path + "." + member.name, member.count);
            members.push_back(std::move(member));
        }
        return true;
    }

private:
    ParameterModule& m_module;
};

/// Reads the members below path into node's children, recursing into structures and arrays of
/// structures.
bool WalkTree(ValueSource& source, std::string const& path, ValueNode& node, unsigned int depth)
{
    std::vector<MemberInfo> members;
    if (depth > MaxDepth || !source.Describe(path, true, members))
        return false;
    for (MemberInfo& member : members) {
        ValueNode child;
        child.name = member.name;
        child.type = member.type;
        child.count = member.count;
        std::string const memberPath = path.empty() ? child.name : path + "." + child.name;
        bool const structure = member.type == ParameterTypeNames::Structure;
        if (structure && member.array) {
            child.structure = true;
            child.list = true;
            for (unsigned int index = 0; index < member.count; ++index) {
                ValueNode element;
                element.name = "[" + std::to_string(index) + "]";
                element.structure = true;
                WalkTree(source, memberPath + element.name, element, depth + 1);
                child.children.push_back(std::move(element));
            }
        } else if (structure) {
            child.structure = true;
            WalkTree(source, memberPath, child, depth + 1);
        } else {
            child.array = member.array;
            child.value = std::move(member.value);
        }
        node.children.push_back(std::move(child));
    }
    return true;
}

/// The module the branch modePath (numeric) of mode table `table` reads for name, with a
/// reference the caller releases; null when there is none.
ParameterModule* FindModule(ParameterSetManager& manager, unsigned char table,
                            std::string const& modePath, std::string const& name)
{
    PList<TuningMode> branch;
    if (name.empty() || !manager.GetModeBranchFromPath(modePath.c_str(), branch) ||
        branch.Count() == 0)
        return nullptr;
    std::vector<TuningMode> steps;
    for (unsigned int i = 0; i < branch.Count(); ++i)
        steps.push_back(branch[i]);
    return manager.GetModuleInternal(table, name.c_str(), steps.data(),
                                     static_cast<unsigned int>(steps.size()), nullptr, false);
}

} // namespace

bool ReadTree(ValueSource& source, std::string const& path, ValueNode& node)
{
    return WalkTree(source, path, node, 0);
}

bool ReadTree(ParameterSetManager& manager, unsigned char table, std::string const& modePath,
              std::string const& variable, ValueNode& node)
{
    size_t const dot = variable.find('.');
    // One lookup of the module for the whole walk: the manager's value reads would find it
    // again, and parse the branch again, for every structure and every array.
    ParameterModule* module = FindModule(manager, table, modePath, variable.substr(0, dot));
    if (module == nullptr)
        return false;
    ModuleSource source(*module);
    bool const read =
        ReadTree(source, dot == std::string::npos ? "" : variable.substr(dot + 1), node);
    module->Release();
    return read;
}

void Flatten(ValueNode const& node, std::string const& prefix, Items& items)
{
    for (ValueNode const& child : node.children) {
        std::string const name = prefix.empty()
                                     ? child.name
                                     : prefix + (child.name.front() == '[' ? "" : ".") + child.name;
        if (child.structure)
            Flatten(child, name, items);
        else
            items.emplace_back(name, child.value);
    }
}

bool ReadVariable(ParameterSetManager& manager, unsigned char table, std::string const& mode,
                  std::string const& variable, char const* subVariables, Items& items)
{
    std::string result(ResultLength, '\0');
    if (subVariables == nullptr) {
        ValueNode tree;
        if (ReadTree(manager, table, mode, variable, tree)) {
            Flatten(tree, "", items);
            if (!items.empty())
                return true;
        }
        // A module name alone is no path the library's value read takes.
        if (variable.find('.') == std::string::npos)
            return false;
    }
    if (!manager.GetValue(table, mode.c_str(), variable.c_str(), subVariables, &result[0],
                          ResultLength))
        return false;
    items = SplitItems(result.c_str());
    return true;
}

bool CheckedValue(ValueSource& source, std::string const& path, std::string const& text,
                  std::string& libraryText, std::string& reason)
{
    libraryText = text;
    size_t const dot = path.rfind('.');
    std::string const parent = dot == std::string::npos ? "" : path.substr(0, dot);
    std::string leaf = path.substr(dot == std::string::npos ? 0 : dot + 1);
    bool const indexed = leaf.find('[') != std::string::npos;
    leaf = leaf.substr(0, leaf.find('['));

    std::vector<MemberInfo> members;
    if (!source.Describe(parent, false, members))
        return true;
    MemberInfo const* member = nullptr;
    for (MemberInfo const& candidate : members) {
        if (leaf == candidate.name)
            member = &candidate;
    }
    TuningWriter::NumberKind kind = TuningWriter::NumberKind::UInt32;
    if (member == nullptr || !TuningWriter::NumberKindOfTypeName(member->type, kind))
        return true;

    std::vector<std::string> elements;
    if (member->array && !indexed) {
        for (size_t start = 0;;) {
            size_t const comma = text.find(',', start);
            elements.push_back(
                text.substr(start, comma == std::string::npos ? comma : comma - start));
            if (comma == std::string::npos)
                break;
            start = comma + 1;
        }
        if (elements.size() > member->count) {
            reason = std::to_string(elements.size()) + " elements where the array holds " +
                     std::to_string(member->count);
            return false;
        }
    } else {
        elements.push_back(text);
    }
    libraryText.clear();
    for (std::string const& element : elements) {
        TuningWriter::NumberValue value;
        if (!TuningWriter::ParseNumber(kind, element, value, reason))
            return false;
        libraryText += (libraryText.empty() ? "" : ",") + LibraryText(kind, value);
    }
    return true;
}

bool CheckedValue(ParameterSetManager& manager, unsigned char table, std::string const& mode,
                  std::string const& variable, std::string const& name, std::string const& text,
                  std::string& libraryText, std::string& reason)
{
    size_t const dot = variable.find('.');
    ParameterModule* module = FindModule(manager, table, mode, variable.substr(0, dot));
    if (module == nullptr) {
        libraryText = text;
        return true;
    }
    ModuleSource source(*module);
    std::string const below = dot == std::string::npos ? "" : variable.substr(dot + 1) + ".";
    bool const checked = CheckedValue(source, below + name, text, libraryText, reason);
    module->Release();
    return checked;
}

} // namespace ParamCtl
