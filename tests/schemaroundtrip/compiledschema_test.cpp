// SPDX-License-Identifier: Apache-2.0
// The schema a writer-made tuning file carries, exported by 'paramctl schema' and generated into
// modules and a set manager at build time (tests/CMakeLists.txt): the compiled modules load every
// value of the file, with no member skipped or missing.
#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/moduledata.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parametermodule.h"
#include "tools/paramctl/document/tuningdocument.h"
#include "tools/paramctl/filesnapshot.h"
#include "tools/paramctl/inputfile.h"
#include "tools/paramctl/loadedfile.h"
#include "tools/paramctl/moduleleaves.h"
#include "tools/writer/definitiontablebuilder.h"

#include "paramgen/SchemaRoundTripSetManager.h"
#include "tests/common/logcapture.h"

namespace {

using ParamCtl::Json;

// Gives every member of a module a value of its own and every counted member elements (two near
// the top, one further down, none in a recursive tree's deep nodes), so that a value read from
// another member's place, or not read at all, shows. Values fit every number type.
class ValueFiller
{
public:
    explicit ValueFiller(Json const& definitions)
    {
        for (Json const& record : definitions) {
            if (record["record"] == "structure")
                m_structures[record["id"].get<uint32_t>()] = &record["members"];
        }
    }

    Json Structure(uint32_t id, unsigned int depth)
    {
        Json value = Json::object();
        for (Json const& member : *m_structures.at(id))
            value[member["name"].get<std::string>()] = Member(member, depth);
        return value;
    }

private:
    Json Member(Json const& member, unsigned int depth)
    {
        TuningWriter::DefinitionElement element;
        element.minCount = member.value("min", 1u);
        element.maxCount = member.value("max", 1u);
        TuningWriter::ElementForm const form = TuningWriter::FormOf(element);
        if (form == TuningWriter::ElementForm::Single)
            return Item(member, depth);
        uint32_t count = element.maxCount;
        if (form == TuningWriter::ElementForm::Counted) {
            uint32_t const wanted = depth < 3 ? 2 : depth < 6 ? 1 : 0;
            count = std::min(element.maxCount, std::max(element.minCount, wanted));
        }
        // A bare array is a counted member's new data entry, or a fixed array's elements.
        Json items = Json::array();
        for (uint32_t i = 0; i < count; ++i)
            items.push_back(Item(member, depth));
        return items;
    }

    Json Item(Json const& member, unsigned int depth)
    {
        std::string const type = member["type"];
        if (type == "Structure")
            return Structure(member["structure"].get<uint32_t>(), depth + 1);
        unsigned int const n = ++m_count % 100 + 1;
        if (type == "String")
            return "text" + std::to_string(n);
        if ((member.value("flags", 0u) & TuningWriter::ElementFourByte) != 0 || type == "Float" ||
            type == "Double")
            return n + 0.25;
        bool const isSigned = type.rfind("Int", 0) == 0 || type == "IntLike";
        return isSigned && n % 2 == 1 ? -static_cast<int>(n) : static_cast<int>(n);
    }

    std::map<uint32_t, Json const*> m_structures;
    unsigned int m_count = 0;
};

TEST(CompiledSchemaTest, GeneratedModulesLoadEveryValueOfTheFile)
{
    std::vector<unsigned char> original;
    std::string reason;
    ASSERT_TRUE(ParamCtl::ReadInputFile(ROUND_TRIP_FILE, original, reason)) << reason;
    Json document;
    ASSERT_TRUE(ParamCtl::ReadTuningDocument(original, document, reason)) << reason;
    std::map<std::string, uint32_t> tops;
    for (Json const& record : document["definitions"]) {
        if (record["record"] == "module")
            tops[record["name"]] = record["structure"];
    }
    ValueFiller filler(document["definitions"]);
    for (Json& row : document["symbols"]) {
        if (row.contains("values"))
            row["values"] = filler.Structure(tops.at(row["name"]), 0);
    }
    std::vector<unsigned char> bytes;
    ASSERT_TRUE(ParamCtl::PackTuningDocument(document, bytes, reason)) << reason;
    // What the file holds, as the document reader says by the file's own schema.
    Json filled;
    ASSERT_TRUE(ParamCtl::ReadTuningDocument(bytes, filled, reason)) << reason;
    ParamCtl::FileSnapshot const file = ParamCtl::SnapshotOf(filled);

    ParamTest::LogCapture log;
    SchemaRoundTripSetManager manager("schema round trip");
    ASSERT_TRUE(manager.LoadBinaryParameters(bytes.data(), bytes.size()))
        << manager.GetErrorString();
    // The reader tells each member it steps over, misses or converts as a warning or an error.
    for (ParamTest::LogLine const& line : log.Lines())
        EXPECT_TRUE(line.severity != 'W' && line.severity != 'E') << line.text;

    PList<ModuleData*> const& records = manager.GetSymbolTable()->Modules();
    ASSERT_EQ(records.Count(), file.instances.size());
    for (unsigned int i = 0; i < records.Count(); ++i) {
        ModuleData const& data = *records[i];
        ParameterModule* module = ParamCtl::InstanceOf(manager, data);
        ASSERT_NE(module, nullptr) << "record " << data.ID;
        std::string const mode = ParamCtl::NamedModePath(data.ModePath);
        SCOPED_TRACE(std::string(module->moduleName) + " in " + mode);
        auto const found =
            file.instances.find({module->moduleName, {data.GetModeTableIndex(), mode}});
        ASSERT_NE(found, file.instances.end());
        EXPECT_TRUE(module->loaded);
        EXPECT_FALSE(found->second.values.empty());
        EXPECT_EQ(ParamCtl::ReadModuleLeaves(*module), found->second.values);
    }
}

} // namespace
