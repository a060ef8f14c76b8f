// SPDX-License-Identifier: Apache-2.0
// FileSnapshot: the header, mode trees and module values of a tuning file's document.
#include "tools/paramctl/filesnapshot.h"

namespace ParamCtl {

namespace {

// Schemas nest a few levels; the walk stops well below any stack limit on a hostile document.
constexpr unsigned int MaxDepth = 64;

std::string TextOf(Json const& value)
{
    return value.is_string() ? value.get<std::string>() : value.dump();
}

// A counted or optional member: {"entry": id, "values": [...]}; a text: {"entry": id, "text"}.
bool IsPointed(Json const& value, char const* key)
{
    return value.is_object() && value.size() == 2 && value.contains("entry") && value.contains(key);
}

void Flatten(Json const& value, std::string const& path, unsigned int depth, ModuleLeaves& leaves);

void FlattenElements(Json const& elements, std::string const& path, unsigned int depth,
                     ModuleLeaves& leaves)
{
    for (size_t i = 0; i < elements.size(); ++i) {
        Json const& element = elements[i];
        std::pair<std::string, int> const key{path, static_cast<int>(i)};
        if (element.is_object() && !IsPointed(element, "text"))
            Flatten(element, LeafName(key), depth + 1, leaves);
        else
            leaves[key] = IsPointed(element, "text") ? TextOf(element["text"]) : TextOf(element);
    }
}

void Flatten(Json const& value, std::string const& path, unsigned int depth, ModuleLeaves& leaves)
{
    if (depth > MaxDepth)
        return;
    if (IsPointed(value, "values")) {
        FlattenElements(value["values"], path, depth, leaves);
    } else if (IsPointed(value, "text")) {
        leaves[{path, -1}] = TextOf(value["text"]);
    } else if (value.is_object()) {
        for (auto const& member : value.items())
            Flatten(member.value(), path.empty() ? member.key() : path + "." + member.key(),
                    depth + 1, leaves);
    } else if (value.is_array()) {
        FlattenElements(value, path, depth, leaves);
    } else {
        leaves[{path, -1}] = TextOf(value);
    }
}

// Every node of a table's tree, by named mode, with what else the tree says of it.
void AddModes(Json const& nodes, unsigned int table, unsigned int depth, FileSnapshot& snapshot)
{
    if (!nodes.is_array() || depth > MaxDepth)
        return;
    for (Json const& node : nodes) {
        std::string& description = snapshot.modes[{table, node.value("mode", "")}];
        if (description.empty())
            description = node.value("resident", false) ? "resident" : "not resident";
        if (node.value("pipeline", 0u) != 0)
            description += ", pipeline " + std::to_string(node.value("pipeline", 0u));
        if (node.contains("link"))
            description += ", link " + TextOf(node["link"]);
        AddModes(node.value("children", Json::array()), table, depth + 1, snapshot);
    }
}

} // namespace

FileSnapshot SnapshotOf(Json const& document)
{
    FileSnapshot snapshot;
    Json const header = document.value("header", Json::object());
    for (char const* field : {"tag", "version", "createdBy", "binaryTag", "flags"})
        snapshot.header.push_back(
            {field, header.contains(field) ? TextOf(header[field]) : std::string()});
    Json const tables = document.value("modeTables", Json::array());
    for (size_t table = 0; table < tables.size(); ++table) {
        if (tables[table].contains("name"))
            snapshot.header.push_back(
                {"mode table " + std::to_string(table) + " name", TextOf(tables[table]["name"])});
        AddModes(tables[table].value("tree", Json::array()), static_cast<unsigned int>(table), 0,
                 snapshot);
    }
    for (Json const& row : document.value("symbols", Json::array())) {
        if (!row.contains("table"))
            continue;
        InstanceSnapshot instance;
        instance.name = row.value("name", row.value("nameHash", ""));
        instance.table = row.value("table", 0u);
        instance.mode = row.value("mode", "");
        instance.version = row.value("version", "");
        if (row.contains("values"))
            Flatten(row["values"], "", 0, instance.values);
        else
            instance.values[{"(bytes)", -1}] = row.value("hex", "");
        snapshot.instances[{instance.name, {instance.table, instance.mode}}] = std::move(instance);
    }
    return snapshot;
}

} // namespace ParamCtl
