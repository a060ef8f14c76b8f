// SPDX-License-Identifier: Apache-2.0
// paramctl verify: whether a tuning file is sound, and what of it the build can see.
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "parameterparser/defaultmodule.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterfileheader.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parsercrc.h"
#include "tools/paramctl/commandline.h"
#include "tools/paramctl/commands.h"
#include "tools/paramctl/document/tuningdocument.h"
#include "tools/paramctl/filechecksum.h"
#include "tools/paramctl/inputfile.h"
#include "tools/paramctl/jsonoutput.h"
#include "tools/paramctl/loadedfile.h"
#include "tools/paramctl/printable.h"
#include "tools/paramctl/tolerancereport.h"

#include "paramgen/TuningSetManager.writer.h"

namespace ParamCtl {

namespace {

constexpr char VerifyUsage[] =
    "usage: paramctl verify [--json] FILE\n"
    "\n"
    "Checks FILE the way the loader reads it: the checksum; the structure (header, section\n"
    "table, mode, symbol, data and definition tables), checked on a copy with the checksum put\n"
    "right so that a bad checksum does not hide the rest; and, for every module of the file,\n"
    "its schema in the file held against the build's: members matched, missing from the file\n"
    "(they read as 0), extra in the file (stepped over), converted (another number type or\n"
    "count), with every instance's verdict of the module class (version and name hash).\n"
    "Exit 0: nothing found; 1: findings; 2: FILE cannot be read as a tuning file.\n";

// Header failures that say the input is no tuning file this build reads, rather than a damaged
// one: the loader's own texts.
constexpr char const* NotATuningFile[] = {
    "Failed to read binary header tag",
    "Invalid binary header tag",
    "Unsupported binary header version",
    "General error parsing binary header data header",
};

std::string Hex(uint64_t value, int digits)
{
    char text[24];
    std::snprintf(text, sizeof(text), "0x%0*llx", digits, static_cast<unsigned long long>(value));
    return text;
}

struct InstanceVerdict
{
    unsigned int id;
    std::string mode;
    VersionUnion version;
    bool created;
    std::string reason; ///< why the module class refused the record
};

struct ModuleVerdict
{
    std::string name;
    unsigned long nameHash;
    std::string entryName; ///< below 6.0.0: the name the symbol entries carry instead of a hash
    bool known = false;
    std::string buildType;
    VersionUnion buildVersion;
    /// "matches", "differs", "absent" (the file has no schema for it: read by position) or
    /// "unknown" (the build has no module of this name).
    std::string schema;
    ToleranceReport members;
    std::vector<InstanceVerdict> instances;
};

struct Verdict
{
    std::string path;
    VersionUnion version;
    FileChecksum checksum;
    bool tablesLoaded = false;
    std::string loaderError; ///< the loader's refusal, when no module explains it
    bool definitions = false;
    std::vector<ModuleVerdict> modules;

    unsigned int Findings() const
    {
        unsigned int findings = (checksum.Valid() ? 0 : 1) + (loaderError.empty() ? 0 : 1);
        for (ModuleVerdict const& module : modules) {
            findings += module.known ? 0 : 1;
            findings += static_cast<unsigned int>(module.members.missing.size() +
                                                  module.members.extra.size() +
                                                  module.members.converted.size());
            for (InstanceVerdict const& instance : module.instances)
                findings += module.known && !instance.created ? 1 : 0;
        }
        return findings;
    }
};

// The verdict of the module class on one record: the very Create a load calls, into a registry
// of its own so that nothing of the loaded file changes.
InstanceVerdict JudgeInstance(ParameterModule const* factory, ModuleData* data)
{
    InstanceVerdict verdict{data->ID,
                            NamedModePath(data->ModePath != nullptr ? data->ModePath : ""),
                            data->Version, false, ""};
    if (factory == nullptr)
        return verdict;
    DefaultModule scratch(nullptr);
    verdict.created = factory->Create(data, &scratch) != nullptr;
    if (verdict.created)
        return verdict;
    // Create compares the version first, then the name hash.
    if (data->Version.Raw != factory->version.Raw)
        verdict.reason = "file version " + VersionText(data->Version) + ", build version " +
                         VersionText(factory->version);
    else
        verdict.reason = "file name hash " + Hex(data->NameHash, 16) + ", build name hash " +
                         Hex(factory->moduleNameHash, 16);
    return verdict;
}

// A module the build lacks is named as the file's schema names it, with its hash.
std::string NameInFile(ParameterFileSymbolTable const* schema, unsigned long nameHash)
{
    std::string const hash = Hex(nameHash, 16);
    if (schema != nullptr && schema->GetDefinitionModules() != nullptr) {
        ParameterFileSymbolTable::ModuleMap const& modules = *schema->GetDefinitionModules();
        auto const found = modules.find(nameHash);
        if (found != modules.end() && found->second->Name != nullptr)
            return std::string(found->second->Name) + " (" + hash + ")";
    }
    return hash;
}

// Names the loader keeps only as hashes, or drops, taken from the file's document: the members
// of the file's structures, and the module names that symbol entries below 6.0.0 carry.
struct FileNames
{
    std::map<std::pair<uint32_t, unsigned long>, std::string> members;
    std::map<uint32_t, std::string> entries;
};

std::shared_ptr<FileNames> NamesOf(std::vector<unsigned char> const& bytes)
{
    auto names = std::make_shared<FileNames>();
    Json document;
    std::string error;
    if (!ReadTuningDocument(bytes, document, error))
        return names;
    for (Json const& record : document.value("definitions", Json::array())) {
        if (record.value("record", "") != "structure")
            continue;
        for (Json const& member : record.value("members", Json::array())) {
            std::string const name = member.value("name", "");
            names->members.emplace(
                std::make_pair(record.value("id", 0u), ParserCRC64::HashName(name.c_str())), name);
        }
    }
    for (Json const& entry : document.value("symbols", Json::array())) {
        if (entry.contains("name"))
            names->entries.emplace(entry.value("id", 0u), entry.value("name", ""));
    }
    return names;
}

void JudgeModules(ToolSetManager& manager, ParameterFileSymbolTable const* schema,
                  std::shared_ptr<FileNames> const& names, Verdict& verdict)
{
    MemberNameLookup const members = [names](uint32_t structureId, unsigned long hash) {
        auto const found = names->members.find({structureId, hash});
        return found != names->members.end() ? found->second : std::string();
    };
    ParameterFileSymbolTable const* table = manager.GetSymbolTable();
    TuningWriter::InstanceCatalogue const& catalogue = ParamSchema::TuningSetManager::Instances();
    for (unsigned int i = 0; i < table->Modules().Count(); ++i) {
        ModuleData* data = table->Modules()[i];
        if (data == nullptr)
            continue;
        // Entries below 6.0.0 have no name hash, only a name, which tells their modules apart.
        auto const entry = names->entries.find(data->ID);
        std::string const entryName =
            data->NameHash == 0 && entry != names->entries.end() ? entry->second : "";
        ModuleVerdict* module = nullptr;
        for (ModuleVerdict& seen : verdict.modules) {
            if (seen.nameHash == data->NameHash && seen.entryName == entryName)
                module = &seen;
        }
        DefaultModule* kind = manager.GetDefaultModule(data->NameHash);
        ParameterModule const* factory = kind != nullptr ? kind->module : nullptr;
        if (module == nullptr) {
            verdict.modules.emplace_back();
            module = &verdict.modules.back();
            module->nameHash = data->NameHash;
            module->known = factory != nullptr;
            module->entryName = entryName;
            if (module->known)
                module->name = factory->moduleName;
            else
                module->name = entryName.empty() ? NameInFile(schema, data->NameHash) : entryName;
            TuningWriter::InstanceSchema const* compiled =
                module->known ? catalogue.Find(module->name) : nullptr;
            ParameterDefinitionStructure const* top =
                schema != nullptr ? schema->FindModuleStructure(data->NameHash) : nullptr;
            if (module->known) {
                module->buildVersion = factory->version;
                module->buildType = compiled != nullptr ? compiled->topType : "";
            }
            if (!module->known) {
                module->schema = "unknown";
            } else if (top == nullptr || compiled == nullptr) {
                module->schema = "absent";
            } else {
                module->members = CompareModuleSchema(*top, *compiled->type, members);
                module->schema = module->members.Differs() ? "differs" : "matches";
            }
        }
        module->instances.push_back(JudgeInstance(factory, data));
    }
}

// Whether the loader's refusal is told by a module of the report (a kind the build lacks, a
// record the module class refuses).
bool RefusalExplained(Verdict const& verdict)
{
    for (ModuleVerdict const& module : verdict.modules) {
        if (!module.known)
            return true;
        for (InstanceVerdict const& instance : module.instances) {
            if (!instance.created)
                return true;
        }
    }
    return false;
}

std::string ChecksumText(FileChecksum const& checksum)
{
    std::string const kind = checksum.crc64 ? "CRC-64" : "CRC-32";
    if (!checksum.fits)
        return "missing (the file is too short to hold a " + kind + ")";
    if (checksum.Valid())
        return "valid (" + kind + ")";
    int const digits = checksum.crc64 ? 16 : 8;
    return "invalid (" + kind + "): stored " + Hex(checksum.stored, digits) + ", computed " +
           Hex(checksum.computed, digits);
}

void PrintText(Verdict const& verdict)
{
    std::printf("File:       %s\n", Printable(verdict.path).c_str());
    std::printf("Version:    %s\n", VersionText(verdict.version).c_str());
    std::printf("Checksum:   %s\n", ChecksumText(verdict.checksum).c_str());
    if (!verdict.loaderError.empty())
        std::printf("Structure:  refused by the loader: %s\n",
                    Printable(verdict.loaderError).c_str());
    else
        std::printf("Structure:  sound\n");
    if (verdict.tablesLoaded)
        std::printf("Schema:     %s\n", verdict.definitions
                                            ? "carried by the file"
                                            : "none in the file: modules are read by position");
    for (ModuleVerdict const& module : verdict.modules) {
        ToleranceReport const& members = module.members;
        std::printf("Module %s", Printable(module.name).c_str());
        if (module.known)
            std::printf(" (build: %s %s)", module.buildType.c_str(),
                        VersionText(module.buildVersion).c_str());
        if (module.schema == "unknown")
            std::printf(": %s\n", module.nameHash == 0
                                      ? "its entries have no name hash (files below 6.0.0), by "
                                        "which the loader could find its module"
                                      : "no module of this name in the build");
        else if (module.schema == "absent")
            std::printf(": no schema in the file, read by position on the build's\n");
        else
            std::printf(": schema %s the build's, %u members matched\n",
                        module.schema == "matches" ? "matches" : "differs from", members.matched);
        for (std::string const& path : members.missing)
            std::printf("  missing    %s (reads 0)\n", Printable(path).c_str());
        for (std::string const& path : members.extra)
            std::printf("  extra      %s (stepped over)\n", Printable(path).c_str());
        for (ConvertedMember const& member : members.converted)
            std::printf("  converted  %s: file %s, build %s\n", Printable(member.path).c_str(),
                        Printable(member.file).c_str(), member.build.c_str());
        for (InstanceVerdict const& instance : module.instances) {
            std::printf("  instance %u %s in %s: ", instance.id,
                        VersionText(instance.version).c_str(), Printable(instance.mode).c_str());
            if (!module.known)
                std::printf("not created\n");
            else if (instance.created)
                std::printf("created\n");
            else
                std::printf("refused by the module class (%s)\n", instance.reason.c_str());
        }
    }
    std::printf("Findings:   %u\n", verdict.Findings());
}

void PrintJsonVerdict(Verdict const& verdict)
{
    FileChecksum const& checksum = verdict.checksum;
    int const digits = checksum.crc64 ? 16 : 8;
    Json modules = Json::array();
    for (ModuleVerdict const& module : verdict.modules) {
        Json instances = Json::array();
        for (InstanceVerdict const& instance : module.instances) {
            Json item = {{"id", instance.id},
                         {"mode", Printable(instance.mode)},
                         {"version", VersionText(instance.version)},
                         {"created", module.known && instance.created}};
            if (!instance.reason.empty())
                item["refused"] = instance.reason;
            instances.push_back(std::move(item));
        }
        Json converted = Json::array();
        for (ConvertedMember const& member : module.members.converted)
            converted.push_back({{"member", Printable(member.path)},
                                 {"file", Printable(member.file)},
                                 {"build", member.build}});
        Json missing = Json::array();
        for (std::string const& path : module.members.missing)
            missing.push_back(Printable(path));
        Json entry = {{"name", Printable(module.name)},
                      {"nameHash", Hex(module.nameHash, 16)},
                      {"known", module.known}};
        if (module.known) {
            entry["buildType"] = module.buildType;
            entry["buildVersion"] = VersionText(module.buildVersion);
        }
        entry["schema"] = module.schema;
        entry["members"] = {{"matched", module.members.matched},
                            {"missing", std::move(missing)},
                            {"extra", module.members.extra},
                            {"converted", std::move(converted)}};
        entry["instances"] = std::move(instances);
        modules.push_back(std::move(entry));
    }
    PrintJson(
        {{"file", Printable(verdict.path)},
         {"version", VersionText(verdict.version)},
         {"checksum",
          {{"algorithm", checksum.crc64 ? "crc64" : "crc32"},
           {"valid", checksum.Valid()},
           {"stored", checksum.fits ? Hex(checksum.stored, digits) : ""},
           {"computed", checksum.fits ? Hex(checksum.computed, digits) : ""}}},
         {"structure",
          {{"valid", verdict.loaderError.empty()}, {"error", Printable(verdict.loaderError)}}},
         {"definitions", verdict.definitions},
         {"modules", std::move(modules)},
         {"findings", verdict.Findings()}});
}

} // namespace

int RunVerify(int argc, char** argv)
{
    CommandLine line({"--json"}, {});
    if (!line.Parse(argc, argv)) {
        std::fprintf(stderr, "paramctl verify: %s\n%s", line.Error().c_str(), VerifyUsage);
        return ExitUsage;
    }
    if (line.Has("--help")) {
        std::fputs(VerifyUsage, stdout);
        return ExitSuccess;
    }
    if (line.Operands().size() != 1) {
        std::fputs(VerifyUsage, stderr);
        return ExitUsage;
    }
    Verdict verdict;
    verdict.path = line.Operands()[0];
    std::vector<unsigned char> bytes;
    std::string reason;
    if (!ReadInputFile(verdict.path, bytes, reason)) {
        std::fprintf(stderr, "paramctl verify: %s: %s\n", Printable(verdict.path).c_str(),
                     reason.c_str());
        return ExitUsage;
    }

    // The header as the loader reads it: a tag or version it does not take means the input is
    // no tuning file this build can judge.
    ParameterFileHeader fields;
    char errorText[ParameterSetManager::ErrorStringLength] = {};
    bool const header = ReadFileHeader(bytes.data(), static_cast<unsigned int>(bytes.size()),
                                       fields, errorText, nullptr);
    verdict.version = fields.layout.version;
    for (char const* text : NotATuningFile) {
        if (!header && std::strncmp(errorText, text, std::strlen(text)) == 0) {
            std::fprintf(stderr, "paramctl verify: %s: not a tuning file this build reads: %s\n",
                         Printable(verdict.path).c_str(), Printable(errorText).c_str());
            return ExitUsage;
        }
    }
    verdict.checksum = ReadChecksum(bytes, verdict.version);

    // The rest is checked on a copy whose checksum is right, so that an edited or patched file
    // still shows everything else that is wrong with it.
    std::vector<unsigned char> copy = bytes;
    PutChecksum(copy, verdict.version);
    ToolSetManager manager;
    bool const loaded = manager.LoadBinaryParameters(copy.data(), copy.size());
    verdict.tablesLoaded = manager.GetSymbolTable() != nullptr;
    std::unique_ptr<ParameterFileSymbolTable> schema;
    if (verdict.tablesLoaded) {
        ParameterSetManager::SectionInfo const section = manager.GetDefinitionSection();
        verdict.definitions = section.Size != 0;
        if (verdict.definitions) {
            // A table of its own: the manager's keeps only what loads still need.
            schema = std::make_unique<ParameterFileSymbolTable>(
                &manager, manager.GetSymbolTable()->GetAlignment(), verdict.version);
            unsigned int at = section.Offset;
            static_cast<void>(schema->ReadDefinitions(
                copy.data(), static_cast<unsigned int>(copy.size()), at, section.Size, true));
        }
        JudgeModules(manager, schema.get(), NamesOf(copy), verdict);
    }
    if (!loaded && !(verdict.tablesLoaded && RefusalExplained(verdict)))
        verdict.loaderError = manager.GetErrorString();

    if (line.Has("--json"))
        PrintJsonVerdict(verdict);
    else
        PrintText(verdict);
    return verdict.Findings() == 0 ? ExitSuccess : ExitFailure;
}

} // namespace ParamCtl
