// SPDX-License-Identifier: Apache-2.0
// paramctl get, set and dump: module values by mode and variable name, as live tuning reads them.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/parametervaluepath.h"
#include "tools/paramctl/commandline.h"
#include "tools/paramctl/commands.h"
#include "tools/paramctl/jsonwriter.h"
#include "tools/paramctl/loadedfile.h"

namespace ParamCtl {

namespace {

constexpr char GetUsage[] =
    "usage: paramctl get [--json] [--table N] FILE MODEPATH VARIABLE [SUBVARIABLES]\n"
    "\n"
    "Reads VARIABLE, a module instance name with an optional value path behind it\n"
    "(\"t2tconfigdata\", \"varitonalTrackerROIMixer.GazeFocus\"), in the mode branch MODEPATH of\n"
    "mode table N (0 unless told). MODEPATH starts at the root and is named\n"
    "(\"Default|Sensor.0\") or numeric (\"0.0|1.0\"); the deepest mode of the branch that holds\n"
    "the module gives the values. A structure is read member by member, an array as its\n"
    "elements joined by \",\". SUBVARIABLES, a comma list of names under VARIABLE, reads just\n"
    "those. Prints one \"name=value\" a line.\n";

constexpr char SetUsage[] =
    "usage: paramctl set [--json] [--table N] FILE MODEPATH VARIABLE NAME=VALUE...\n"
    "\n"
    "Sets members NAME below VARIABLE in the mode branch MODEPATH (see 'paramctl get --help'),\n"
    "in memory only: FILE is not written. An array takes a comma list, or one element with\n"
    "NAME[i]. Prints the members read back after the change.\n";

constexpr char DumpUsage[] =
    "usage: paramctl dump [--json] [--table N] [--mode PATH] [--module NAME] FILE\n"
    "\n"
    "Prints the whole value tree of the modules of FILE. Without --mode each module record is\n"
    "read in the mode that holds it; with --mode every module instance of the file is read\n"
    "through that branch (the deepest mode holding it wins), in mode table N. --module keeps\n"
    "only the named instance. Modules without value access show no values.\n";

// Room for the text of a whole structure read.
constexpr unsigned int ResultLength = 1 << 20;

/// The options every value command shares, after parsing.
struct ValueOptions
{
    bool json = false;
    unsigned char table = 0;
};

/// Parses the flags and options of a value command; returns an exit code when the command ends
/// here (help, usage error), -1 to go on.
int ParseValueLine(CommandLine& line, int argc, char** argv, char const* command, char const* usage,
                   size_t minOperands, size_t maxOperands, ValueOptions& options)
{
    if (!line.Parse(argc, argv)) {
        std::fprintf(stderr, "paramctl %s: %s\n%s", command, line.Error().c_str(), usage);
        return ExitUsage;
    }
    if (line.Has("--help")) {
        std::fputs(usage, stdout);
        return ExitSuccess;
    }
    size_t const count = line.Operands().size();
    if (count < minOperands || count > maxOperands) {
        std::fputs(usage, stderr);
        return ExitUsage;
    }
    options.json = line.Has("--json");
    if (line.Has("--table")) {
        std::string const text = line.Value("--table");
        char* end = nullptr;
        unsigned long const table = std::strtoul(text.c_str(), &end, 10);
        if (text.empty() || *end != '\0' || table > 0xFF) {
            std::fprintf(stderr, "paramctl %s: --table needs a table index from 0 to 255\n",
                         command);
            return ExitUsage;
        }
        options.table = static_cast<unsigned char>(table);
    }
    return -1;
}

/// "a=1;b=2,3" as (name, value) pairs.
std::vector<std::pair<std::string, std::string>> SplitItems(std::string const& text)
{
    std::vector<std::pair<std::string, std::string>> items;
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

void PrintItems(std::string const& variable, std::string const& modePath, std::string const& text,
                bool json)
{
    auto const items = SplitItems(text);
    if (!json) {
        for (auto const& [name, value] : items)
            std::printf("%s=%s\n", name.c_str(), value.c_str());
        return;
    }
    JsonWriter writer(std::cout);
    writer.BeginObject().Field("variable", variable).Field("mode", NamedModePath(modePath));
    writer.Key("values").BeginObject();
    for (auto const& [name, value] : items)
        writer.Field(name, value);
    writer.EndObject().EndObject();
}

/// One level of a module's value tree.
struct ValueNode
{
    std::string name;
    std::string value;
    bool structure = false;
    bool list = false; ///< an array of structures: children are its elements
    std::vector<ValueNode> children;
};

/// Reads the members below variable ("<module>" or "<module>.<path>") into node's children,
/// recursing into structures. False when the manager cannot describe variable.
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

void PrintTree(ValueNode const& node, std::string const& indent)
{
    for (ValueNode const& child : node.children) {
        if (child.structure) {
            std::printf("%s%s\n", indent.c_str(), child.name.c_str());
            PrintTree(child, indent + "  ");
        } else {
            std::printf("%s%s = %s\n", indent.c_str(), child.name.c_str(), child.value.c_str());
        }
    }
}

void JsonTree(JsonWriter& json, ValueNode const& node)
{
    if (node.list) {
        json.BeginArray();
        for (ValueNode const& element : node.children)
            JsonTree(json, element);
        json.EndArray();
        return;
    }
    if (!node.structure) {
        json.String(node.value);
        return;
    }
    json.BeginObject();
    for (ValueNode const& child : node.children) {
        json.Key(child.name);
        JsonTree(json, child);
    }
    json.EndObject();
}

} // namespace

int RunGet(int argc, char** argv)
{
    CommandLine line({"--json"}, {"--table"});
    ValueOptions options;
    int const code = ParseValueLine(line, argc, argv, "get", GetUsage, 3, 4, options);
    if (code >= 0)
        return code;
    std::vector<std::string> const& operands = line.Operands();
    LoadedFile loaded;
    if (!OpenLoadedFile(operands[0], "get", loaded))
        return ExitFailure;
    std::string const modePath = NumericModePath(loaded.manager, operands[1]);
    std::string const& variable = operands[2];
    char const* subVariables = operands.size() == 4 ? operands[3].c_str() : nullptr;

    std::string result(ResultLength, '\0');
    if (!loaded.manager.GetValue(options.table, modePath.c_str(), variable.c_str(), subVariables,
                                 &result[0], ResultLength)) {
        std::fprintf(stderr, "paramctl get: %s: %s not found in mode %s\n", operands[0].c_str(),
                     subVariables != nullptr ? (variable + " " + subVariables).c_str()
                                             : variable.c_str(),
                     operands[1].c_str());
        return ExitFailure;
    }
    PrintItems(variable, modePath, result.c_str(), options.json);
    return ExitSuccess;
}

int RunSet(int argc, char** argv)
{
    CommandLine line({"--json"}, {"--table"});
    ValueOptions options;
    int const code = ParseValueLine(line, argc, argv, "set", SetUsage, 4, 1024, options);
    if (code >= 0)
        return code;
    std::vector<std::string> const& operands = line.Operands();
    std::vector<std::pair<std::string, std::string>> changes;
    for (size_t i = 3; i < operands.size(); ++i) {
        size_t const equals = operands[i].find('=');
        if (equals == std::string::npos || equals == 0) {
            std::fprintf(stderr, "paramctl set: '%s' is not NAME=VALUE\n%s", operands[i].c_str(),
                         SetUsage);
            return ExitUsage;
        }
        changes.emplace_back(operands[i].substr(0, equals), operands[i].substr(equals + 1));
    }
    LoadedFile loaded;
    if (!OpenLoadedFile(operands[0], "set", loaded))
        return ExitFailure;
    std::string const modePath = NumericModePath(loaded.manager, operands[1]);
    std::string const& variable = operands[2];

    std::string names;
    for (auto const& [name, value] : changes) {
        if (!loaded.manager.SetValue(options.table, modePath.c_str(), variable.c_str(),
                                     name.c_str(), value.c_str())) {
            std::fprintf(stderr, "paramctl set: %s: cannot set %s.%s to '%s' in mode %s\n",
                         operands[0].c_str(), variable.c_str(), name.c_str(), value.c_str(),
                         operands[1].c_str());
            return ExitFailure;
        }
        names += (names.empty() ? "" : ",") + name;
    }
    std::string result(ResultLength, '\0');
    if (!loaded.manager.GetValue(options.table, modePath.c_str(), variable.c_str(), names.c_str(),
                                 &result[0], ResultLength)) {
        std::fprintf(stderr, "paramctl set: %s: the values set cannot be read back\n",
                     operands[0].c_str());
        return ExitFailure;
    }
    PrintItems(variable, modePath, result.c_str(), options.json);
    return ExitSuccess;
}

int RunDump(int argc, char** argv)
{
    CommandLine line({"--json"}, {"--table", "--mode", "--module"});
    ValueOptions options;
    int const code = ParseValueLine(line, argc, argv, "dump", DumpUsage, 1, 1, options);
    if (code >= 0)
        return code;
    LoadedFile loaded;
    if (!OpenLoadedFile(line.Operands()[0], "dump", loaded))
        return ExitFailure;
    ToolSetManager& manager = loaded.manager;
    std::string const onlyModule = line.Value("--module");

    // What to read: each record in its own mode, or each instance once through --mode.
    struct Target
    {
        std::string name;
        unsigned char table;
        std::string modePath;
    };
    std::vector<Target> targets;
    for (ModuleRecord const& record : ModuleRecords(manager)) {
        if (!record.known || (!onlyModule.empty() && record.name != onlyModule))
            continue;
        if (!line.Has("--mode")) {
            targets.push_back(
                {record.name, static_cast<unsigned char>(record.modeTableIndex), record.modePath});
            continue;
        }
        bool seen = false;
        for (Target const& target : targets)
            seen = seen || target.name == record.name;
        if (!seen)
            targets.push_back(
                {record.name, options.table, NumericModePath(manager, line.Value("--mode"))});
    }
    if (targets.empty()) {
        std::fprintf(stderr, "paramctl dump: %s: no module %s in the file\n", loaded.path.c_str(),
                     onlyModule.empty() ? "of a known kind" : onlyModule.c_str());
        return ExitFailure;
    }

    JsonWriter json(std::cout);
    if (options.json)
        json.BeginObject().Key("modules").BeginArray();
    for (Target const& target : targets) {
        ValueNode tree;
        tree.structure = true;
        bool const read = ReadTree(manager, target.table, target.modePath, target.name, tree, 0);
        if (options.json) {
            json.BeginObject()
                .Field("name", target.name)
                .Field("table", static_cast<uint32_t>(target.table))
                .Field("mode", NamedModePath(target.modePath))
                .Field("valueAccess", read);
            json.Key("values");
            JsonTree(json, tree);
            json.EndObject();
            continue;
        }
        std::printf("%s (table %u, %s)%s\n", target.name.c_str(), target.table,
                    NamedModePath(target.modePath).c_str(), read ? "" : ": no value access");
        PrintTree(tree, "  ");
    }
    if (options.json)
        json.EndArray().EndObject();
    return ExitSuccess;
}

} // namespace ParamCtl
