// SPDX-License-Identifier: Apache-2.0
// Value access: a module's values read through a mode branch, and values checked before a set.
#include "tools/paramctl/valueaccess.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

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

bool ReadTree(ParameterSetManager& manager, unsigned char table, std::string const& modePath,
              std::string const& variable, ValueNode& node, unsigned int depth)
{
    // Schemas nest a few levels; a deeper walk means a type that holds itself.
    constexpr unsigned int MaxDepth = 32;
    PList<ParameterParserInfo> records;
    if (depth > MaxDepth || !manager.GetInfo(table, modePath.c_str(), variable.c_str(), records))
        return false;
    for (unsigned int i = 0; i < records.Count(); ++i) {
        ParameterParserInfo const& record = records[i];
        if (record.name == nullptr)
            continue;
        ValueNode child;
        child.name = record.name;
        child.type = record.type != nullptr ? record.type : "";
        child.count = record.count;
        std::string const path = variable + "." + record.name;
        if (record.type == ParameterTypeNames::Structure && record.isArray) {
            child.structure = true;
            child.list = true;
            for (unsigned int index = 0; index < record.count; ++index) {
                ValueNode element;
                element.name = "[" + std::to_string(index) + "]";
                element.structure = true;
                ReadTree(manager, table, modePath, path + element.name, element, depth + 1);
                child.children.push_back(std::move(element));
            }
        } else if (record.type == ParameterTypeNames::Structure) {
            child.structure = true;
            ReadTree(manager, table, modePath, path, child, depth + 1);
        } else if (record.isArray) {
            // An array's whole text, elements joined by ",".
            child.array = true;
            std::string result(ResultLength, '\0');
            if (manager.GetValue(table, modePath.c_str(), path.c_str(), nullptr, &result[0],
                                 ResultLength)) {
                std::string const text = result.c_str();
                child.value = text.substr(text.find('=') + 1);
            }
        } else {
            child.value = record.value;
        }
        node.children.push_back(std::move(child));
    }
    return true;
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
        if (ReadTree(manager, table, mode, variable, tree, 0)) {
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
