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
#include "tools/paramctl/livevalues.h"
#include "tools/paramctl/modepath.h"
#include "tools/paramctl/printable.h"
#include "tools/paramctl/triggertree.h"
#include "tools/paramctl/tunedfile.h"
#include "tools/paramctl/valueaccess.h"

#include "paramgen/TuningSetManager.writer.h"

namespace ParamCtl {

namespace {

namespace Wire = ParameterKnobbyPacket;

// A live request waits this long for its answer.
constexpr int LiveTimeoutMs = 5000;

Json NullOr(std::string const& text)
{
    return text.empty() ? Json(nullptr) : Json(Printable(text));
}

/// A NODE of the tree's answer, below the branch named (numeric), its children still empty.
Json ModeJson(std::string const& step, unsigned int mode, unsigned int subMode,
              std::string const& named, std::string const& numeric, Json modeId, Json resident)
{
    std::string const path = named.empty() ? step : named + "|" + step;
    std::string const number = (numeric.empty() ? "" : numeric + "|") + std::to_string(mode) + "." +
                               std::to_string(subMode);
    return {{"name", Printable(step)},
            {"path", Printable(path)},
            {"numeric", number},
            {"modeId", std::move(modeId)},
            {"resident", std::move(resident)},
            {"children", Json::array()}};
}

Json ModeNode(ModeEntry const& node, std::string const& named, std::string const& numeric)
{
    uint32_t const modeId = node.modeId;
    bool const resident = node.resident;
    Json json = ModeJson(ModeStepName(node), node.mode.Parts.mode, node.mode.Parts.subMode, named,
                         numeric, modeId, resident);
    for (ModeEntry const* child = node.firstChild; child != nullptr; child = child->nextSibling)
        json["children"].push_back(ModeNode(*child, json["path"], json["numeric"]));
    return json;
}

/// A live tree's node: the server tells neither Mode IDs nor which modes are resident.
Json LiveModeJson(LiveModeNode const& node, std::string const& named, std::string const& numeric)
{
    Json json = ModeJson(node.step, node.mode, node.subMode, named, numeric, nullptr, nullptr);
    for (LiveModeNode const& child : node.children)
        json["children"].push_back(LiveModeJson(child, json["path"], json["numeric"]));
    return json;
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

/// The answer's fields for the members of instance, read into tree, with its trigger tree marked
/// by the instance's compiled schema.
Json ModuleBody(std::string const& instance, ValueNode const& tree, ControlNames const& names)
{
    Json members = Json::array();
    for (ValueNode const& child : tree.children)
        members.push_back(MemberJson(child, child.name));
    TuningWriter::InstanceSchema const* schema =
        ParamSchema::TuningSetManager::Instances().Find(instance);
    Json trigger = schema != nullptr ? MarkTriggerTree(members, *schema->type, names) : Json();
    return {{"instance", Printable(instance)},
            {"trigger", std::move(trigger)},
            {"members", std::move(members)}};
}

/// One module of a branch's list: where its values come from and its version are null when the
/// session has no file to tell them.
Json ModuleRow(std::string const& instance, Json source, Json version, bool valueAccess)
{
    return {{"instance", instance},
            {"source", std::move(source)},
            {"version", std::move(version)},
            {"valueAccess", valueAccess}};
}

/// The answer listing the modules of a branch.
ApiAnswer ModulesAnswer(unsigned char table, std::string const& branch, Json modules)
{
    return {200,
            {{"table", table}, {"branch", Printable(branch)}, {"modules", std::move(modules)}}};
}

/// The table index of text; false for anything but a decimal number from 0 to 255.
bool TableIndex(std::string const& text, unsigned char& index)
{
    char* end = nullptr;
    unsigned long const number = std::strtoul(text.c_str(), &end, 10);
    if (text.empty() || text[0] == '-' || *end != '\0' || number > 0xFF)
        return false;
    index = static_cast<unsigned char>(number);
    return true;
}

constexpr char BadTable[] = "table needs a mode table index from 0 to 255";

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
    // Without FILE everything comes from the server, which must answer now.
    if (options.file.empty()) {
        LiveExchange exchange;
        return exchange.Open(m_live, 0, LiveTimeoutMs, error);
    }
    m_loaded = std::make_unique<LoadedFile>();
    if (!OpenLoadedFile(options.file, "console", *m_loaded))
        return false; // the reason is printed
    // A live server that does not answer now is named at once, not at the page's first read.
    std::string answer;
    if (!options.live.empty() &&
        !LiveRequest(m_live, Wire::DeviceInfo, "", LiveTimeoutMs, answer, error))
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

std::string ConsoleSession::Unavailable(std::string const& feature) const
{
    if (m_loaded == nullptr) {
        if (feature == "save")
            return "a live session without FILE cannot save: the live values are saved into a "
                   "copy of FILE";
        if (feature == "diff")
            return "a live session without FILE cannot compare: the live values are compared "
                   "through a copy of FILE";
        return "a live session without FILE does not know which mode supplies a module: the "
               "live tuning protocol does not say";
    }
    if (feature == "save" && m_options.saveTo.empty())
        return "no --save-to file was named";
    if (feature == "diff" && m_options.compare.empty())
        return "no --compare file was named";
    return "";
}

ApiAnswer ConsoleSession::Session()
{
    bool const live = !m_options.live.empty();
    Json unavailable = Json::object();
    for (char const* feature : {"save", "diff", "source"}) {
        std::string const reason = Unavailable(feature);
        if (!reason.empty())
            unavailable[feature] = reason;
    }
    return {200,
            {{"kind", live ? "live" : "file"},
             {"files",
              m_options.file.empty() ? Json::array() : Json::array({Printable(m_options.file)})},
             {"live", NullOr(m_options.live)},
             {"canSave", Unavailable("save").empty()},
             {"saveTo", NullOr(m_options.saveTo)},
             {"compare", NullOr(m_options.compare)},
             {"unavailable", std::move(unavailable)}}};
}

ApiAnswer ConsoleSession::Tree()
{
    std::lock_guard<std::mutex> hold(m_lock);
    if (m_loaded == nullptr)
        return LiveTree();
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
    if (!TableIndex(table, resolved.table)) {
        failure = ApiError(400, BadTable);
        return false;
    }
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
    if (m_loaded == nullptr)
        return LiveModules(table, branch);
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
        modules.push_back(ModuleRow(Printable(record.name),
                                    Printable(NamedModePath(record.modePath)),
                                    VersionText(record.version), access));
    }
    return ModulesAnswer(resolved.table, resolved.named, std::move(modules));
}

ApiAnswer ConsoleSession::Module(std::string const& table, std::string const& branch,
                                 std::string const& instance)
{
    std::lock_guard<std::mutex> hold(m_lock);
    if (m_loaded == nullptr)
        return LiveModule(table, branch, instance);
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
    Json body = ModuleBody(instance, tree, m_controlNames);
    body["table"] = resolved.table;
    body["branch"] = Printable(resolved.named);
    body["source"] = Printable(source);
    return {200, std::move(body)};
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
    if (m_loaded == nullptr)
        return SetLiveValue(table, request["branch"].get<std::string>(), instance, path, text);
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
                !exchange.Request(Wire::SetValues,
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
        if (!exchange.Request(Wire::GetValues, branch.named + ":" + path, answer, error))
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
    std::string const unavailable = Unavailable("save");
    if (!unavailable.empty())
        return ApiError(409, unavailable);
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
    std::string const unavailable = Unavailable("diff");
    if (!unavailable.empty())
        return ApiError(409, unavailable);
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
    unsigned char index = 0;
    if (!TableIndex(table, index))
        return ApiError(400, BadTable);
    Json document;
    std::string const nameA = m_options.live.empty() ? m_options.file : m_options.live;
    if (!DiffJson(SnapshotOf(documentA), SnapshotOf(documentB), nameA, m_options.compare, branch,
                  index, document, reason))
        return ApiError(404, reason);
    return {200, std::move(document)};
}

ApiAnswer ConsoleSession::LiveTree()
{
    LiveExchange exchange;
    std::string error;
    if (!exchange.Open(m_live, 0, LiveTimeoutMs, error))
        return ApiError(502, error);
    // The server answers a table it does not have with the one in force: its tables are those
    // it selects.
    unsigned int count = 1;
    while (count <= 0xFF && exchange.Select(static_cast<unsigned char>(count), error))
        ++count;
    std::vector<std::string> const names = LiveTableNames(exchange.Device(), count);
    Json tables = Json::array();
    for (unsigned int i = 0; i < count; ++i) {
        LiveModeNode root;
        if (!exchange.Select(static_cast<unsigned char>(i), error) ||
            !ReadLiveModeTree(exchange, root, error))
            return ApiError(502, error);
        tables.push_back({{"index", i},
                          {"name", Printable(i < names.size() ? names[i] : "")},
                          {"modes", Json::array({LiveModeJson(root, "", "")})}});
    }
    return {200, {{"tables", std::move(tables)}}};
}

bool ConsoleSession::OpenLiveBranch(std::string const& table, std::string const& branch,
                                    LiveExchange& exchange, Branch& resolved, ApiAnswer& failure)
{
    if (!TableIndex(table, resolved.table)) {
        failure = ApiError(400, BadTable);
        return false;
    }
    std::string error;
    if (!exchange.Open(m_live, 0, LiveTimeoutMs, error)) {
        failure = ApiError(502, error);
        return false;
    }
    if (!exchange.Select(resolved.table, error)) {
        failure = ApiError(404, error);
        return false;
    }
    // Each step is looked for among the children the server names for the step before it.
    std::string reached = "Default";
    std::string unanswered;
    auto const descend = [&](unsigned int mode, unsigned int subMode) {
        std::vector<LiveModeNode> children;
        if (!LiveChildren(exchange, reached, children, unanswered))
            return false;
        for (LiveModeNode const& child : children) {
            if (child.mode == mode && child.subMode == subMode) {
                reached += "|" + child.step;
                return true;
            }
        }
        return false;
    };
    ResolvedMode mode;
    std::string reason;
    if (!ResolveModeSteps(branch, resolved.table, descend, mode, reason)) {
        failure = unanswered.empty() ? ApiError(404, reason) : ApiError(502, unanswered);
        return false;
    }
    resolved.numeric = mode.numeric;
    resolved.named = mode.named;
    return true;
}

ApiAnswer ConsoleSession::LiveModules(std::string const& table, std::string const& branch)
{
    LiveExchange exchange;
    Branch resolved;
    ApiAnswer failure;
    if (!OpenLiveBranch(table, branch, exchange, resolved, failure))
        return failure;
    // The protocol lists no modules: each instance of the tuning set is asked for, and those
    // the branch reads answer with their members. An instance without value access answers
    // nothing and is not listed.
    TuningWriter::InstanceCatalogue const& catalogue = ParamSchema::TuningSetManager::Instances();
    std::vector<std::string> questions;
    for (size_t i = 0; i < catalogue.count; ++i)
        questions.push_back(resolved.named + ":" + catalogue.instances[i].instanceName);
    std::vector<std::string> answers;
    std::string error;
    if (!exchange.RequestEach(Wire::Info, questions, answers, error))
        return ApiError(502, error);
    Json modules = Json::array();
    for (size_t i = 0; i < catalogue.count; ++i) {
        if (!answers[i].empty())
            modules.push_back(
                ModuleRow(catalogue.instances[i].instanceName, nullptr, nullptr, true));
    }
    return ModulesAnswer(resolved.table, resolved.named, std::move(modules));
}

ApiAnswer ConsoleSession::LiveModule(std::string const& table, std::string const& branch,
                                     std::string const& instance)
{
    LiveExchange exchange;
    Branch resolved;
    ApiAnswer failure;
    if (!OpenLiveBranch(table, branch, exchange, resolved, failure))
        return failure;
    LiveValueSource source(exchange, resolved.named, instance);
    ValueNode tree;
    tree.structure = true;
    bool const read = ReadTree(source, "", tree);
    if (!source.Error().empty())
        return ApiError(502, source.Error());
    if (!read)
        return ApiError(404, "no module " + instance + " in mode " + resolved.named);
    Json body = ModuleBody(instance, tree, m_controlNames);
    body["table"] = resolved.table;
    body["branch"] = Printable(resolved.named);
    body["source"] = nullptr;
    return {200, std::move(body)};
}

ApiAnswer ConsoleSession::SetLiveValue(std::string const& table, std::string const& branch,
                                       std::string const& instance, std::string const& path,
                                       std::string const& text)
{
    LiveExchange exchange;
    Branch resolved;
    ApiAnswer failure;
    if (!OpenLiveBranch(table, branch, exchange, resolved, failure))
        return failure;
    LiveValueSource source(exchange, resolved.named, instance);
    std::vector<MemberInfo> members;
    std::string const variable = instance + "." + path;
    std::string before;
    std::string error;
    if (!source.Describe("", false, members))
        return source.Error().empty()
                   ? ApiError(404, "no module " + instance + " in mode " + resolved.named)
                   : ApiError(502, source.Error());
    if (path.empty() || !source.Read(path, before, error))
        return error.empty() ? ApiError(404, "no value " + path + " in " + instance)
                             : ApiError(502, error);
    std::string libraryText;
    std::string reason;
    if (!CheckedValue(source, path, text, libraryText, reason))
        return ApiError(400, "value of " + variable + ": " + reason);
    std::string answer;
    if (!exchange.Request(Wire::SetValues,
                          resolved.named + ":" + instance + ":" + path + "=" + libraryText, answer,
                          error))
        return ApiError(502, error);
    if (answer.empty())
        return ApiError(400,
                        "the live tuning server did not set " + variable + " to '" + text + "'");
    std::string after;
    if (!source.Read(path, after, error))
        return error.empty() ? ApiError(500, "the value set cannot be read back")
                             : ApiError(502, error);
    return {200,
            {{"table", resolved.table},
             {"branch", Printable(resolved.named)},
             {"instance", Printable(instance)},
             {"path", Printable(path)},
             {"source", nullptr},
             {"value", Printable(after)}}};
}

} // namespace ParamCtl
