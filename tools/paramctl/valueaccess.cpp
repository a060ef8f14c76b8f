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

/// Reads the members below path (empty: the module's top level) into node's children,
/// recursing into structures and arrays of structures. Each level asks the module itself, once;
/// an array of numbers comes whole from one read.
bool WalkTree(ParameterModule& module, std::string const& path, ValueNode& node, unsigned int depth)
{
    PList<ParameterParserInfo> records;
    if (depth > MaxDepth || !module.GetInfo(path.empty() ? nullptr : path.c_str(), records))
        return false;
    for (unsigned int i = 0; i < records.Count(); ++i) {
        ParameterParserInfo const& record = records[i];
        if (record.name == nullptr)
            continue;
        ValueNode child;
        child.name = record.name;
        child.type = record.type != nullptr ? record.type : "";
        child.count = record.count;
        std::string const memberPath = path.empty() ? child.name : path + "." + child.name;
        if (record.type == ParameterTypeNames::Structure && record.isArray) {
            child.structure = true;
            child.list = true;
            for (unsigned int index = 0; index < record.count; ++index) {
                ValueNode element;
                element.name = "[" + std::to_string(index) + "]";
                element.structure = true;
                WalkTree(module, memberPath + element.name, element, depth + 1);
                child.children.push_back(std::move(element));
            }
        } else if (record.type == ParameterTypeNames::Structure) {
            child.structure = true;
            WalkTree(module, memberPath, child, depth + 1);
        } else if (record.isArray) {
            child.array = true;
            child.value = ArrayText(module, memberPath, record.count);
        } else {
            child.value = record.value;
        }
        node.children.push_back(std::move(child));
    }
    return true;
}

} // namespace

bool ReadTree(ParameterSetManager& manager, unsigned char table, std::string const& modePath,
              std::string const& variable, ValueNode& node)
{
    size_t const dot = variable.find('.');
    std::string const name = variable.substr(0, dot);
    std::string const path = dot == std::string::npos ? "" : variable.substr(dot + 1);
    PList<TuningMode> branch;
    if (name.empty() || !manager.GetModeBranchFromPath(modePath.c_str(), branch) ||
        branch.Count() == 0)
        return false;
    std::vector<TuningMode> steps;
    for (unsigned int i = 0; i < branch.Count(); ++i)
        steps.push_back(branch[i]);
    // One lookup of the module for the whole walk: the manager's value reads would find it
    // again, and parse the branch again, for every structure and every array.
    ParameterModule* module = manager.GetModuleInternal(
        table, name.c_str(), steps.data(), static_cast<unsigned int>(steps.size()), nullptr, false);
    if (module == nullptr)
        return false;
    bool const read = WalkTree(*module, path, node, 0);
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

bool CheckedValue(ParameterSetManager& manager, unsigned char table, std::string const& mode,
                  std::string const& variable, std::string const& name, std::string const& text,
                  std::string& libraryText, std::string& reason)
{
    libraryText = text;
    size_t const dot = name.rfind('.');
    std::string const parent =
        dot == std::string::npos ? variable : variable + "." + name.substr(0, dot);
    std::string leaf = name.substr(dot == std::string::npos ? 0 : dot + 1);
    bool const indexed = leaf.find('[') != std::string::npos;
    leaf = leaf.substr(0, leaf.find('['));

    PList<ParameterParserInfo> records;
    if (!manager.GetInfo(table, mode.c_str(), parent.c_str(), records))
        return true;
    ParameterParserInfo const* member = nullptr;
    for (unsigned int i = 0; i < records.Count(); ++i) {
        if (records[i].name != nullptr && leaf == records[i].name)
            member = &records[i];
    }
    TuningWriter::NumberKind kind = TuningWriter::NumberKind::UInt32;
    if (member == nullptr || member->type == nullptr ||
        !TuningWriter::NumberKindOfTypeName(member->type, kind))
        return true;

    std::vector<std::string> elements;
    if (member->isArray && !indexed) {
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

} // namespace ParamCtl
