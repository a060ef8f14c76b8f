// SPDX-License-Identifier: Apache-2.0
// paramctl diff: what differs between two tuning files, as a camera would read them.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "tools/paramctl/commandline.h"
#include "tools/paramctl/commands.h"
#include "tools/paramctl/document/tuningdocument.h"
#include "tools/paramctl/filesnapshot.h"
#include "tools/paramctl/inputfile.h"
#include "tools/paramctl/jsonoutput.h"
#include "tools/paramctl/loadedfile.h"
#include "tools/paramctl/printable.h"

namespace ParamCtl {

namespace {

constexpr char DiffUsage[] =
    "usage: paramctl diff [--json] [--mode PATH] [--table N] A B\n"
    "\n"
    "Compares two tuning files as their own schemas read them (no compiled module needed):\n"
    "header fields, the modes of their mode trees, and the values of every module instance,\n"
    "matched by module, mode table and mode, value by value path. With --mode PATH\n"
    "(\"Default|Sensor.0\" or \"0.0|1.0\") the values are those a camera reads through that\n"
    "branch of mode table N (0 unless told): for each module the deepest mode of the branch\n"
    "that holds it, shown for each file. Exit 0: the same; 1: different; 2: a file cannot be\n"
    "read, or the branch is not in it.\n";

struct ValueChange
{
    std::string path;
    std::string const* a; ///< null where the value is only in B
    std::string const* b;
};

/// One instance, or one module read through a branch, that differs.
struct InstanceChange
{
    std::string module;
    unsigned int table;
    InstanceSnapshot const* a; ///< null where only B has it
    InstanceSnapshot const* b;
    std::vector<ValueChange> values;
};

struct ModeChange
{
    std::pair<unsigned int, std::string> mode;
    std::string const* a;
    std::string const* b;
};

struct Differences
{
    std::vector<std::pair<std::string, std::pair<std::string, std::string>>> header;
    std::vector<ModeChange> modes;
    std::vector<InstanceChange> instances;

    bool Empty() const { return header.empty() && modes.empty() && instances.empty(); }
};

template <typename Map>
typename Map::mapped_type const* Find(Map const& map, typename Map::key_type const& key)
{
    auto const found = map.find(key);
    return found != map.end() ? &found->second : nullptr;
}

/// Adds a change for a and b (either may be null) when they differ.
void CompareInstances(std::string const& module, unsigned int table, InstanceSnapshot const* a,
                      InstanceSnapshot const* b, std::vector<InstanceChange>& changes)
{
    if (a == nullptr && b == nullptr)
        return;
    InstanceChange change{module, table, a, b, {}};
    if (a != nullptr && b != nullptr) {
        std::set<std::pair<std::string, int>> paths;
        for (auto const& leaf : a->values)
            paths.insert(leaf.first);
        for (auto const& leaf : b->values)
            paths.insert(leaf.first);
        for (auto const& path : paths) {
            std::string const* before = Find(a->values, path);
            std::string const* after = Find(b->values, path);
            if (before == nullptr || after == nullptr || *before != *after)
                change.values.push_back({LeafName(path), before, after});
        }
        if (change.values.empty() && a->version == b->version)
            return;
    }
    changes.push_back(std::move(change));
}

std::string const* FindField(FileSnapshot const& snapshot, std::string const& field)
{
    for (auto const& [name, value] : snapshot.header) {
        if (name == field)
            return &value;
    }
    return nullptr;
}

Differences Compare(FileSnapshot const& a, FileSnapshot const& b)
{
    Differences differences;
    // A's fields in their order, then those only B has (a mode table A lacks).
    std::vector<std::string> fields;
    for (auto const* snapshot : {&a, &b}) {
        for (auto const& field : snapshot->header) {
            if (std::find(fields.begin(), fields.end(), field.first) == fields.end())
                fields.push_back(field.first);
        }
    }
    static std::string const none = "(none)";
    for (std::string const& field : fields) {
        std::string const* before = FindField(a, field);
        std::string const* after = FindField(b, field);
        if (before == nullptr || after == nullptr || *before != *after)
            differences.header.push_back(
                {field, {before != nullptr ? *before : none, after != nullptr ? *after : none}});
    }
    std::set<std::pair<unsigned int, std::string>> modes;
    for (auto const& mode : a.modes)
        modes.insert(mode.first);
    for (auto const& mode : b.modes)
        modes.insert(mode.first);
    for (auto const& mode : modes) {
        std::string const* before = Find(a.modes, mode);
        std::string const* after = Find(b.modes, mode);
        if (before == nullptr || after == nullptr || *before != *after)
            differences.modes.push_back({mode, before, after});
    }
    return differences;
}

void CompareAllInstances(FileSnapshot const& a, FileSnapshot const& b, Differences& differences)
{
    std::set<InstanceKey> keys;
    for (auto const& instance : a.instances)
        keys.insert(instance.first);
    for (auto const& instance : b.instances)
        keys.insert(instance.first);
    for (InstanceKey const& key : keys)
        CompareInstances(key.first, key.second.first, Find(a.instances, key),
                         Find(b.instances, key), differences.instances);
}

/// The instance of module that a camera reads through a branch (its modes from the root down,
/// as named paths) in table of a file: the one of the deepest mode that holds one.
InstanceSnapshot const* Supplier(FileSnapshot const& snapshot, unsigned int table,
                                 std::vector<std::string> const& branch, std::string const& module)
{
    for (size_t i = branch.size(); i-- > 0;) {
        if (InstanceSnapshot const* found =
                Find(snapshot.instances, InstanceKey{module, {table, branch[i]}}))
            return found;
    }
    return nullptr;
}

std::string ValueText(std::string const* value)
{
    return value != nullptr ? Printable(*value) : "(none)";
}

std::string InstanceText(InstanceChange const& change, bool throughBranch)
{
    std::string text = Printable(change.module);
    std::string const modeA = change.a != nullptr ? Printable(change.a->mode) : "";
    std::string const modeB = change.b != nullptr ? Printable(change.b->mode) : "";
    if (!throughBranch)
        return text + " in " + (change.a != nullptr ? modeA : modeB) + " (table " +
               std::to_string(change.table) + ")";
    if (change.a != nullptr && change.b != nullptr && modeA != modeB)
        return text + " (from " + modeA + " in A, " + modeB + " in B)";
    return text + " (from " + (change.a != nullptr ? modeA : modeB) + ")";
}

void PrintText(Differences const& differences, bool throughBranch)
{
    for (auto const& [field, values] : differences.header)
        std::printf("header %s: %s -> %s\n", field.c_str(), Printable(values.first).c_str(),
                    Printable(values.second).c_str());
    for (ModeChange const& change : differences.modes) {
        std::printf("mode table %u: %s: ", change.mode.first,
                    Printable(change.mode.second).c_str());
        if (change.a == nullptr || change.b == nullptr)
            std::printf("only in %s\n", change.a != nullptr ? "A" : "B");
        else
            std::printf("%s -> %s\n", Printable(*change.a).c_str(), Printable(*change.b).c_str());
    }
    for (InstanceChange const& change : differences.instances) {
        std::string const name = InstanceText(change, throughBranch);
        if (change.a == nullptr || change.b == nullptr) {
            std::printf("%s: only in %s\n", name.c_str(), change.a != nullptr ? "A" : "B");
            continue;
        }
        if (change.a->version != change.b->version)
            std::printf("%s: version %s -> %s\n", name.c_str(), change.a->version.c_str(),
                        change.b->version.c_str());
        for (ValueChange const& value : change.values)
            std::printf("%s: %s: %s -> %s\n", name.c_str(), Printable(value.path).c_str(),
                        ValueText(value.a).c_str(), ValueText(value.b).c_str());
    }
}

Json Nullable(std::string const* value)
{
    return value != nullptr ? Json(Printable(*value)) : Json(nullptr);
}

Json InstanceJson(InstanceSnapshot const* instance)
{
    if (instance == nullptr)
        return nullptr;
    return {{"mode", Printable(instance->mode)}, {"version", instance->version}};
}

Json JsonDifferences(Differences const& differences, std::string const& a, std::string const& b,
                     std::string const& branch)
{
    Json header = Json::array();
    for (auto const& [field, values] : differences.header)
        header.push_back(
            {{"field", field}, {"a", Printable(values.first)}, {"b", Printable(values.second)}});
    Json modes = Json::array();
    for (ModeChange const& change : differences.modes)
        modes.push_back({{"table", change.mode.first},
                         {"mode", Printable(change.mode.second)},
                         {"a", Nullable(change.a)},
                         {"b", Nullable(change.b)}});
    Json instances = Json::array();
    for (InstanceChange const& change : differences.instances) {
        Json values = Json::array();
        for (ValueChange const& value : change.values)
            values.push_back({{"path", Printable(value.path)},
                              {"a", Nullable(value.a)},
                              {"b", Nullable(value.b)}});
        instances.push_back({{"module", Printable(change.module)},
                             {"table", change.table},
                             {"a", InstanceJson(change.a)},
                             {"b", InstanceJson(change.b)},
                             {"values", std::move(values)}});
    }
    Json document = {{"a", Printable(a)}, {"b", Printable(b)}};
    if (!branch.empty())
        document["mode"] = branch;
    document["same"] = differences.Empty();
    document["header"] = std::move(header);
    document["modes"] = std::move(modes);
    document["instances"] = std::move(instances);
    return document;
}

std::string Lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/// The modes of the branch text (named in any case, or numeric) in table of a file, from the root
/// down, as the file's tree spells them. False with error naming the step the file lacks.
bool BranchOf(FileSnapshot const& snapshot, std::string const& path, unsigned int table,
              std::string const& text, std::vector<std::string>& branch, std::string& error)
{
    bool const numeric = text.find_first_not_of("0123456789.|") == std::string::npos;
    std::string const given = numeric ? NamedModePath(text) : text;
    std::string const named = Lower(given);
    for (size_t end = 0; end != std::string::npos;) {
        end = named.find('|', end + 1);
        std::string const prefix = named.substr(0, end);
        std::string const* spelled = nullptr;
        for (auto const& mode : snapshot.modes) {
            if (mode.first.first == table && Lower(mode.first.second) == prefix)
                spelled = &mode.first.second;
        }
        if (spelled == nullptr) {
            error = Printable(path) + ": no mode '" + Printable(given.substr(0, end)) +
                    "' in mode table " + std::to_string(table);
            return false;
        }
        branch.push_back(*spelled);
    }
    return true;
}

/// The snapshot of the file at path; false after saying why it cannot be read.
bool ReadSnapshot(std::string const& path, FileSnapshot& snapshot)
{
    std::vector<unsigned char> bytes;
    std::string error;
    Json document;
    if (!ReadInputFile(path, bytes, error) || !ReadTuningDocument(bytes, document, error)) {
        std::fprintf(stderr, "paramctl diff: %s: %s\n", Printable(path).c_str(),
                     Printable(error).c_str());
        return false;
    }
    snapshot = SnapshotOf(document);
    return true;
}

/// The differences of two snapshots: every instance, or with branch the modules read through
/// it. False with error for a branch one of them lacks.
bool DiffOf(FileSnapshot const& a, FileSnapshot const& b, std::string const& pathA,
            std::string const& pathB, std::string const* branch, unsigned int table,
            Differences& differences, std::string& error)
{
    differences = Compare(a, b);
    if (branch == nullptr) {
        CompareAllInstances(a, b, differences);
        return true;
    }
    std::vector<std::string> branchA;
    std::vector<std::string> branchB;
    if (!BranchOf(a, pathA, table, *branch, branchA, error) ||
        !BranchOf(b, pathB, table, *branch, branchB, error))
        return false;
    std::set<std::string> modules;
    for (auto const* snapshot : {&a, &b}) {
        for (auto const& [key, instance] : snapshot->instances) {
            if (instance.table == table)
                modules.insert(instance.name);
        }
    }
    for (std::string const& module : modules)
        CompareInstances(module, table, Supplier(a, table, branchA, module),
                         Supplier(b, table, branchB, module), differences.instances);
    return true;
}

} // namespace

bool DiffJson(FileSnapshot const& a, FileSnapshot const& b, std::string const& nameA,
              std::string const& nameB, std::string const* branch, unsigned int table,
              Json& document, std::string& error)
{
    Differences differences;
    if (!DiffOf(a, b, nameA, nameB, branch, table, differences, error))
        return false;
    document = JsonDifferences(differences, nameA, nameB, branch != nullptr ? *branch : "");
    return true;
}

int RunDiff(int argc, char** argv)
{
    CommandLine line({"--json"}, {"--mode", "--table"});
    if (!line.Parse(argc, argv)) {
        std::fprintf(stderr, "paramctl diff: %s\n%s", line.Error().c_str(), DiffUsage);
        return ExitUsage;
    }
    if (line.Has("--help")) {
        std::fputs(DiffUsage, stdout);
        return ExitSuccess;
    }
    std::string const tableText = line.Value("--table", "0");
    char* end = nullptr;
    unsigned long const table = std::strtoul(tableText.c_str(), &end, 10);
    if (line.Operands().size() != 2 || tableText.empty() || *end != '\0' || table > 0xFF ||
        tableText[0] == '-') {
        std::fputs(DiffUsage, stderr);
        return ExitUsage;
    }
    std::string const& pathA = line.Operands()[0];
    std::string const& pathB = line.Operands()[1];
    FileSnapshot snapshotA;
    FileSnapshot snapshotB;
    if (!ReadSnapshot(pathA, snapshotA) || !ReadSnapshot(pathB, snapshotB))
        return ExitUsage;
    std::string const branchText = line.Value("--mode");
    Differences differences;
    std::string error;
    if (!DiffOf(snapshotA, snapshotB, pathA, pathB, line.Has("--mode") ? &branchText : nullptr,
                static_cast<unsigned int>(table), differences, error)) {
        std::fprintf(stderr, "paramctl diff: %s\n", error.c_str());
        return ExitUsage;
    }
    if (line.Has("--json"))
        PrintJson(JsonDifferences(differences, pathA, pathB, branchText));
    else
        PrintText(differences, line.Has("--mode"));
    return differences.Empty() ? ExitSuccess : ExitFailure;
}

} // namespace ParamCtl
