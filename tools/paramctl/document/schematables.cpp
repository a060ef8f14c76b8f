// SPDX-License-Identifier: Apache-2.0
// SchemaTables: a file's definition records written as generator schema tables.
#include "tools/paramctl/document/schematables.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <sstream>

#include "parameterparser/parsercrc.h"
#include "tools/paramctl/document/blockshape.h"
#include "tools/paramctl/printable.h"

namespace ParamCtl {

namespace {

constexpr uint32_t NoModule = 0xFFFFFFFF;
// Structures nested deeper than this are refused: a recursive structure has no plain table.
constexpr unsigned int MaxDepth = 64;

// The built-in structures the generator knows by name, as "name type storage" lines.
struct BuiltIn
{
    char const* name;
    char const* body;
};
constexpr BuiltIn BuiltIns[] = {
    {"module_versionStruct", "major_revision Int32 int32\nminor_revision Int32 int32\n"
                             "incr_revision Int32 int32\n"},
    {"parameter_versionStruct", "revision String\n"},
};

// A module name made a namespace identifier: other characters become '_'.
std::string NamespaceOf(std::string const& name)
{
    std::string result;
    for (char c : name)
        result += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    if (result.empty() || std::isdigit(static_cast<unsigned char>(result[0])))
        result = "m_" + result;
    return result;
}

// The reported type and storage of a number member.
struct NumberSpelling
{
    char const* type;
    char const* reported;
    char const* storage;
};
constexpr NumberSpelling Numbers[] = {
    {"Int8", "Int32", "int8"},        {"UInt8", "UInt8", "uint8"},
    {"Int16", "Int32", "int16"},      {"UInt16", "UInt16", "uint16"},
    {"Int32", "Int32", "int32"},      {"UInt32", "UInt32", "uint32"},
    {"Int64", "Int64", "int64"},      {"UInt64", "UInt64", "uint64"},
    {"Float", "Float", "float"},      {"Double", "Double", "double"},
    {"ByteLike", "UInt8", "uint8"},   {"ShortLike", "UInt16", "uint16"},
    {"UIntLike", "UInt32", "uint32"}, {"LongLike", "UInt64", "uint64"},
    {"IntLike", "Int32", "int32"},    {"UIntLike2", "UInt32", "uint32"},
};

class Exporter
{
public:
    Exporter(Json const& document, std::vector<std::string>& notes)
        : m_document(document), m_notes(notes)
    {
    }

    bool Collect(std::string& error)
    {
        Json const* records = Find(m_document, "definitions");
        if (records == nullptr || !records->is_array()) {
            error = "has no definition table: its schema is the compiled one";
            return false;
        }
        for (Json const& record : *records) {
            std::string const kind = record.value("record", "");
            if (kind == "structure" && record.contains("id") && record["members"].is_array())
                m_structures.emplace(record["id"].get<uint32_t>(),
                                     FileStructure{Text(record, "name"), &record["members"]});
            else if (kind == "module" && record.contains("structure"))
                m_modules.push_back({Text(record, "name"), record["structure"].get<uint32_t>()});
        }
        if (m_modules.empty()) {
            error = "has no module record in its definition table";
            return false;
        }
        // A module's version is that of its instances in the symbol table.
        if (Json const* symbols = Find(m_document, "symbols")) {
            for (Json const& row : *symbols) {
                if (row.value("modeId", NoModule) != NoModule && row.contains("name"))
                    m_versions.emplace(Text(row, "name"), row.value("version", "0.0.0"));
            }
        }
        return true;
    }

    /// One namespace holding the modules given, as table text; types gets each module's top
    /// type name by module index.
    bool Table(std::string const& namespaceName, std::vector<size_t> const& modules,
               std::string& text, std::map<size_t, std::string>& types, std::string& error)
    {
        Reset();
        std::ostringstream modulesText;
        std::map<uint32_t, std::string> tops;
        for (size_t index : modules) {
            auto const& [name, structureId] = m_modules[index];
            if (tops.count(structureId) != 0) {
                types[index] = tops[structureId];
                continue;
            }
            auto const top = m_structures.find(structureId);
            if (top == m_structures.end()) {
                error = "module " + Printable(name) + " names structure " +
                        std::to_string(structureId) + ", which the table does not have";
                return false;
            }
            // The top type's members go on the module line's body; the types they use first.
            std::string body;
            if (!Body(top->second, 0, body, error))
                return false;
            // Two modules' top structures may share a name (two versions of one block): each
            // top type of the table gets a name of its own, which no later type takes.
            std::string topName = TypeName(structureId, top->second.name);
            if (m_declared.count(topName) != 0)
                topName = Renamed(topName, structureId);
            m_declared.insert(topName);
            m_bodies[topName] = "\n";
            tops[structureId] = types[index] = topName;
            modulesText << "\nmodule " << topName << " version " << Version(index) << "\n" << body;
        }
        text = "# The schema of the tuning file's module" +
               std::string(modules.size() > 1 ? "s" : "") +
               ", as the file's definition table gives it.\nnamespace " + namespaceName + "\n" +
               m_out.str() + modulesText.str();
        return true;
    }

    /// The block shape of module index; false when it has none.
    bool Block(size_t index, BlockShape& shape) const
    {
        return RecogniseBlock(m_structures, m_modules[index].second, Version(index), shape);
    }

    /// One version of a block family, from its "version" line on: the sections as member
    /// lines, the types they use, and the options and name overrides of shape.
    bool FamilyVersion(BlockShape const& shape, std::string& text, std::string& error)
    {
        Reset();
        // A section's type of a name the rules give a type of their own is renamed.
        std::set<std::string> reserved = shape.typeNames;
        for (char const* fixed :
             {"enable_sectionStruct", "control_variablesStruct", "control_methodStruct",
              "private_informationStruct", "dynamic_enable_triggersStruct"})
            reserved.insert(fixed);
        for (std::string const& name : shape.dynamicSwitches)
            reserved.insert(name + "Struct");
        for (std::string const& name : reserved) {
            m_declared.insert(name);
            m_bodies[name] = "\n";
        }
        static char const* const Kinds[] = {"nest", "tree", "flat"};
        std::ostringstream head;
        head << "\nversion " << shape.version << " " << Kinds[static_cast<int>(shape.kind)];
        for (std::string const& dim : shape.dims)
            head << " " << dim;
        head << "\n";
        for (auto const& [generated, actual] : shape.names)
            head << "  name " << generated << "  " << actual << "\n";
        if (shape.kind == BlockShape::Kind::Nest && !shape.controlMethod)
            head << "  omit control_method\n";
        if (shape.passes != 0)
            head << "  passes " << shape.passes << "\n";
        if (shape.optionalRegion)
            head << "  optional-region\n";
        std::ostringstream sections;
        std::string body;
        if (shape.enable != 0) {
            std::string switches;
            if (!Switches(shape.enable, switches) && !Section(shape.enable, false, body, error))
                return false;
            sections << "  enable_section" << switches << "\n" << body;
        }
        if (!SectionText("private_information", shape.privateInformation, false, sections, error))
            return false;
        if (!shape.dynamicSwitches.empty()) {
            sections << "  dynamic_enable_triggers";
            for (std::string const& name : shape.dynamicSwitches)
                sections << " " << name;
            sections << "\n";
        }
        if (!SectionText("reserve", shape.reserve, true, sections, error) ||
            !SectionText("region", shape.region, true, sections, error))
            return false;
        // The types the sections use, as the version's own type blocks.
        std::istringstream declared(m_out.str());
        std::ostringstream types;
        for (std::string line; std::getline(declared, line);) {
            if (!line.empty())
                types << "  " << line << "\n";
        }
        text = head.str() + types.str() + sections.str();
        return true;
    }

    size_t ModuleCount() const { return m_modules.size(); }
    std::string StructureName(uint32_t id) const { return m_structures.at(id).name; }
    std::string const& ModuleName(size_t index) const { return m_modules[index].first; }
    uint32_t ModuleStructure(size_t index) const { return m_modules[index].second; }

    /// A module's version is that of its instances in the symbol table.
    std::string Version(size_t index) const
    {
        auto const version = m_versions.find(m_modules[index].first);
        return version != m_versions.end() ? version->second : "1.0.0";
    }

private:
    void Reset()
    {
        m_emitted.clear();
        m_names.clear();
        m_bodies.clear();
        m_declared.clear();
        m_recursive.clear();
        m_out.str("");
    }

    // An enable section of Int32 switches only, as the words of its one-line form.
    bool Switches(uint32_t id, std::string& words) const
    {
        auto const found = m_structures.find(id);
        if (found == m_structures.end() || found->second.members->empty())
            return false;
        std::string result;
        for (Json const& member : *found->second.members) {
            std::string const name = Text(member, "name");
            if (!IsIdentifier(name) || StringField(member, "type") != "Int32" ||
                member.value("min", 1u) != 1 || member.value("max", 1u) != 1 ||
                member.value("flags", 0u) != 0)
                return false;
            result += " " + name;
        }
        words = result;
        return true;
    }

    bool SectionText(char const* keyword, uint32_t id, bool tables, std::ostringstream& out,
                     std::string& error)
    {
        if (id == 0)
            return true;
        std::string body;
        if (!Section(id, tables, body, error))
            return false;
        out << "  " << keyword << "\n" << body;
        return true;
    }

    // The member lines of a section's structure, indented under a version; with tables, a
    // member NAME_tab of type NAME_tabStruct holding only NAME is written as "tab NAME ...".
    bool Section(uint32_t id, bool tables, std::string& body, std::string& error)
    {
        auto const found = m_structures.find(id);
        if (found == m_structures.end()) {
            error = "a section of the block names no structure of the table";
            return false;
        }
        std::ostringstream lines;
        if (found->second.members->empty())
            lines << "    ...\n";
        for (Json const& member : *found->second.members) {
            Json const* inner = tables ? TableMember(member) : nullptr;
            std::string line;
            if (!Member(inner != nullptr ? *inner : member, 1, line, error))
                return false;
            lines << "    " << (inner != nullptr ? "tab " : "") << line << "\n";
        }
        body = lines.str();
        return true;
    }

    // The one member of a table wrapper (NAME_tab of NAME_tabStruct holding NAME); else null.
    Json const* TableMember(Json const& member) const
    {
        static char const* const Reserved[] = {"Boolean", "Enum",   "Int32",  "Int64",
                                               "UInt8",   "UInt16", "UInt32", "UInt64",
                                               "Float",   "Double", "String", "tab"};
        std::string const name = Text(member, "name");
        std::string const suffix = "_tab";
        if (StringField(member, "type") != "Structure" || member.value("min", 1u) != 1 ||
            member.value("max", 1u) != 1 || name.size() <= suffix.size() ||
            name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
            return nullptr;
        std::string const table = name.substr(0, name.size() - suffix.size());
        auto const wrapper = m_structures.find(member.value("structure", 0u));
        if (!IsIdentifier(table) || wrapper == m_structures.end() ||
            wrapper->second.name != table + "_tabStruct" || wrapper->second.members->size() != 1 ||
            Text((*wrapper->second.members)[0], "name") != table)
            return nullptr;
        for (char const* reserved : Reserved) {
            if (table == reserved)
                return nullptr;
        }
        return &(*wrapper->second.members)[0];
    }
    static Json const* Find(Json const& object, char const* key)
    {
        auto const found = object.find(key);
        return found != object.end() ? &*found : nullptr;
    }

    static std::string Text(Json const& object, char const* key)
    {
        std::string bytes;
        auto const found = object.find(key);
        if (found == object.end() || !found->is_string() ||
            !FromPrintable(found->get<std::string>(), bytes))
            return "";
        return bytes;
    }

    // The name a structure is declared under: its own, unless an earlier structure of another
    // body took it (type names reach only C++, never the file).
    std::string TypeName(uint32_t id, std::string const& name)
    {
        auto const given = m_names.find(id);
        if (given != m_names.end())
            return given->second;
        return IsIdentifier(name) ? name : "Structure" + std::to_string(id);
    }

    bool Body(FileStructure const& structure, unsigned int depth, std::string& body,
              std::string& error)
    {
        std::ostringstream lines;
        for (Json const& member : *structure.members) {
            std::string line;
            if (!Member(member, depth, line, error))
                return false;
            lines << "  " << line << "\n";
        }
        // A structure the file holds no member of (written from a schema that knew none): a
        // frame, since a type needs a body.
        body = structure.members->empty() ? "  ...\n" : lines.str();
        return true;
    }

    // Declares structure id (and what it uses) if it is not yet; returns its type name. A
    // structure may hold counted arrays of itself (a trigger tree): C++ holds those as pointers.
    bool Declare(uint32_t id, bool pointer, unsigned int depth, std::string& name,
                 std::string& error)
    {
        auto const found = m_structures.find(id);
        if (found == m_structures.end()) {
            error = "a member names structure " + std::to_string(id) +
                    ", which the table does not have";
            return false;
        }
        if (m_emitted.count(id) != 0) {
            name = m_names[id];
            return true;
        }
        if (m_visiting.count(id) != 0 && pointer) {
            name = m_names[id];
            m_recursive.insert(id);
            return true;
        }
        if (depth > MaxDepth || m_visiting.count(id) != 0) {
            error = "structure " + Printable(found->second.name) +
                    " holds itself inline: no table can state it";
            return false;
        }
        std::string const wanted = TypeName(id, found->second.name);
        // The name it will have if it refers to itself: fixed before its body is written.
        m_names[id] = m_declared.count(wanted) != 0 ? Renamed(wanted, id) : wanted;
        m_visiting.insert(id);
        std::string body;
        bool const described = Body(found->second, depth + 1, body, error);
        m_visiting.erase(id);
        if (!described)
            return false;
        if (m_recursive.count(id) != 0) {
            name = m_names[id];
            m_bodies[name] = body;
            m_declared.insert(name);
            m_emitted.insert(id);
            m_out << "\ntype " << name << "\n" << body;
            return true;
        }
        for (BuiltIn const& builtIn : BuiltIns) {
            if (wanted != builtIn.name)
                continue;
            if (Normalised(body) == builtIn.body) {
                m_emitted.insert(id);
                m_names[id] = name = wanted;
                return true;
            }
        }
        // One name, one body: an equal structure declared before is reused, another body under
        // a taken name is renamed.
        name = wanted;
        auto const taken = m_bodies.find(name);
        bool builtInName = false;
        for (BuiltIn const& builtIn : BuiltIns)
            builtInName = builtInName || name == builtIn.name;
        if (taken != m_bodies.end() && taken->second == body && m_declared.count(name) != 0) {
            m_emitted.insert(id);
            m_names[id] = name;
            return true;
        }
        if (builtInName || (taken != m_bodies.end() && m_declared.count(name) != 0))
            name = Renamed(wanted, id);
        m_bodies[name] = body;
        m_declared.insert(name);
        m_emitted.insert(id);
        m_names[id] = name;
        m_out << "\ntype " << name << "\n" << body;
        return true;
    }

    // Another name for a type whose name an earlier type of another body took. A nest level's
    // holder keeps the "_dataStruct" ending by which the generator follows a nest's levels.
    static std::string Renamed(std::string const& name, uint32_t id)
    {
        std::string const holder = "_dataStruct";
        size_t const stem = name.size() > holder.size() && name.compare(name.size() - holder.size(),
                                                                        holder.size(), holder) == 0
                                ? name.size() - holder.size()
                                : name.size();
        return name.substr(0, stem) + "_" + std::to_string(id) + name.substr(stem);
    }

    // A body's lines with single spaces, for comparison with a built-in's.
    static std::string Normalised(std::string const& body)
    {
        std::istringstream stream(body);
        std::string result;
        for (std::string line; std::getline(stream, line);) {
            std::istringstream words(line);
            std::string joined;
            for (std::string word; words >> word;)
                joined += (joined.empty() ? "" : " ") + word;
            result += joined + "\n";
        }
        return result;
    }

    bool Member(Json const& member, unsigned int depth, std::string& line, std::string& error)
    {
        std::string const name = Text(member, "name");
        uint32_t const minimum = member.value("min", 1u);
        uint32_t const maximum = member.value("max", 1u);
        uint16_t const flags = member.value("flags", uint16_t{0});
        // The kind is a suffix on the storage (numbers) or type word; a count's minimum follows.
        std::string base;
        std::string options;
        bool counted = false;
        if (minimum >= 2 && maximum == minimum) {
            base = "[" + std::to_string(maximum) + "]";
        } else if (minimum == 0 && maximum == 1) {
            base = "?";
        } else if ((minimum == 0 && maximum != 0) || (minimum >= 1 && maximum >= 2)) {
            base = "[]";
            options = "min " + std::to_string(minimum);
            counted = true;
        }

        std::string type;
        Json const& typeJson = member.contains("type") ? member["type"] : Json();
        std::string const typeName = typeJson.is_string() ? typeJson.get<std::string>() : "";
        std::string shown = IsIdentifier(name) ? name : "";
        std::string hash;
        if (shown.empty()) {
            uint64_t const value = ParserCRC64::HashName(name.c_str());
            shown = "unnamed_" + Hex64(value).substr(2);
            hash = " hash " + Hex64(value);
        }
        if (typeName == "Structure") {
            std::string structure;
            if (!Declare(member.value("structure", 0u), counted, depth, structure, error))
                return false;
            type = structure + base;
        } else if (typeName == "String") {
            type = "String" + base;
        } else {
            NumberSpelling const* spelling = nullptr;
            for (NumberSpelling const& candidate : Numbers) {
                if (typeName == candidate.type)
                    spelling = &candidate;
            }
            if (spelling == nullptr) {
                error = "member " + Printable(name) + " has a type code no table can state";
                return false;
            }
            std::string reported = spelling->reported;
            std::string storage = spelling->storage;
            // Four-byte elements are floats in the file, whatever the type says.
            if ((flags & 1) != 0) {
                storage = "float";
                if (reported == "Double")
                    reported = "Float";
            }
            if (counted && storage != "int32" && storage != "uint32" && storage != "float") {
                m_notes.push_back("member " + Printable(name) + ": a counted array of " + typeName +
                                  " is written with four-byte elements (" +
                                  (reported == "Double" ? "float" : "int32") +
                                  "), the only width counted arrays hold; its values will not "
                                  "load from this file");
                storage = reported == "Double" ? "float" : "int32";
                reported = reported == "Double" ? "Float" : "Int32";
            }
            type = reported + "  " + storage + base;
        }
        line = shown + "  " + type + (options.empty() ? "" : "  " + options) + hash;
        return true;
    }

    Json const& m_document;
    std::vector<std::string>& m_notes;
    std::map<uint32_t, FileStructure> m_structures;
    std::vector<std::pair<std::string, uint32_t>> m_modules;
    std::map<std::string, std::string> m_versions;
    std::set<uint32_t> m_emitted;
    std::set<uint32_t> m_visiting;
    std::set<uint32_t> m_recursive;
    std::map<uint32_t, std::string> m_names;
    std::map<std::string, std::string> m_bodies;
    std::set<std::string> m_declared;
    std::ostringstream m_out;
};

// The module list of a set manager registering every module of the file, each as the type the
// tables declare it as. A module name the generator cannot take as an instance name is left out.
std::string ModuleList(Exporter const& exporter, std::string const& managerName,
                       std::vector<std::string> const& types, std::vector<std::string>& notes)
{
    // Instance names are at most 64 characters: the file's module name field.
    constexpr size_t MaxInstanceName = 64;
    std::string text =
        "# The module instances of the tuning file, in its definition table's order: "
        "one\n# \"instanceName  namespace::TypeName\" a line.\nmanager " +
        managerName + "\n\n";
    std::set<std::string> listed;
    for (size_t i = 0; i < exporter.ModuleCount(); ++i) {
        std::string const& name = exporter.ModuleName(i);
        if (!IsIdentifier(name) || name.size() > MaxInstanceName || !listed.insert(name).second) {
            notes.push_back("module " + Printable(name) +
                            ": no instance name of a module list, left out of it");
            continue;
        }
        text += name + "  " + types[i] + "\n";
    }
    return text;
}

} // namespace

bool ExportSchemaTables(Json const& document, std::string const& namespaceName,
                        std::string const& managerName, std::map<std::string, std::string>& tables,
                        std::vector<std::string>& notes, std::string& error)
{
    Exporter exporter(document, notes);
    if (!exporter.Collect(error))
        return false;
    if (!namespaceName.empty() && !IsIdentifier(namespaceName)) {
        error = "namespace '" + Printable(namespaceName) + "' is no identifier";
        return false;
    }
    if (!managerName.empty() && !IsIdentifier(managerName)) {
        error = "manager '" + Printable(managerName) + "' is no identifier";
        return false;
    }
    std::vector<std::pair<std::string, std::vector<size_t>>> groups;
    if (!namespaceName.empty()) {
        std::vector<size_t> all;
        for (size_t i = 0; i < exporter.ModuleCount(); ++i)
            all.push_back(i);
        groups.emplace_back(namespaceName, all);
    }
    // Each module's "namespace::TopType", for the module list.
    std::vector<std::string> types(exporter.ModuleCount());
    // Without a namespace given, a module of a block's shape becomes a version of its block's
    // family, the others a namespace each. A block version two modules of different structures
    // claim is written once as a family version; the other module gets plain types.
    struct FamilyVersionText
    {
        std::string version;
        uint32_t structure;
        std::string text;
    };
    std::map<std::string, std::vector<FamilyVersionText>> families;
    std::set<std::string> familyNamespaces;
    for (size_t i = 0; namespaceName.empty() && i < exporter.ModuleCount(); ++i) {
        BlockShape shape;
        std::string text;
        std::string ignored;
        if (exporter.Block(i, shape)) {
            std::vector<FamilyVersionText>& versions = families[shape.block];
            auto const same = std::find_if(versions.begin(), versions.end(), [&](auto const& v) {
                return v.version == shape.version;
            });
            std::string version = shape.version;
            std::replace(version.begin(), version.end(), '.', '_');
            // The family's top type takes the file's name (an override where the rules differ).
            std::string const type = shape.block + "_" + version +
                                     "::" + exporter.StructureName(exporter.ModuleStructure(i));
            if (same != versions.end() && same->structure == exporter.ModuleStructure(i)) {
                types[i] = type;
                continue;
            }
            if (same == versions.end() && exporter.FamilyVersion(shape, text, ignored)) {
                versions.push_back({shape.version, exporter.ModuleStructure(i), text});
                familyNamespaces.insert(shape.block + "_" + version);
                types[i] = type;
                continue;
            }
        }
        groups.emplace_back(NamespaceOf(exporter.ModuleName(i)), std::vector<size_t>{i});
    }
    for (auto const& [block, versions] : families) {
        if (versions.empty())
            continue;
        std::string text = "# The schema of the tuning file's block " + block +
                           ", as the file's definition table gives it.\nfamily " + block + "\n";
        for (FamilyVersionText const& version : versions)
            text += version.text;
        tables.emplace(block + ".family", text);
    }
    for (auto const& [name, modules] : groups) {
        std::string text;
        std::map<size_t, std::string> tops;
        if (!exporter.Table(name, modules, text, tops, error))
            return false;
        if (familyNamespaces.count(name) != 0 || !tables.emplace(name + ".schema", text).second) {
            error = "two modules make the namespace " + name + "; name one with --namespace";
            return false;
        }
        for (auto const& [index, top] : tops)
            types[index] = name + "::" + top;
    }
    if (!managerName.empty())
        tables.emplace(managerName + ".list", ModuleList(exporter, managerName, types, notes));
    return true;
}

} // namespace ParamCtl
