// SPDX-License-Identifier: Apache-2.0
// The document model of paramctl: writer-made files of every version and shape go to JSON and
// back byte for byte, edits give sound files, damage gives messages (to the schema export too).
#include "tools/paramctl/document/tuningdocument.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/generator/instancecatalogue.h"
#include "tools/paramctl/document/schematables.h"
#include "tools/writer/entryencoder.h"
#include "tools/writer/modesectionbuilder.h"
#include "tools/writer/symboltablebuilder.h"
#include "tools/writer/tuningdescription.h"

#include "paramgen/TuningSetManager.writer.h"
#include "tests/common/definitionmember.h"
#include "tests/common/logcapture.h"

namespace {

using ParamCtl::Json;
using ParamTest::Member;
using ParamTest::StructMember;
using TuningWriter::ElementType;
using TuningWriter::EntryValue;
using TuningWriter::FileVersion;

/// The deepest nesting of structures the writer writes and the document reads.
constexpr uint32_t DepthLimit = 33;

constexpr FileVersion Versions[] = {{1, 0, 0}, {1, 0, 2}, {1, 1, 0}, {2, 0, 0},
                                    {3, 0, 0}, {3, 0, 1}, {3, 0, 2}, {4, 0, 0},
                                    {5, 0, 0}, {6, 0, 0}, {7, 0, 0}};

// Every member form the file format has: each number type, four-byte elements, fixed, counted
// and optional members, texts alone, fixed and counted, and structures inline, fixed and
// counted.
std::vector<TuningWriter::DefinitionStructure> EveryFormSchema()
{
    TuningWriter::DefinitionStructure inner{2, "Inner", std::nullopt, {}};
    inner.elements = {Member("gain", ElementType::Int16), Member("label", ElementType::String)};
    TuningWriter::DefinitionStructure top{1, "EveryForm", std::nullopt, {}};
    char const* const numbers[] = {
        "i8", "u8", "i16",      "u16",       "i32",      "u32",      "i64",     "u64",
        "f",  "d",  "byteLike", "shortLike", "uintLike", "longLike", "intLike", "uintLike2"};
    for (unsigned int code = 8; code <= 23; ++code)
        top.elements.push_back(Member(numbers[code - 8], static_cast<ElementType>(code)));
    top.elements.push_back(
        Member("fourByte", ElementType::Int32, 1, 1, TuningWriter::ElementFourByte));
    top.elements.push_back(Member("fixed", ElementType::UInt16, 3, 3));
    top.elements.push_back(Member("counted", ElementType::Float, 0, 65535));
    top.elements.push_back(Member("optional", ElementType::UInt32, 0, 1));
    top.elements.push_back(Member("text", ElementType::String));
    top.elements.push_back(Member("texts", ElementType::String, 2, 2));
    top.elements.push_back(Member("textList", ElementType::String, 0, 8));
    top.elements.push_back(StructMember("inner", 2));
    top.elements.push_back(StructMember("inners", 2, 2, 2));
    top.elements.push_back(StructMember("innerList", 2, 0, 4));
    return {inner, top};
}

EntryValue Inner(int64_t gain, char const* label)
{
    return EntryValue::Struct(
        {{"gain", EntryValue::Int(gain)}, {"label", EntryValue::Text(label)}});
}

EntryValue EveryFormValue(int64_t seed)
{
    EntryValue value = EntryValue::Struct({});
    value.Set("i8", EntryValue::Int(-seed))
        .Set("u8", EntryValue::UInt(200))
        .Set("i16", EntryValue::Int(-30000))
        .Set("u16", EntryValue::UInt(65535))
        .Set("i32", EntryValue::Int(-2000000000))
        .Set("u32", EntryValue::UInt(4000000000u))
        .Set("i64", EntryValue::Int(-9000000000000000000ll))
        .Set("u64", EntryValue::UInt(18000000000000000000ull))
        .Set("f", EntryValue::Real(0.1))
        .Set("d", EntryValue::Real(1e300))
        .Set("intLike", EntryValue::Int(-7))
        .Set("fourByte", EntryValue::Real(2.5))
        .Set("fixed",
             EntryValue::List({EntryValue::UInt(1), EntryValue::UInt(2), EntryValue::UInt(3)}))
        .Set("optional", EntryValue::List({EntryValue::UInt(static_cast<uint64_t>(seed))}))
        .Set("text", EntryValue::Text("seed " + std::to_string(seed)))
        .Set("texts", EntryValue::List({EntryValue::Text("a"), EntryValue::Text("")}))
        .Set("textList", EntryValue::List({EntryValue::Text("x"), EntryValue::Text("yz")}))
        .Set("inner", Inner(5, "in"))
        .Set("inners", EntryValue::List({Inner(1, "one"), Inner(2, "two")}))
        .Set("innerList", EntryValue::List({Inner(-1, "listed")}));
    // A float array with a value JSON has no number for; it travels as its bits.
    EntryValue counted = EntryValue::List(
        {EntryValue::Real(-0.5), EntryValue::Real(INFINITY), EntryValue::Real(1e-3)});
    counted.blockName = "counted" + std::to_string(seed);
    value.Set("counted", counted);
    return value;
}

// Two mode tables, one with pipeline variants, a link and a resident node; three instances of
// one module, two of which share their data, a shared data block, every kind of definition
// record, and padding up to the size a file-mode load reads first. rootLength is the length word
// of the first and third instances' top structure, if not their structure's length.
std::vector<uint8_t> EveryFormFile(FileVersion version, std::optional<uint32_t> rootLength)
{
    TuningWriter::TuningFileWriter writer(version);
    TuningWriter::ModeSectionBuilder rear(0, "rear");
    uint32_t const preview = rear.AddPath("Default|Sensor.0|Usecase.Preview");
    uint32_t const video = rear.AddPath("Default|Sensor.0|Usecase.Video");
    rear.AddChild(preview, 2, 0, 1);
    rear.AddChild(video, 3, 1, 0, TuningWriter::ModeFlagResident, preview);
    TuningWriter::ModeSectionBuilder front(1, "front");
    uint32_t const frontSensor = front.AddPath("Default|Sensor.1");

    TuningWriter::SymbolTableBuilder tables(version);
    std::vector<TuningWriter::DefinitionStructure> const schema = EveryFormSchema();
    TuningWriter::EntryEncoder encoder(version, schema, tables);
    EntryValue root = EveryFormValue(1);
    root.loadLimitOverride = rootLength;
    EntryValue second = EveryFormValue(2);
    second.items.back().duplicateOf = "counted1";
    second.items.back().items = root.Find("counted")->items;
    uint32_t const first =
        tables.AddModule({"everyForm", std::nullopt, {1, 2, 3}, 0, encoder.Encode(1, &root), 0});
    tables.AddModule(
        {"everyForm", std::nullopt, {1, 2, 3}, preview, encoder.Encode(1, &second), 0});
    tables.AddModule(
        {"everyForm", std::nullopt, {1, 2, 3}, frontSensor, encoder.Encode(1, &root), first});

    TuningWriter::DefinitionTableBuilder definitions;
    definitions.AddOpaque({0, "opaque zero", ""}).AddOpaque({2, "first", "second"});
    definitions.AddModule({1, "everyForm", std::nullopt, "module text"});
    for (TuningWriter::DefinitionStructure const& structure : schema)
        definitions.AddStructure(structure);
    definitions.AddEnum(
        {9, "Colour", std::nullopt, {{0, false, "red", ""}, {1, true, "blue", "b"}}});
    definitions.AddOpaque({1, "opaque one", ""});

    tables.AddTo(writer);
    rear.AddTo(writer);
    front.AddTo(writer);
    writer.AddSection(TuningWriter::SectionType::Definition,
                      definitions.Build(TuningWriter::AlignmentFor(version)));
    writer.SetMinimumFileSize(TuningWriter::FileModeWindow);
    return writer.Build();
}

std::vector<uint8_t> EveryFormFile(FileVersion version)
{
    return EveryFormFile(version, std::nullopt);
}

// Modules of a shipped set manager without a definition table: read by the compiled schemas.
// The catalogue's first instance is among them, at its defaults, and one that no catalogue has.
std::vector<uint8_t> CompiledSchemaFile(FileVersion version)
{
    TuningWriter::TuningFileWriter writer(version);
    TuningWriter::SymbolTableBuilder tables(version);
    TuningWriter::SchemaSet set;
    TuningWriter::InstanceCatalogue const& catalogue = ParamSchema::TuningSetManager::Instances();
    TuningWriter::InstanceSchema const* tracker = catalogue.Find("t2tconfigdata");
    TuningWriter::InstanceSchema const* versions = catalogue.Find("versionsA_sw");
    TuningWriter::InstanceSchema const& first = catalogue.instances[0];
    uint32_t const trackerId = tracker->Describe(set);
    uint32_t const versionsId = versions->Describe(set);
    uint32_t const firstId = first.Describe(set);
    TuningWriter::EntryEncoder encoder(version, set.Structures(), tables);
    EntryValue tuned = EntryValue::Struct(
        {{"operationMode", EntryValue::UInt(2)}, {"downscaleRatio", EntryValue::Real(0.25)}});
    EntryValue revision = EntryValue::Struct(
        {{"parameter_version", EntryValue::Struct({{"revision", EntryValue::Text("rev-9")}})}});
    tables.AddModule(
        {"t2tconfigdata", std::nullopt, tracker->version, 0, encoder.Encode(trackerId, &tuned), 0});
    tables.AddModule({"versionsA_sw", std::nullopt, versions->version, 0,
                      encoder.Encode(versionsId, &revision), 0});
    tables.AddModule(
        {first.instanceName, std::nullopt, first.version, 0, encoder.Encode(firstId, nullptr), 0});
    // A module no catalogue knows stays bytes.
    tables.AddModule({"unknownModule", std::nullopt, {1, 0, 0}, 0, {1, 2, 3, 4}, 0});
    tables.AddTo(writer);
    return writer.Build();
}

std::vector<uint8_t> SampleFile(FileVersion)
{
    TuningWriter::TuningDescription description({&ParamSchema::TuningSetManager::Instances()});
    EXPECT_TRUE(description.ParseFile(PARAM_SOURCE_DIR "/examples/sample.tuning"))
        << description.Error();
    return description.MakeWriter().Build();
}

std::vector<uint8_t> MinimalFile(FileVersion version)
{
    return TuningWriter::TuningFileWriter(version).AddMinimalSections().Build();
}

struct Shape
{
    char const* name;
    std::vector<uint8_t> (*build)(FileVersion);
    bool everyVersion;
    char const* schemas; ///< what "schemas"."source" must say
};

constexpr Shape Shapes[] = {
    {"minimal", MinimalFile, true, "none"},
    {"every member form", EveryFormFile, true, "file"},
    {"compiled schemas", CompiledSchemaFile, true, "compiled"},
    {"bundled sample", SampleFile, false, "file"},
};

std::string VersionName(FileVersion version)
{
    return std::to_string(version.major) + "." + std::to_string(version.minor) + "." +
           std::to_string(version.patch);
}

// The document as a reader of the JSON text sees it: doubles, 64-bit integers and escaped bytes
// go through their text form.
Json ThroughText(Json const& document)
{
    return Json::parse(document.dump(2));
}

Json Document(std::vector<uint8_t> const& file)
{
    Json document;
    std::string error;
    EXPECT_TRUE(ParamCtl::ReadTuningDocument(file, document, error)) << error;
    return document;
}

std::vector<uint8_t> Packed(Json const& document)
{
    std::vector<uint8_t> bytes;
    std::string error;
    EXPECT_TRUE(ParamCtl::PackTuningDocument(document, bytes, error)) << error;
    return bytes;
}

TEST(TuningDocumentTest, EveryWriterMadeFileGoesToJsonAndBackByteForByte)
{
    for (Shape const& shape : Shapes) {
        for (FileVersion const version : Versions) {
            if (!shape.everyVersion && !(version.major == 7))
                continue;
            SCOPED_TRACE(std::string(shape.name) + ", version " + VersionName(version));
            std::vector<uint8_t> const file = shape.build(version);
            Json const document = ThroughText(Document(file));
            EXPECT_EQ(document["problems"], Json::array());
            EXPECT_EQ(document["schemas"]["source"], shape.schemas);
            // Every module instance a schema describes is read as values; only the unknown one
            // is left as bytes.
            size_t bytesOnly = 0;
            for (Json const& row : document["symbols"])
                bytesOnly += row["modeId"] != 0xFFFFFFFFu && !row.contains("values");
            EXPECT_EQ(bytesOnly, shape.build == CompiledSchemaFile ? 1u : 0u);
            // A member that is no structure names none.
            for (Json const& record : document.value("definitions", Json::array())) {
                for (Json const& member : record.value("members", Json::array()))
                    EXPECT_TRUE(member["type"] == "Structure" || !member.contains("structure"))
                        << member.dump();
            }
            EXPECT_EQ(Packed(document), file);
        }
    }
}

// An entry that its values would not write back exactly (here a length word that is not its
// structure's length) stays bytes, so that the document still packs back byte for byte.
TEST(TuningDocumentTest, EntryThatItsValuesWouldNotWriteBackStaysBytes)
{
    std::vector<uint8_t> const file = EveryFormFile({7, 0, 0}, 4);
    Json const document = ThroughText(Document(file));
    std::vector<bool> withValues;
    for (Json const& row : document["symbols"]) {
        if (row["modeId"] != 0xFFFFFFFFu)
            withValues.push_back(row.contains("values"));
    }
    EXPECT_EQ(withValues, (std::vector<bool>{false, true, false}));
    EXPECT_EQ(Packed(document), file);
}

TEST(DocumentJsonTest, IdentifiersStartWithALetterOrUnderscore)
{
    for (auto const& [name, identifier] :
         {std::pair{"a1_b", true}, {"_x", true}, {"1a", false}, {"", false}, {"a-b", false}})
        EXPECT_EQ(ParamCtl::IsIdentifier(name), identifier) << name;
}

TEST(TuningDocumentTest, ReadsValuesByTheFilesOwnNamesAndModePaths)
{
    Json const document = Document(EveryFormFile({7, 0, 0}));
    Json const& preview = document["symbols"][2];
    EXPECT_EQ(preview["name"], "everyForm");
    EXPECT_EQ(preview["modePath"], "0.0|1.0|2.0");
    EXPECT_EQ(preview["mode"], "Default|Sensor.0|Usecase.Preview");
    Json const& values = preview["values"];
    EXPECT_EQ(values["i8"], -2);
    EXPECT_EQ(values["u64"], 18000000000000000000ull);
    EXPECT_EQ(values["f"], 0.1);
    EXPECT_EQ(values["fourByte"], 2.5);
    EXPECT_EQ(values["counted"]["values"], Json::parse(R"([-0.5, "0x7f800000", 0.001])"));
    EXPECT_EQ(values["inners"][1]["label"]["text"], "two");
    EXPECT_EQ(values["innerList"]["values"][0]["gain"], -1);
    // The third instance shares the root's block, and the second the root's data block.
    EXPECT_EQ(document["symbols"][3]["sharesDataWith"], 1);
    Json const& data = document["dataTable"];
    auto const copy = std::find_if(data.begin(), data.end(), [&](Json const& row) {
        return row["id"] == values["counted"]["entry"];
    });
    ASSERT_NE(copy, data.end());
    EXPECT_EQ((*copy)["sharesDataWith"], document["symbols"][1]["values"]["counted"]["entry"]);
    EXPECT_EQ(document["modeTables"][1]["name"], "front");
    EXPECT_EQ(document["modeTables"][0]["tree"][0]["children"][0]["step"], "Sensor.0");
}

// Below 4.0.0 data entries are rows of the symbol table: counted values given anew (bare arrays)
// become rows behind those of the document.
TEST(TuningDocumentTest, NewDataEntriesOfOldFilesAreSymbolRows)
{
    Json document = Document(EveryFormFile({3, 0, 0}));
    size_t const rows = document["symbols"].size();
    std::function<void(Json&)> const renew = [&renew](Json& value) {
        if (value.is_object() && value.contains("entry") && value.contains("values"))
            value = Json(value["values"]);
        else if (value.is_structured())
            for (Json& item : value)
                renew(item);
    };
    for (Json& row : document["symbols"]) {
        if (row.contains("values"))
            renew(row["values"]);
    }
    Json const reread = Document(Packed(document));
    EXPECT_GT(reread["symbols"].size(), rows);
    EXPECT_EQ(reread["problems"], Json::array());
}

TEST(TuningDocumentTest, RefusesValuesThatDoNotFitTheirMembersNamingThePath)
{
    struct Case
    {
        char const* pointer;
        Json value;
        char const* message;
    };
    Case const cases[] = {
        {"/symbols/1/values/u8", 256, "symbols[1].values.u8 is out of range for 8-bit unsigned"},
        {"/symbols/1/values/i32", 1.5, "symbols[1].values.i32 must be an integer"},
        {"/symbols/1/values/u32", -1, "symbols[1].values.u32 must not be negative"},
        {"/symbols/1/values/f", 1e300, "symbols[1].values.f is out of the range of a float"},
        {"/symbols/1/values/fixed", Json::array({1, 2}), "fixed must be an array of 3 elements"},
        {"/symbols/1/values/text", 5, "text must be a text"},
        {"/symbols/1/values/nosuch", 1, "symbols[1].values.nosuch is no member of EveryForm"},
        {"/symbols/1/values/counted", Json::object({{"entry", 99}, {"values", Json::array()}}),
         "values.counted points at entry 99, which the data table does not have"},
        {"/symbols/1/hex", "0g", "symbols[1].hex must be hex digits, two a byte"},
        {"/symbols/1/hex", "g0", "symbols[1].hex must be hex digits, two a byte"},
        {"/symbols/1/hex", "abc", "symbols[1].hex must be hex digits, two a byte"},
    };
    Json const original = Document(EveryFormFile({7, 0, 0}));
    for (Case const& c : cases) {
        SCOPED_TRACE(c.pointer);
        Json document = original;
        document[Json::json_pointer(c.pointer)] = c.value;
        std::vector<uint8_t> bytes;
        std::string error;
        EXPECT_FALSE(ParamCtl::PackTuningDocument(document, bytes, error));
        EXPECT_NE(error.find(c.message), std::string::npos) << error;
    }
}

// Damaged files end in a message or in a document that lists what is wrong, and what the
// document holds still packs.
TEST(TuningDocumentTest, DamagedFilesGiveMessagesNotCrashes)
{
    ParamTest::LogCapture quiet; // the library's reader logs each short read
    for (FileVersion const version : {FileVersion{3, 0, 0}, FileVersion{7, 0, 0}}) {
        std::vector<uint8_t> const file = EveryFormFile(version);
        for (size_t cut = 0; cut < file.size(); cut += 97) {
            SCOPED_TRACE("cut at " + std::to_string(cut));
            std::vector<uint8_t> damaged(file.begin(), file.begin() + static_cast<long>(cut));
            // Flip a byte in the middle of what is left, too.
            if (!damaged.empty())
                damaged[damaged.size() / 2] ^= 0x5A;
            Json document;
            std::string error;
            if (!ParamCtl::ReadTuningDocument(damaged, document, error)) {
                EXPECT_FALSE(error.empty());
                continue;
            }
            EXPECT_FALSE(document["problems"].empty());
            std::vector<uint8_t> bytes;
            static_cast<void>(ParamCtl::PackTuningDocument(document, bytes, error));
            std::map<std::string, std::string> tables;
            std::vector<std::string> notes;
            static_cast<void>(ParamCtl::ExportSchemaTables(document, "", "", tables, notes, error));
        }
    }
    // The schema export names what it cannot state: a type code that no name stands for (given
    // as its number, which is no type name), a module whose structure the table lacks.
    struct Case
    {
        std::function<void(Json&)> edit; ///< applied to each definition record
        char const* error;
    } const cases[] = {
        {[](Json& record) {
             if (record["record"] == "structure" && record["id"] == 1)
                 record["members"][0]["type"] = 0x3F;
         },
         "member i8 has a type code no table can state"},
        {[](Json& record) {
             if (record["record"] == "module")
                 record["structure"] = 999;
         },
         "module everyForm names structure 999, which the table does not have"},
    };
    for (Case const& test : cases) {
        Json document = Document(EveryFormFile({7, 0, 0}));
        for (Json& record : document["definitions"])
            test.edit(record);
        std::map<std::string, std::string> tables;
        std::vector<std::string> notes;
        std::string error;
        EXPECT_FALSE(ParamCtl::ExportSchemaTables(document, "", "", tables, notes, error));
        EXPECT_EQ(error, test.error);
    }
}

// A block comes back as a family version whose sections may use types of their own: one the
// file names like a type the family rules make (here the reserve's) is declared under another
// name, or the generator would meet two types of one name.
TEST(TuningDocumentTest, SchemaExportRenamesSectionTypesTheFamilyRulesName)
{
    Json document = Document(SampleFile({7, 0, 0}));
    Json& records = document["definitions"];
    uint32_t const added = 1000;
    for (Json& record : records) {
        if (record["record"] == "structure" &&
            record["name"] == "varitonal_versionsA10_reserveType")
            record["members"].push_back({{"name", "extra"},
                                         {"type", "Structure"},
                                         {"structure", added},
                                         {"min", 1},
                                         {"max", 1}});
    }
    records.push_back({{"record", "structure"},
                       {"id", added},
                       {"name", "varitonal_versionsA10_reserveType"},
                       {"members", {{{"name", "x"}, {"type", "Float"}, {"min", 1}, {"max", 1}}}}});
    std::map<std::string, std::string> tables;
    std::vector<std::string> notes;
    std::string error;
    ASSERT_TRUE(ParamCtl::ExportSchemaTables(document, "", "", tables, notes, error)) << error;
    std::string const& family = tables["versionsA.family"];
    EXPECT_NE(family.find("  type varitonal_versionsA10_reserveType_1000\n    x  Float  float\n"),
              std::string::npos)
        << family;
    EXPECT_NE(family.find("    extra  varitonal_versionsA10_reserveType_1000\n"), std::string::npos)
        << family;

    // A reserve that the file makes a number is no block's: the module goes out as plain types.
    for (Json& record : records) {
        if (!record.contains("members"))
            continue;
        for (Json& member : record["members"]) {
            if (member["name"] == "varitonal_versionsA10_reserve")
                member["type"] = "UInt32";
        }
    }
    tables.clear();
    ASSERT_TRUE(ParamCtl::ExportSchemaTables(document, "", "", tables, notes, error)) << error;
    EXPECT_EQ(tables.count("versionsA.family"), 0u);
}

// An instance name fills the file's 64-character module name field at most: a longer one is no
// instance name of a module list and is left out of it, with a note.
TEST(TuningDocumentTest, ModuleListTakesInstanceNamesUpToTheirField)
{
    for (size_t const length : {64, 65}) {
        SCOPED_TRACE(length);
        std::string const name(length, 'n');
        Json document = Document(EveryFormFile({7, 0, 0}));
        for (Json& row : document["symbols"]) {
            if (row.contains("name"))
                row["name"] = name;
        }
        for (Json& record : document["definitions"]) {
            if (record["record"] == "module")
                record["name"] = name;
        }
        std::map<std::string, std::string> tables;
        std::vector<std::string> notes;
        std::string error;
        ASSERT_TRUE(ParamCtl::ExportSchemaTables(document, "", "Limits", tables, notes, error))
            << error;
        EXPECT_EQ(tables["Limits.list"].find("\n" + name + "  ") != std::string::npos, length == 64)
            << tables["Limits.list"];
        EXPECT_EQ(
            std::count(notes.begin(), notes.end(),
                       "module " + name + ": no instance name of a module list, left out of it"),
            length == 64 ? 0 : 1);
    }
}

// Values nest up to a depth: a module whose structures nest to it is written and read as values,
// one a level deeper is written without its innermost level and left as bytes with a problem.
TEST(TuningDocumentTest, ValuesNestUpToTheDepthLimit)
{
    ParamTest::LogCapture quiet; // the library's reader logs the short read
    for (uint32_t const levels : {DepthLimit, DepthLimit + 1}) {
        SCOPED_TRACE(levels);
        std::vector<TuningWriter::DefinitionStructure> chain;
        EntryValue value = EntryValue::Struct({{"x", EntryValue::UInt(7)}});
        for (uint32_t id = levels; id >= 1; --id) {
            chain.push_back(
                {id,
                 "Level" + std::to_string(id),
                 std::nullopt,
                 {id == levels ? Member("x", ElementType::UInt32) : StructMember("next", id + 1)}});
            if (id < levels)
                value = EntryValue::Struct({{"next", value}});
        }
        FileVersion const version{7, 0, 0};
        TuningWriter::SymbolTableBuilder tables(version);
        TuningWriter::EntryEncoder encoder(version, chain, tables);
        tables.AddModule({"deep", std::nullopt, {1, 0, 0}, 0, encoder.Encode(1, &value), 0});
        TuningWriter::DefinitionTableBuilder definitions;
        definitions.AddModule({1, "deep", std::nullopt, ""});
        for (TuningWriter::DefinitionStructure const& structure : chain)
            definitions.AddStructure(structure);
        TuningWriter::TuningFileWriter writer(version);
        tables.AddTo(writer);
        writer.AddSection(TuningWriter::SectionType::Definition, definitions.Build(1));
        Json const document = Document(writer.Build());
        EXPECT_EQ(document["symbols"][1].contains("values"), levels == DepthLimit);
        EXPECT_EQ(document["problems"].empty(), levels == DepthLimit) << document["problems"];
    }
}

// The document's top-level members are the ones its JSON Schema documents, the required ones
// among them: a member added to dump without its documentation, or one dropped, fails here.
TEST(TuningDocumentTest, DocumentsHaveTheDocumentedMembers)
{
    std::ifstream stream(PARAM_SOURCE_DIR "/tools/paramctl/tuningfile.schema.json");
    Json const schema = Json::parse(stream);
    for (Shape const& shape : Shapes) {
        SCOPED_TRACE(shape.name);
        Json const document = Document(shape.build({3, 0, 0}));
        for (auto const& member : document.items())
            EXPECT_TRUE(schema["properties"].contains(member.key())) << member.key();
        for (Json const& required : schema["required"])
            EXPECT_TRUE(document.contains(required)) << required;
    }
}

} // namespace
