// SPDX-License-Identifier: Apache-2.0
// paramctl diff: what differs between two tuning files, as a camera would read them.
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "parameterparser/moduledata.h"
#include "parameterparser/parametermodule.h"
#include "tools/paramctl/commandline.h"
#include "tools/paramctl/commands.h"
#include "tools/paramctl/filesnapshot.h"
#include "tools/paramctl/jsonoutput.h"
#include "tools/paramctl/loadedfile.h"
#include "tools/paramctl/modepath.h"
#include "tools/paramctl/printable.h"

namespace ParamCtl {

namespace {

constexpr char DiffUsage[] =
    "usage: paramctl diff [--json] [--mode PATH] [--table N] A B\n"
    "\n"
    "Compares two tuning files: their header fields, the modes of their mode trees, and the\n"
    "values of every module instance, matched by module, mode table and mode, value by value\n"
    "path. With --mode PATH the values are those a camera reads through that branch of mode\n"
    "table N (0 unless told): for each module the deepest mode of the branch that holds it,\n"
    "shown for each file. Values are read as this build reads them: members it does not know\n"
    "are not compared. Exit 0: the same; 1: different; 2: a file cannot be read or the branch\n"
    "is not in it.\n";

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

Differences Compare(FileSnapshot const& a, FileSnapshot const& b)
{
    Differences differences;
    for (size_t i = 0; i < a.header.size() && i < b.header.size(); ++i) {
        if (a.header[i].second != b.header[i].second)
            differences.header.push_back(
                {a.header[i].first, {a.header[i].second, b.header[i].second}});
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

/// The instance of module that a camera reads through branch in table of file: the library's
/// own lookup, which takes the deepest mode of the branch holding one.
InstanceSnapshot const* Supplier(LoadedFile& file, FileSnapshot const& snapshot,
                                 unsigned char table, PList<TuningMode> const& branch,
                                 std::string const& module)
{
    ParameterModule* found = file.manager.GetModuleInternal(table, module.c_str(), branch.Items(),
                                                            branch.Count(), nullptr, false);
    if (found == nullptr || found->data == nullptr)
        return nullptr;
    std::string const mode =
        NamedModePath(found->data->ModePath != nullptr ? found->data->ModePath : "");
    return Find(snapshot.instances, InstanceKey{module, {table, mode}});
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

void PrintJsonDifferences(Differences const& differences, std::string const& a,
                          std::string const& b, std::string const& branch)
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
    PrintJson(document);
}

/// The branch named by text in table of file, as the library takes it; false after saying why.
bool BranchOf(LoadedFile& file, unsigned char table, std::string const& text,
              PList<TuningMode>& branch)
{
    ResolvedMode resolved;
    std::string error;
    if (ResolveModePath(file.manager, table, text, false, resolved, error) &&
        file.manager.GetModeBranchFromPath(resolved.numeric.c_str(), branch))
        return true;
    std::fprintf(stderr, "paramctl diff: %s: %s\n", Printable(file.path).c_str(),
                 error.empty() ? "the branch cannot be read" : error.c_str());
    return false;
}

} // namespace

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
    LoadedFile a;
    LoadedFile b;
    if (!OpenLoadedFile(line.Operands()[0], "diff", a) ||
        !OpenLoadedFile(line.Operands()[1], "diff", b))
        return ExitUsage;
    FileSnapshot const snapshotA = SnapshotOf(a);
    FileSnapshot const snapshotB = SnapshotOf(b);
    Differences differences = Compare(snapshotA, snapshotB);

    std::string const branchText = line.Value("--mode");
    if (line.Has("--mode")) {
        auto const index = static_cast<unsigned char>(table);
        PList<TuningMode> branchA;
        PList<TuningMode> branchB;
        if (!BranchOf(a, index, branchText, branchA) || !BranchOf(b, index, branchText, branchB))
            return ExitUsage;
        std::set<std::string> modules;
        for (auto const* snapshot : {&snapshotA, &snapshotB}) {
            for (auto const& [key, instance] : snapshot->instances) {
                if (instance.known && instance.table == index)
                    modules.insert(instance.name);
            }
        }
        for (std::string const& module : modules)
            CompareInstances(module, index, Supplier(a, snapshotA, index, branchA, module),
                             Supplier(b, snapshotB, index, branchB, module), differences.instances);
    } else {
        CompareAllInstances(snapshotA, snapshotB, differences);
    }

    if (line.Has("--json"))
        PrintJsonDifferences(differences, a.path, b.path, branchText);
    else
        PrintText(differences, line.Has("--mode"));
    return differences.Empty() ? ExitSuccess : ExitFailure;
}

} // namespace ParamCtl
