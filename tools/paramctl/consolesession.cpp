// SPDX-License-Identifier: Apache-2.0
// ConsoleSession: the tuning console's answers, from a loaded file or a live tuning server.
#include "tools/paramctl/consolesession.h"

#include <cstdlib>
#include <utility>

#include "parameterparser/modeentry.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parameterparserinfo.h"
#include "tools/paramctl/document/tuningdocument.h"
#include "tools/paramctl/filesnapshot.h"
#include "tools/paramctl/inputfile.h"
#include "tools/paramctl/modepath.h"
#include "tools/paramctl/printable.h"
#include "tools/paramctl/triggertree.h"
#include "tools/paramctl/tunedfile.h"
#include "tools/paramctl/valueaccess.h"

#include "paramgen/TuningSetManager.writer.h"

namespace ParamCtl {

namespace {

// A live request waits this long for its answer.
constexpr int LiveTimeoutMs = 5000;

Json NullOr(std::string const& text)
{
    return text.empty() ? Json(nullptr) : Json(Printable(text));
}

Json ModeNode(ModeEntry const& node, std::string const& named, std::string const& numeric)
{
    std::string const step = ModeStepName(node);
    unsigned int const mode = node.mode.Parts.mode;
    unsigned int const subMode = node.mode.Parts.subMode;
    std::string const path = named.empty() ? step : named + "|" + step;
    std::string const number = (numeric.empty() ? "" : numeric + "|") + std::to_string(mode) + "." +
                               std::to_string(subMode);
    uint32_t const modeId = node.modeId;
    bool const resident = node.resident;
    Json children = Json::array();
    for (ModeEntry const* child = node.firstChild; child != nullptr; child = child->nextSibling)
        children.push_back(ModeNode(*child, path, number));
    return {{"name", Printable(step)}, {"path", Printable(path)},
            {"numeric", number},       {"modeId", modeId},
            {"resident", resident},    {"children", std::move(children)}};
}

/// The elements of an array's value text, "1,2,3".
Json Elements(std::string const& text)
{
    Json elements = Json::array();
    for (size_t start = 0; !text.empty();) {
        size_t const comma = text.find(',', start);
        elements.push_back(Printable(text.substr(start, comma - start)));
        if (comma == std::string::npos)
            break;
        start = comma + 1;
    }
    return elements;
}

Json MemberJson(ValueNode const& node, std::string const& path)
{
    Json member = {{"name", Printable(node.name)}, {"path", Printable(path)}};
    if (node.list) {
        Json elements = Json::array();
        for (ValueNode const& element : node.children)
            elements.push_back(MemberJson(element, path + element.name));
        member["kind"] = "list";
        member["type"] = Printable(node.type);
        member["count"] = node.children.size();
        member["elements"] = std::move(elements);
    } else if (node.structure) {
        Json members = Json::array();
        for (ValueNode const& child : node.children)
            members.push_back(MemberJson(child, path + "." + child.name));
        member["kind"] = "structure";
        member["type"] = Printable(node.type);
        member["members"] = std::move(members);
    } else if (node.array) {
        member["kind"] = "array";
        member["type"] = Printable(node.type);
        member["count"] = node.count;
        member["elements"] = Elements(node.value);
    } else {
        member["kind"] = "value";
        member["type"] = Printable(node.type);
        member["value"] = Printable(node.value);
    }
    return member;
}

/// One element of an edit as the text 'paramctl set' takes; false for anything but a number or
/// a string that could not smuggle a second item into a request (no ',', ';', '=', ':' or
/// control character).
bool ElementText(Json const& value, std::string& text)
{
    if (value.is_number()) {
        text = value.dump();
        return true;
    }
    if (!value.is_string())
        return false;
    text = value.get<std::string>();
    for (unsigned char c : text) {
        if (c < 0x20 || c == 0x7F || c == ',' || c == ';' || c == '=' || c == ':')
            return false;
    }
    return !text.empty();
}

bool ValueText(Json const& value, std::string& text)
{
    if (!value.is_array())
        return ElementText(value, text);
    if (value.empty())
        return false;
    text.clear();
    for (Json const& element : value) {
        std::string part;
        if (!ElementText(element, part))
            return false;
        text += (text.empty() ? "" : ",") + part;
    }
    return true;
}

} // namespace

ApiAnswer ApiError(int status, std::string const& reason)
{
    return {status, {{"error", Printable(reason)}}};
}

bool ConsoleSession::Open(ConsoleOptions const& options, std::string& error)
{
    m_options = options;
    if (!options.live.empty() && !ParseTarget(options.live, m_live)) {
        error = "not a server address (HOST:PORT): " + Printable(options.live);
        return false;
    }
    m_loaded = std::make_unique<LoadedFile>();
    if (!OpenLoadedFile(options.file, "console", *m_loaded))
        return false; // the reason is printed
    // A live server that does not answer now is named at once, not at the page's first read.
    std::string answer;
    if (!options.live.empty() &&
        !LiveRequest(m_live, ParameterKnobbyPacket::DeviceInfo, "", LiveTimeoutMs, answer, error))
        return false;
    m_records = ModuleRecords(m_loaded->manager);
    // The names of the control variables are the file's own; a file that has none shows their
    // numbers.
    Json definitions;
    std::string reason;
    if (ReadTuningDefinitions(m_loaded->bytes, definitions, reason))
        m_controlNames = ControlNamesOf(definitions);
    return true;
}

ApiAnswer ConsoleSession::Session()
{
    bool const live = !m_options.live.empty();
    return {200,
            {{"kind", live ? "live" : "file"},
             {"files", Json::array({Printable(m_options.file)})},
             {"live", NullOr(m_options.live)},
             {"canSave", !m_options.saveTo.empty()},
             {"saveTo", NullOr(m_options.saveTo)},
             {"compare", NullOr(m_options.compare)}}};
}

ApiAnswer ConsoleSession::Tree()
{
    std::lock_guard<std::mutex> hold(m_lock);
    ToolSetManager& manager = m_loaded->manager;
    Json tables = Json::array();
    for (unsigned int i = 0; i < manager.GetModeTableCount(); ++i) {
        ParameterModeTable const* table = manager.GetModeTable(i);
        Json modes = Json::array();
        if (table->rootMode != nullptr)
            modes.push_back(ModeNode(*table->rootMode, "", ""));
        tables.push_back({{"index", i},
                          {"name", Printable(table->name != nullptr ? table->name : "")},
                          {"modes", std::move(modes)}});
    }
    return {200, {{"tables", std::move(tables)}}};
}

bool ConsoleSession::ResolveBranch(std::string const& table, std::string const& branch,
                                   Branch& resolved, ApiAnswer& failure)
{
    char* end = nullptr;
    unsigned long const index = std::strtoul(table.c_str(), &end, 10);
    if (table.empty() || table[0] == '-' || *end != '\0' || index > 0xFF) {
        failure = ApiError(400, "table needs a mode table index from 0 to 255");
        return false;
    }
    resolved.table = static_cast<unsigned char>(index);
    ResolvedMode mode;
    std::string error;
    if (!ResolveModePath(m_loaded->manager, resolved.table, branch, false, mode, error)) {
        failure = ApiError(404, error);
        return false;
    }
    resolved.numeric = mode.numeric;
    resolved.named = mode.named;
    return true;
}

std::string ConsoleSession::SourceOf(Branch const& branch, std::string const& instance)
{
    std::string deepest;
    for (ModuleRecord const& record : m_records) {
        bool const onBranch = branch.numeric == record.modePath ||
                              branch.numeric.rfind(record.modePath + "|", 0) == 0;
        if (record.known && record.name == instance && record.modeTableIndex == branch.table &&
            onBranch && record.modePath.size() > deepest.size())
            deepest = record.modePath;
    }
    return deepest.empty() ? "" : NamedModePath(deepest);
}

ApiAnswer ConsoleSession::Modules(std::string const& table, std::string const& branch)
{
    std::lock_guard<std::mutex> hold(m_lock);
    Branch resolved;
    ApiAnswer failure;
    if (!ResolveBranch(table, branch, resolved, failure))
        return failure;
    ToolSetManager& manager = m_loaded->manager;
    // The deepest record on the branch of each instance, in symbol table order.
    std::vector<std::pair<ModuleRecord, size_t>> reached;
    for (ModuleRecord const& record : m_records) {
        bool const onBranch = resolved.numeric == record.modePath ||
                              resolved.numeric.rfind(record.modePath + "|", 0) == 0;
        if (!record.known || record.modeTableIndex != resolved.table || !onBranch)
            continue;
        bool seen = false;
        for (auto& [kept, depth] : reached) {
            if (kept.name != record.name)
                continue;
            seen = true;
            if (record.modePath.size() > depth)
                kept = record, depth = record.modePath.size();
        }
        if (!seen)
            reached.emplace_back(record, record.modePath.size());
    }
    Json modules = Json::array();
    for (auto const& [record, depth] : reached) {
        PList<ParameterParserInfo> members;
        bool const access =
            manager.GetInfo(resolved.table, resolved.numeric.c_str(), record.name.c_str(), members);
        modules.push_back({{"instance", Printable(record.name)},
                           {"source", Printable(NamedModePath(record.modePath))},
                           {"version", VersionText(record.version)},
                           {"valueAccess", access}});
    }
    return {200,
            {{"table", resolved.table},
             {"branch", Printable(resolved.named)},
             {"modules", std::move(modules)}}};
}

ApiAnswer ConsoleSession::Module(std::string const& table, std::string const& branch,
                                 std::string const& instance)
{
    std::lock_guard<std::mutex> hold(m_lock);
    Branch resolved;
    ApiAnswer failure;
    if (!ResolveBranch(table, branch, resolved, failure))
        return failure;
    std::string const source = SourceOf(resolved, instance);
    if (source.empty())
        return ApiError(404, "no module " + instance + " in mode " + resolved.named);
    std::string error;
    if (!Pull(resolved, instance, error))
        return ApiError(502, error);
    ValueNode tree;
    tree.structure = true;
    if (!ReadTree(m_loaded->manager, resolved.table, resolved.numeric, instance, tree))
        return ApiError(404, "the values of " + instance + " cannot be read");
    Json members = Json::array();
    for (ValueNode const& child : tree.children)
        members.push_back(MemberJson(child, child.name));
    TuningWriter::InstanceSchema const* schema =
        ParamSchema::TuningSetManager::Instances().Find(instance);
    Json trigger =
        schema != nullptr ? MarkTriggerTree(members, *schema->type, m_controlNames) : Json();
    return {200,
            {{"table", resolved.table},
             {"branch", Printable(resolved.named)},
             {"instance", Printable(instance)},
             {"source", Printable(source)},
             {"trigger", std::move(trigger)},
             {"members", std::move(members)}}};
}

ApiAnswer ConsoleSession::SetValue(std::string const& body)
{
    Json const request = Json::parse(body, nullptr, false);
    if (request.is_discarded() || !request.is_object())
        return ApiError(400, "the body is no JSON object");
    for (char const* field : {"branch", "instance", "path"}) {
        if (!request.contains(field) || !request[field].is_string())
            return ApiError(400, std::string("\"") + field + "\" must be a string");
    }
    std::string table = "0";
    if (request.contains("table")) {
        if (!request["table"].is_number_unsigned())
            return ApiError(400, "\"table\" must be a mode table index from 0 to 255");
        table = std::to_string(request["table"].get<uint64_t>());
    }
    std::string text;
    if (!request.contains("value") || !ValueText(request["value"], text))
        return ApiError(400, "\"value\" must be a number, a string holding one, or an array of "
                             "them");
    std::string const instance = request["instance"].get<std::string>();
    std::string const path = request["path"].get<std::string>();

    std::lock_guard<std::mutex> hold(m_lock);
    Branch resolved;
    ApiAnswer failure;
    if (!ResolveBranch(table, request["branch"].get<std::string>(), resolved, failure))
        return failure;
    std::string const source = SourceOf(resolved, instance);
    if (source.empty())
        return ApiError(404, "no module " + instance + " in mode " + resolved.named);
    ToolSetManager& manager = m_loaded->manager;
    std::string const variable = instance + "." + path;
    Items before;
    if (path.empty() ||
        !ReadVariable(manager, resolved.table, resolved.numeric, variable, nullptr, before))
        return ApiError(404, "no value " + path + " in " + instance);
    std::string libraryText;
    std::string reason;
    if (!CheckedValue(manager, resolved.table, resolved.numeric, instance, path, text, libraryText,
                      reason))
        return ApiError(400, "value of " + variable + ": " + reason);
    if (m_options.live.empty()) {
        if (!manager.SetValue(resolved.table, resolved.numeric.c_str(), instance.c_str(),
                              path.c_str(), libraryText.c_str()))
            return ApiError(400, "cannot set " + variable + " to '" + text + "'");
    } else {
        std::string answer;
        std::string error;
        {
            LiveExchange exchange;
            if (!exchange.Open(m_live, resolved.table, LiveTimeoutMs, error) ||
                !exchange.Request(ParameterKnobbyPacket::SetValues,
                                  resolved.named + ":" + instance + ":" + path + "=" + libraryText,
                                  answer, error))
                return ApiError(502, error);
        }
        if (answer.empty())
            return ApiError(400, "the live tuning server did not set " + variable + " to '" + text +
                                     "'");
        if (!Pull(resolved, instance, error))
            return ApiError(502, error);
    }
    Items after;
    if (!ReadVariable(manager, resolved.table, resolved.numeric, variable, nullptr, after) ||
        after.empty())
        return ApiError(500, "the value set cannot be read back");
    return {200,
            {{"table", resolved.table},
             {"branch", Printable(resolved.named)},
             {"instance", Printable(instance)},
             {"path", Printable(path)},
             {"source", Printable(source)},
             {"value", Printable(after.size() == 1 ? after.front().second : text)}}};
}

namespace {

/// The paths of the structures below node that hold numbers of their own, path first.
void StructurePaths(ValueNode const& node, std::string const& path, std::vector<std::string>& paths)
{
    bool numbers = false;
    for (ValueNode const& child : node.children) {
        std::string const childPath =
            child.name.front() == '[' ? path + child.name : path + "." + child.name;
        if (child.structure)
            StructurePaths(child, childPath, paths);
        else
            numbers = true;
    }
    if (numbers)
        paths.insert(paths.begin(), path);
}

} // namespace

bool ConsoleSession::Pull(Branch const& branch, std::string const& instance, std::string& error)
{
    if (m_options.live.empty())
        return true;
    // The protocol reads the numbers of one structure a request: the instance's structures are
    // read in turn, on one connection, and copied into the manager by their paths.
    ValueNode tree;
    if (!ReadTree(m_loaded->manager, branch.table, branch.numeric, instance, tree))
        return true; // nothing of it can be read here
    std::vector<std::string> paths;
    StructurePaths(tree, instance, paths);
    LiveExchange exchange;
    if (!exchange.Open(m_live, branch.table, LiveTimeoutMs, error))
        return false;
    for (std::string const& path : paths) {
        std::string answer;
        if (!exchange.Request(ParameterKnobbyPacket::GetValues, branch.named + ":" + path, answer,
                              error))
            return false;
        std::string const below =
            path.size() > instance.size() ? path.substr(instance.size() + 1) : "";
        for (auto const& [name, value] : SplitItems(answer)) {
            std::string const member = below.empty() ? name : below + "." + name;
            if (!name.empty())
                static_cast<void>(m_loaded->manager.SetValue(branch.table, branch.numeric.c_str(),
                                                             instance.c_str(), member.c_str(),
                                                             value.c_str()));
        }
    }
    return true;
}

bool ConsoleSession::PullAll(std::string& error)
{
    for (ModuleRecord const& record : m_records) {
        Branch branch{static_cast<unsigned char>(record.modeTableIndex), record.modePath,
                      NamedModePath(record.modePath)};
        if (record.known && !Pull(branch, record.name, error))
            return false;
    }
    return true;
}

bool ConsoleSession::TunedBytes(std::vector<unsigned char>& bytes, unsigned int& values,
                                ApiAnswer& failure)
{
    std::string reason;
    if (!PullAll(reason)) {
        failure = ApiError(502, reason);
        return false;
    }
    bytes = m_loaded->bytes;
    TunedChanges changes;
    if (!TuneFile(bytes, m_loaded->manager, changes, reason)) {
        failure = ApiError(422, "cannot save the changes: " + reason);
        return false;
    }
    if (!changes.refused.empty()) {
        failure = ApiError(422, "the file cannot hold " + changes.refused.front());
        return false;
    }
    values = changes.values;
    return true;
}

ApiAnswer ConsoleSession::Save()
{
    if (m_options.saveTo.empty())
        return ApiError(409, "no --save-to file was named");
    std::lock_guard<std::mutex> hold(m_lock);
    std::vector<unsigned char> bytes;
    unsigned int values = 0;
    ApiAnswer failure;
    if (!TunedBytes(bytes, values, failure))
        return failure;
    std::string reason;
    if (!WriteFileAtomically(m_options.saveTo, bytes, reason))
        return ApiError(500, "cannot write " + m_options.saveTo + ": " + reason);
    return {200, {{"file", Printable(m_options.saveTo)}, {"values", values}}};
}

ApiAnswer ConsoleSession::Diff(std::string const& table, std::string const* branch)
{
    if (m_options.compare.empty())
        return ApiError(409, "no --compare file was named");
    std::vector<unsigned char> compared;
    std::string reason;
    Json documentB;
    if (!ReadInputFile(m_options.compare, compared, reason) ||
        !ReadTuningDocument(compared, documentB, reason))
        return ApiError(500, m_options.compare + ": " + reason);
    std::vector<unsigned char> bytes;
    {
        std::lock_guard<std::mutex> hold(m_lock);
        unsigned int values = 0;
        ApiAnswer failure;
        if (!TunedBytes(bytes, values, failure))
            return failure;
    }
    Json documentA;
    if (!ReadTuningDocument(bytes, documentA, reason))
        return ApiError(500, reason);
    char* end = nullptr;
    unsigned long const index = std::strtoul(table.c_str(), &end, 10);
    if (table.empty() || table[0] == '-' || *end != '\0' || index > 0xFF)
        return ApiError(400, "table needs a mode table index from 0 to 255");
    Json document;
    std::string const nameA = m_options.live.empty() ? m_options.file : m_options.live;
    if (!DiffJson(SnapshotOf(documentA), SnapshotOf(documentB), nameA, m_options.compare, branch,
                  static_cast<unsigned int>(index), document, reason))
        return ApiError(404, reason);
    return {200, std::move(document)};
}

} // namespace ParamCtl
