// SPDX-License-Identifier: Apache-2.0
// Writes the seed corpus of one fuzz target, all of it made by the writer or the packet writer:
//
//     fuzz_seeds CORPUS FOLDER
//
// tuningfile: files of every layout with mode trees, modules, shared data and schemas (the
// tuning-file targets); document: the repository's descriptions at several versions, as files
// and as their JSON documents; modules: sections of generated modules behind the module
// target's frame; livetuning: request streams; paths: every mode path and value path of the path
// target's manager; algosettings: override settings files.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "parameterparser/livetuning/parameterknobbypacket.h"
#include "parameterparser/modeentry.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parameterparserinfo.h"
#include "tools/paramctl/document/tuningdocument.h"
#include "tools/writer/symboltablebuilder.h"
#include "tools/writer/tuningdescription.h"

#include "fuzz/fuzzsupport.h"
#include "fuzz/livetuninginput.h"
#include "fuzz/modulesinput.h"
#include "fuzz/pathsinput.h"
#include "paramgen/ImageSensorModuleSetManager.writer.h"
#include "paramgen/TuningSetManager.writer.h"
#include "paramgen/bitmlSetManager.writer.h"
#include "paramgen/fdSetManager.writer.h"
#include "paramgen/gamma_1_6_1.h"
#include "paramgen/trackerroimixer.h"
#include "tests/common/definitionmember.h"

namespace {

using Bytes = std::vector<uint8_t>;
using TuningWriter::EntryValue;
using TuningWriter::FileVersion;

std::string g_folder;
unsigned int g_written = 0;

/// Writes bytes to the corpus folder under name (numbered when name is empty); false, after
/// saying why, when it cannot.
template <typename Data> bool Write(Data const& bytes, std::string name = "")
{
    std::string const path =
        g_folder + "/" + (name.empty() ? "seed-" + std::to_string(g_written) : name);
    ++g_written;
    FILE* file = std::fopen(path.c_str(), "wb");
    bool written =
        file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (file != nullptr)
        written = std::fclose(file) == 0 && written;
    if (!written)
        std::perror(path.c_str());
    return written;
}

std::string VersionText(FileVersion version)
{
    return std::to_string(version.major) + "." + std::to_string(version.minor) + "." +
           std::to_string(version.patch);
}

// tuningfile: a schema with every record kind (nested, fixed, counted and optional members,
// text, a four-byte array, the opaque records and an enumeration) over modules that share data
// and a mode tree, so that whole loads reach every table; one per layout (both alignments, both
// checksums, each header size), with and without the schema.
bool TuningFiles()
{
    using ParamTest::Member;
    using TuningWriter::ElementType;
    TuningWriter::DefinitionElement limits = Member("limits", ElementType::Float, 0, 8);
    limits.flags = TuningWriter::ElementFourByte;
    limits.skipped = "range 0..1";
    TuningWriter::DefinitionTableBuilder definitions;
    definitions.AddOpaque({0, "header", ""})
        .AddModule({1, "FLIndicesType", std::nullopt, "v3.4.0"})
        .AddStructure({2,
                       "module_versionStruct",
                       std::nullopt,
                       {Member("major_revision", ElementType::UInt32),
                        Member("minor_revision", ElementType::UInt32)}})
        .AddStructure({1,
                       "FLIndicesType",
                       std::nullopt,
                       {ParamTest::StructMember("module_version", 2),
                        Member("numPoints", ElementType::UInt32),
                        Member("indices", ElementType::UInt16, 4, 4), limits,
                        Member("name", ElementType::String, 0, 1),
                        ParamTest::StructMember("points", 2, 1, 3)}})
        .AddOpaque({1, "x", ""})
        .AddEnum({3, "modeType", std::nullopt, {{0, false, "Off", ""}, {1, true, "On", "lit"}}})
        .AddOpaque({2, "ab", "cde"});
    for (FileVersion version :
         {FileVersion{7, 0, 0}, FileVersion{6, 0, 0}, FileVersion{5, 0, 0}, FileVersion{4, 0, 0},
          FileVersion{3, 0, 1}, FileVersion{3, 0, 0}, FileVersion{2, 0, 0}, FileVersion{1, 1, 0},
          FileVersion{1, 0, 2}, FileVersion{1, 0, 1}}) {
        for (bool withDefinitions : {true, false}) {
            TuningWriter::TuningFileWriter writer(version);
            TuningWriter::SymbolTableBuilder tables(version);
            uint32_t const shared = tables.AddData({1, 0, 0, 0, 2, 0, 0, 0});
            for (uint32_t slot = 0; slot < 3; ++slot) {
                Bytes data = {8, 0, 0, 0, 2, 0, 0, 0, static_cast<uint8_t>(shared)};
                data.resize(16, 0);
                tables.AddModule({"FLIndicesType", std::nullopt, {3, 4, 0}, slot, data, 0});
            }
            tables.AddTo(writer);
            TuningWriter::ModeSectionBuilder modes(0, "rear");
            modes.AddPath("Default|Sensor.0|Usecase.Preview");
            modes.AddTo(writer);
            if (withDefinitions)
                writer.AddSection(TuningWriter::SectionType::Definition,
                                  definitions.Build(writer.Alignment()));
            if (!Write(writer.Build(), "seed-" + VersionText(version) +
                                           (withDefinitions ? "-definitions" : "-plain") + ".bin"))
                return false;
        }
    }
    return true;
}

// document: the bundled sample and the schema export description at both alignments, both
// checksum widths, with and without the definition section; each as the file and its document.
bool Documents()
{
    for (char const* name : {"examples/sample.tuning", "tests/tools/schemaexport.tuning"}) {
        std::ifstream stream(std::string(PARAM_SOURCE_DIR "/") + name);
        std::stringstream text;
        text << stream.rdbuf();
        for (char const* version : {"7.0.0", "6.0.0", "4.0.0", "1.0.1"}) {
            TuningWriter::TuningDescription description(
                {&ParamSchema::TuningSetManager::Instances(),
                 &ParamSchema::ImageSensorModuleSetManager::Instances(),
                 &ParamSchema::fdSetManager::Instances(),
                 &ParamSchema::bitmlSetManager::Instances()});
            ParamCtl::Json document;
            std::string error;
            Bytes bytes;
            if (!stream || !description.Parse(text.str() + "\nversion " + version + "\n") ||
                !ParamCtl::ReadTuningDocument(bytes = description.MakeWriter().Build(), document,
                                              error)) {
                std::fprintf(stderr, "%s %s: %s%s\n", name, version, description.Error().c_str(),
                             error.c_str());
                return false;
            }
            if (!Write(bytes) || !Write(document.dump()))
                return false;
        }
    }
    return true;
}

// modules: a gamma tree with regions and a tracker mixer with a shared member, at both layouts,
// with and without definitions, as the module target's frame of sections.
EntryValue GammaNode(double start, std::vector<EntryValue> children)
{
    std::vector<EntryValue> channel;
    for (unsigned int i = 0; i < 65; ++i)
        channel.push_back(EntryValue::UInt(i * 16));
    EntryValue const region = EntryValue::Struct(
        {{"channel_r_tab", EntryValue::Struct({{"channel_r", EntryValue::List(channel)}})}});
    return EntryValue::Struct({{"start", EntryValue::Real(start)},
                               {"end", EntryValue::Real(start + 1)},
                               {"region", EntryValue::List({region})},
                               {"trigger", EntryValue::List(std::move(children))}});
}

void Put32(Bytes& out, size_t value)
{
    for (unsigned int i = 0; i < 4; ++i)
        out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

bool Modules()
{
    constexpr char Gamma[] = "gamma_1_6_1::varitonal_gamma16Type";
    constexpr char Mixer[] = "trackerroimixer::varitonalTrackerROIMixerType";
    TuningWriter::SchemaSet schema;
    schema.Describe(Gamma, gamma_1_6_1::varitonal_gamma16Type::Descriptor);
    schema.Describe(Mixer, trackerroimixer::varitonalTrackerROIMixerType::Descriptor);
    EntryValue const gamma = EntryValue::Struct(
        {{"control_variables",
          EntryValue::Struct({{"control_var_type",
                               EntryValue::List({EntryValue::UInt(4), EntryValue::UInt(9)})}})},
         {"varitonal_gamma16_core",
          EntryValue::Struct(
              {{"mod_gamma16_trigger_data",
                EntryValue::List(
                    {GammaNode(0, {GammaNode(10, {}), GammaNode(20, {})}), GammaNode(1, {})})}})}});
    EntryValue mixer = EntryValue::Struct(
        {{"parameter_version", EntryValue::Struct({{"revision", EntryValue::Text("seed")}})},
         {"enable", EntryValue::Int(1)},
         {"GazeFocus", EntryValue::Struct({{"YawThresholdLow", EntryValue::Int(-5)}})},
         {"extensionParam", EntryValue::List({EntryValue::Struct({}), EntryValue::Struct({})})}});
    EntryValue sharing = mixer;
    mixer.items.back().blockName = "extension";
    sharing.items.back().duplicateOf = "extension";
    for (uint16_t major : {6, 7}) {
        for (bool withDefinitions : {true, false}) {
            FileVersion const version{major, 0, 0};
            TuningWriter::SymbolTableBuilder symbols(version);
            TuningWriter::EntryEncoder encoder(version, schema.Structures(), symbols);
            struct
            {
                char const* name;
                FileVersion version;
                char const* type;
                EntryValue const& value;
            } const entries[] = {{ModulesFuzz::GammaInstance, {1, 6, 1}, Gamma, gamma},
                                 {ModulesFuzz::MixerInstance, {1, 0, 0}, Mixer, mixer},
                                 {ModulesFuzz::MixerInstance, {1, 0, 0}, Mixer, sharing}};
            for (auto const& entry : entries)
                symbols.AddModule({entry.name, std::nullopt, entry.version,
                                   TuningWriter::NoModuleModeId,
                                   encoder.Encode(schema.Id(entry.type), &entry.value), 0});
            Bytes definitions;
            if (withDefinitions) {
                TuningWriter::DefinitionTableBuilder builder;
                builder.AddModule(schema.Module(ModulesFuzz::GammaInstance, Gamma));
                builder.AddModule(schema.Module(ModulesFuzz::MixerInstance, Mixer));
                schema.AddTo(builder);
                definitions = builder.Build(TuningWriter::AlignmentFor(version));
            }
            TuningWriter::SymbolTableBuilder::Sections const sections = symbols.Build();
            Bytes out = {
                static_cast<uint8_t>((major >= 7 ? ModulesFuzz::Version7 : 0) |
                                     (withDefinitions ? ModulesFuzz::KeepDefinitions : 0))};
            Put32(out, definitions.size());
            Put32(out, sections.symbol.size());
            Put32(out, sections.dataTable.size());
            for (Bytes const* part : std::vector<Bytes const*>{&definitions, &sections.symbol,
                                                               &sections.dataTable, &sections.data})
                out.insert(out.end(), part->begin(), part->end());
            if (!Write(out))
                return false;
        }
    }
    return true;
}

// livetuning: one stream per command family and one of heads the reader must throw away (a
// length that can never complete, a command past the last), each followed by a good request;
// each stream under two splits.
bool LiveTuning()
{
    namespace Wire = ParameterKnobbyPacket;
    std::string const preview = std::string(LiveTuningFuzz::PreviewModes) + ":";
    struct Request
    {
        uint16_t command;
        std::string text;
        int lengthField = -1; ///< written over the head's own length when not -1
    };
    std::vector<Request> const streams[] = {
        {{Wire::DeviceInfo, ""},
         {Wire::ActiveModes, ""},
         {Wire::ControlValues, ""},
         {Wire::Modes, "Default"},
         {Wire::Modes, "Default|Sensor.0"},
         {Wire::ModeIndex, "0"}},
        {{Wire::Info, preview + "t2tconfigdata"},
         {Wire::Info, preview + "t2tconfigdata.module_version"},
         {Wire::GetValues, preview + "t2tconfigdata"},
         {Wire::GetValues, preview + "t2tconfigdata:confidenceThreshold,downscaleRatio"},
         {Wire::GetValues, preview + "t2tconfigdata.operationMode"},
         {Wire::SetValues, preview + "t2tconfigdata:confidenceThreshold=90;downscaleRatio=0.125"},
         {Wire::SetValues, preview + "t2tconfigdata:nothing=1;operationMode="}},
        {{Wire::TriggerValues, preview + "t2tconfigdata:ipe"},
         {Wire::Custom, "ping"},
         {Wire::ModeIndex, "1"},
         {Wire::ModeIndex, "-1"}},
        {{Wire::ActiveModes, "", 0},
         {Wire::ActiveModes, ""},
         {Wire::ActiveModes, "", 5},
         {Wire::ActiveModes, ""},
         {Wire::ActiveModes, "", 65535},
         {Wire::ActiveModes, ""},
         {Wire::CommandCount, ""},
         {Wire::GetValues, preview + "t2tconfigdata.precisionMode"}},
    };
    for (std::vector<Request> const& stream : streams) {
        for (uint16_t split : {1, 4242}) {
            // The split seed frames the stream.
            Bytes framed = {static_cast<uint8_t>(split), static_cast<uint8_t>(split >> 8)};
            uint32_t requestId = 0;
            for (Request const& request : stream) {
                Bytes packet(Wire::RequestHeadSize + request.text.size() + 1);
                bool const known = request.command < Wire::CommandCount;
                unsigned int const length = Wire::WriteRequest(
                    packet.data(), static_cast<unsigned int>(packet.size()),
                    known ? request.command : Wire::ActiveModes, 0, ++requestId,
                    request.text.c_str(),
                    request.text.empty() ? 0 : static_cast<unsigned int>(request.text.size() + 1));
                if (!known)
                    Wire::PutU16(packet.data() + Wire::CommandOffset, request.command);
                if (request.lengthField >= 0)
                    Wire::PutU16(packet.data() + Wire::LengthOffset,
                                 static_cast<uint16_t>(request.lengthField));
                framed.insert(framed.end(), packet.begin(), packet.begin() + length);
            }
            if (!Write(framed))
                return false;
        }
    }
    return true;
}

// paths: every node's numeric path with a member read through it and its named path, and every
// member of every instance and of its nested structures (an index on arrays), through a branch
// that reaches the instance. Fields: mode path, variable, no sub-variables, value.
bool Paths()
{
    PathsFuzz::LoadedManager manager;
    ParameterModeTable const* table = manager.GetModeTable(0);
    if (!manager.Loaded() || table == nullptr || table->rootMode == nullptr) {
        std::fprintf(stderr, "paths seeds: the description did not load\n");
        return false;
    }
    auto seed = [](std::string const& modePath, std::string const& variable, char const* value) {
        return Write(modePath + "\n" + variable + "\n\n" + value);
    };
    std::vector<ModeEntry*> nodes = {table->rootMode};
    while (!nodes.empty()) {
        ModeEntry* node = nodes.back();
        nodes.pop_back();
        char numeric[256] = {};
        node->GetModePath(numeric, sizeof(numeric));
        char named[256] = {};
        ParameterSetManager::GetKnobbyModesString(numeric, named, sizeof(named));
        if (!seed(numeric, "t2tconfigdata.operationMode", "3") ||
            !seed(named, "t2tconfigdata", "0.75"))
            return false;
        for (ModeEntry* child = node->firstChild; child != nullptr; child = child->nextSibling)
            nodes.push_back(child);
    }
    for (char const* instance : PathsFuzz::Instances) {
        char const* modePath = "0.0|1.0|2.0";
        PList<ParameterParserInfo> members;
        if (!manager.GetInfo(0, modePath, instance, members))
            modePath = "0.0|1.1|2.0";
        std::vector<std::string> structures = {instance};
        while (!structures.empty()) {
            std::string const base = structures.back();
            structures.pop_back();
            members.Clear();
            (void)manager.GetInfo(0, modePath, base.c_str(), members);
            for (unsigned int i = 0; i < members.Count(); ++i) {
                std::string const variable = base + "." + members[i].name;
                if (std::strcmp(members[i].type, "Structure") == 0 && !members[i].isArray)
                    structures.push_back(variable);
                else if (!seed(modePath, members[i].isArray ? variable + "[1]" : variable,
                               "5,-6.5,7e2"))
                    return false;
            }
        }
    }
    return true;
}

// algosettings: a value of each kind and spelling after a first line (the one the target reads
// back) of each number form; then a string longer than the store keeps and a line longer than
// the reader's buffer, which is read in pieces.
bool AlgoSettings()
{
    std::string const body = "# tuning overrides\n; a comment of the other kind\ngain=1.5\n"
                             "ratio = 0.25\noffset=-12\nmask=0x1F\noctal=010\nlarge=1e10\n"
                             "enable=true\ndisable=FALSE\nMixed=True\nname=rear camera\nGAIN=2\n"
                             "a==5\n=5\nnovalue=\ncrlf=7\r\n";
    for (char const* first :
         {"42",  "-7",         "0",           "3.25", "-0.5", "1e3",    "1.000000005e1", "0x10",
          "010", "2147483648", "-2147483649", "inf",  "nan",  "true",   "FALSE",         "text",
          "1,5", "0x1p-3",     "4294967295",  ".5",   "5.",   "1e-320", "-1e308",        "+9"}) {
        if (!Write(std::string(first) + "\n" + body))
            return false;
    }
    std::string const longText(80, 's');
    return Write(longText + "\nkey=" + longText + "\nlong=" + std::string(300, '7') + "=x\n");
}

} // namespace

int main(int argc, char** argv)
{
    struct
    {
        char const* name;
        bool (*write)();
    } const corpora[] = {
        {"tuningfile", TuningFiles}, {"document", Documents}, {"modules", Modules},
        {"livetuning", LiveTuning},  {"paths", Paths},        {"algosettings", AlgoSettings}};
    for (auto const& corpus : corpora) {
        if (argc == 3 && std::strcmp(argv[1], corpus.name) == 0) {
            g_folder = argv[2];
            return corpus.write() ? 0 : 1;
        }
    }
    std::fprintf(stderr, "usage: %s CORPUS FOLDER\n", argv[0]);
    return 2;
}
