// SPDX-License-Identifier: Apache-2.0
// paramctl get, set and dump: module values by mode and variable name, as live tuning reads them.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "tools/paramctl/commandline.h"
#include "tools/paramctl/commands.h"
#include "tools/paramctl/inputfile.h"
#include "tools/paramctl/jsonoutput.h"
#include "tools/paramctl/loadedfile.h"
#include "tools/paramctl/modepath.h"
#include "tools/paramctl/printable.h"
#include "tools/paramctl/tunedfile.h"
#include "tools/paramctl/valueaccess.h"

namespace ParamCtl {

namespace {

constexpr char GetUsage[] =
    "usage: paramctl get [--json] [--table N] [--lenient] FILE MODEPATH VARIABLE [SUBVARIABLES]\n"
    "\n"
    "Reads VARIABLE, a module instance name with an optional value path behind it\n"
    "(\"t2tconfigdata\", \"varitonalTrackerROIMixer.GazeFocus\"), in the mode branch MODEPATH of\n"
    "mode table N (0 unless told). MODEPATH starts at the root and is named\n"
    "(\"Default|Sensor.0\") or numeric (\"0.0|1.0\"); each step must name a mode below the one\n"
    "before it, unless --lenient lets the library read the deepest mode that exists. The\n"
    "deepest mode of the branch that holds the module gives the values. A module or structure\n"
    "is read member by member, nested members by their dotted paths, an array as its elements\n"
    "joined by \",\". SUBVARIABLES, a comma list of names under VARIABLE, reads just those.\n"
    "Prints \"# mode BRANCH\" (the branch resolved), then one \"name=value\" a line.\n";

constexpr char SetUsage[] =
    "usage: paramctl set [--json] [--table N] [--lenient] [-o OUT] FILE MODEPATH VARIABLE\n"
    "                    NAME=VALUE...\n"
    "\n"
    "Sets members NAME below VARIABLE in the mode branch MODEPATH (see 'paramctl get --help'),\n"
    "in memory; FILE is never written. An array takes a comma list, or one element with\n"
    "NAME[i]. Each value must suit its member's type, by the rule 'paramctl pack' applies:\n"
    "integers in decimal or 0x hexadecimal within range, floating point values finite and\n"
    "within range. Prints the branch resolved and the members read back after the change.\n"
    "-o OUT writes FILE with the changed values to OUT: each in the file's own encoding of its\n"
    "member, every other byte as it was, the checksum recomputed. A change the file cannot\n"
    "hold (a member its schema lacks, a value outside the file's type) writes nothing.\n";

constexpr char DumpUsage[] =
    "usage: paramctl dump [--json [--compact]] [--table N] [--mode PATH] [--lenient]\n"
    "                     [--module NAME] FILE\n"
    "\n"
    "Prints the whole value tree of the modules of FILE. Without --mode each module record is\n"
    "read in the mode that holds it; with --mode every module instance of the file is read\n"
    "through that branch (the deepest mode holding it wins), in mode table N; its steps are\n"
    "checked as 'paramctl get' checks them. --module keeps only the named instance. Modules\n"
    "without value access show no values.\n"
    "\n"
    "--json alone prints the whole file as one document, read by the schema the file carries\n"
    "(no compiled module needed): header, sections, definitions, mode tables and trees, symbol\n"
    "and data tables, and every module instance's values under its mode path. The shape is\n"
    "tools/paramctl/tuningfile.schema.json; 'paramctl pack --json' writes the file back.\n"
    "Exits 1, after the document, when the file has problems (listed in \"problems\").\n"
    "--compact writes it on one line, a fifth of the size for files of large arrays.\n";

/// The options every value command shares, after parsing.
struct ValueOptions
{
    bool json = false;
    bool lenient = false;
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
    options.lenient = line.Has("--lenient");
    if (line.Has("--table")) {
        std::string const text = line.Value("--table");
        char* end = nullptr;
        unsigned long const table = std::strtoul(text.c_str(), &end, 10);
        if (text.empty() || text[0] == '-' || *end != '\0' || table > 0xFF) {
            std::fprintf(stderr, "paramctl %s: --table needs a table index from 0 to 255\n",
                         command);
            return ExitUsage;
        }
        options.table = static_cast<unsigned char>(table);
    }
    return -1;
}

/// The branch a value command reads, or false with the reason printed.
bool ResolveFor(LoadedFile& loaded, char const* command, ValueOptions const& options,
                std::string const& modePath, ResolvedMode& resolved)
{
    std::string error;
    if (ResolveModePath(loaded.manager, options.table, modePath, options.lenient, resolved, error))
        return true;
    std::fprintf(stderr, "paramctl %s: %s: %s\n", command, Printable(loaded.path).c_str(),
                 error.c_str());
    return false;
}

/// saved: what set -o wrote, shown in the JSON document; null when nothing was written.
void PrintItems(std::string const& variable, unsigned char table, ResolvedMode const& mode,
                Items const& items, bool json, Json saved = nullptr)
{
    if (!json) {
        std::printf("# mode %s\n", mode.named.c_str());
        for (auto const& [name, value] : items)
            std::printf("%s=%s\n", Printable(name).c_str(), Printable(value).c_str());
        return;
    }
    Json values = Json::object();
    for (auto const& [name, value] : items)
        values[Printable(name)] = Printable(value);
    Json document = {{"variable", Printable(variable)},
                     {"table", table},
                     {"mode", mode.named},
                     {"values", std::move(values)}};
    if (!saved.is_null())
        document["saved"] = std::move(saved);
    PrintJson(document);
}

void PrintTree(ValueNode const& node, std::string const& indent)
{
    for (ValueNode const& child : node.children) {
        if (child.structure) {
            std::printf("%s%s\n", indent.c_str(), Printable(child.name).c_str());
            PrintTree(child, indent + "  ");
        } else {
            std::printf("%s%s = %s\n", indent.c_str(), Printable(child.name).c_str(),
                        Printable(child.value).c_str());
        }
    }
}

Json JsonTree(ValueNode const& node)
{
    if (node.list) {
        Json elements = Json::array();
        for (ValueNode const& element : node.children)
            elements.push_back(JsonTree(element));
        return elements;
    }
    if (!node.structure)
        return Printable(node.value);
    Json members = Json::object();
    for (ValueNode const& child : node.children)
        members[Printable(child.name)] = JsonTree(child);
    return members;
}

} // namespace

int RunGet(int argc, char** argv)
{
    CommandLine line({"--json", "--lenient"}, {"--table"});
    ValueOptions options;
    int const code = ParseValueLine(line, argc, argv, "get", GetUsage, 3, 4, options);
    if (code >= 0)
        return code;
    std::vector<std::string> const& operands = line.Operands();
    LoadedFile loaded;
    ResolvedMode mode;
    if (!OpenLoadedFile(operands[0], "get", loaded) ||
        !ResolveFor(loaded, "get", options, operands[1], mode))
        return ExitFailure;
    std::string const& variable = operands[2];
    char const* subVariables = operands.size() == 4 ? operands[3].c_str() : nullptr;

    Items items;
    if (!ReadVariable(loaded.manager, options.table, mode.numeric, variable, subVariables, items)) {
        std::string const asked =
            subVariables != nullptr ? variable + " " + subVariables : variable;
        std::fprintf(stderr, "paramctl get: %s: %s not found in mode %s\n",
                     Printable(loaded.path).c_str(), Printable(asked).c_str(), mode.named.c_str());
        return ExitFailure;
    }
    PrintItems(variable, options.table, mode, items, options.json);
    return LoadedExit(loaded, "get");
}

namespace {

/// Writes the file of loaded, with what its manager now holds, to out, and tells what in saved.
/// False after saying why.
bool SaveSet(LoadedFile& loaded, std::string const& out, Json& saved)
{
    char const* path = loaded.path.c_str();
    std::vector<unsigned char> bytes;
    std::string reason;
    TunedChanges changes;
    if (!ReadInputFile(loaded.path, bytes, reason) ||
        !TuneFile(bytes, loaded.manager, changes, reason)) {
        std::fprintf(stderr, "paramctl set: %s: cannot save the changes: %s\n",
                     Printable(path).c_str(), Printable(reason).c_str());
        return false;
    }
    for (std::string const& refused : changes.refused)
        std::fprintf(stderr, "paramctl set: %s: the file cannot hold %s\n", Printable(path).c_str(),
                     Printable(refused).c_str());
    if (!changes.refused.empty())
        return false;
    if (!WriteFileAtomically(out, bytes, reason)) {
        std::fprintf(stderr, "paramctl set: cannot write %s: %s\n", Printable(out).c_str(),
                     reason.c_str());
        return false;
    }
    saved = {{"file", Printable(out)}, {"values", changes.values}};
    return true;
}

} // namespace

int RunSet(int argc, char** argv)
{
    CommandLine line({"--json", "--lenient"}, {"--table", "-o"});
    ValueOptions options;
    int const code = ParseValueLine(line, argc, argv, "set", SetUsage, 4, 1024, options);
    if (code >= 0)
        return code;
    std::vector<std::string> const& operands = line.Operands();
    std::vector<std::pair<std::string, std::string>> changes;
    for (size_t i = 3; i < operands.size(); ++i) {
        size_t const equals = operands[i].find('=');
        if (equals == std::string::npos || equals == 0) {
            std::fprintf(stderr, "paramctl set: '%s' is not NAME=VALUE\n%s",
                         Printable(operands[i]).c_str(), SetUsage);
            return ExitUsage;
        }
        changes.emplace_back(operands[i].substr(0, equals), operands[i].substr(equals + 1));
    }
    LoadedFile loaded;
    ResolvedMode mode;
    if (!OpenLoadedFile(operands[0], "set", loaded) ||
        !ResolveFor(loaded, "set", options, operands[1], mode))
        return ExitFailure;
    std::string const& variable = operands[2];
    ToolSetManager& manager = loaded.manager;
    char const* path = loaded.path.c_str();

    std::string names;
    for (auto const& [name, value] : changes) {
        std::string text;
        std::string reason;
        if (!CheckedValue(manager, options.table, mode.numeric, variable, name, value, text,
                          reason)) {
            std::fprintf(stderr, "paramctl set: %s: value of %s.%s: %s\n", Printable(path).c_str(),
                         Printable(variable).c_str(), Printable(name).c_str(),
                         Printable(reason).c_str());
            return ExitFailure;
        }
        if (!manager.SetValue(options.table, mode.numeric.c_str(), variable.c_str(), name.c_str(),
                              text.c_str())) {
            std::fprintf(stderr, "paramctl set: %s: cannot set %s.%s to '%s' in mode %s\n",
                         Printable(path).c_str(), Printable(variable).c_str(),
                         Printable(name).c_str(), Printable(value).c_str(), mode.named.c_str());
            return ExitFailure;
        }
        names += (names.empty() ? "" : ",") + name;
    }
    Items items;
    if (!ReadVariable(manager, options.table, mode.numeric, variable, names.c_str(), items)) {
        std::fprintf(stderr, "paramctl set: %s: the values set cannot be read back\n",
                     Printable(path).c_str());
        return ExitFailure;
    }
    Json saved;
    if (line.Has("-o") && !SaveSet(loaded, line.Value("-o"), saved))
        return ExitFailure;
    PrintItems(variable, options.table, mode, items, options.json, saved);
    if (!options.json && !saved.is_null())
        std::printf("# saved %u values to %s\n", saved["values"].get<unsigned int>(),
                    Printable(line.Value("-o")).c_str());
    return LoadedExit(loaded, "set");
}

int RunDump(int argc, char** argv)
{
    CommandLine line({"--json", "--lenient", "--compact"}, {"--table", "--mode", "--module"});
    ValueOptions options;
    int const code = ParseValueLine(line, argc, argv, "dump", DumpUsage, 1, 1, options);
    if (code >= 0)
        return code;
    if (options.json && !line.Has("--mode") && !line.Has("--module"))
        return DumpDocument(line.Operands()[0], line.Has("--compact"));
    LoadedFile loaded;
    if (!OpenLoadedFile(line.Operands()[0], "dump", loaded))
        return ExitFailure;
    ToolSetManager& manager = loaded.manager;
    std::string const onlyModule = line.Value("--module");
    ResolvedMode mode;
    if (line.Has("--mode") && !ResolveFor(loaded, "dump", options, line.Value("--mode"), mode))
        return ExitFailure;

    // What to read: each record in its own mode, or each instance once through --mode.
    struct Target
    {
        std::string name;
        unsigned char table;
        std::string modePath;
        std::string named;
    };
    std::vector<Target> targets;
    for (ModuleRecord const& record : ModuleRecords(manager)) {
        if (!record.known || (!onlyModule.empty() && record.name != onlyModule))
            continue;
        if (!line.Has("--mode")) {
            targets.push_back({record.name, static_cast<unsigned char>(record.modeTableIndex),
                               record.modePath, NamedModePath(record.modePath)});
            continue;
        }
        bool seen = false;
        for (Target const& target : targets)
            seen = seen || target.name == record.name;
        if (!seen)
            targets.push_back({record.name, options.table, mode.numeric, mode.named});
    }
    if (targets.empty()) {
        std::fprintf(stderr, "paramctl dump: %s: no module %s in the file\n",
                     Printable(loaded.path).c_str(),
                     onlyModule.empty() ? "of a known kind" : Printable(onlyModule).c_str());
        return ExitFailure;
    }

    Json modules = Json::array();
    for (Target const& target : targets) {
        ValueNode tree;
        tree.structure = true;
        bool const read = ReadTree(manager, target.table, target.modePath, target.name, tree);
        if (options.json) {
            modules.push_back({{"name", target.name},
                               {"table", target.table},
                               {"mode", Printable(target.named)},
                               {"valueAccess", read},
                               {"values", JsonTree(tree)}});
            continue;
        }
        std::printf("%s (table %u, %s)%s\n", target.name.c_str(), target.table,
                    Printable(target.named).c_str(), read ? "" : ": no value access");
        PrintTree(tree, "  ");
    }
    if (options.json)
        PrintJson({{"modules", std::move(modules)}});
    return LoadedExit(loaded, "dump");
}

} // namespace ParamCtl
