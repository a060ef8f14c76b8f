// SPDX-License-Identifier: Apache-2.0
// Generated module classes against writer-made files: load and unload, creation checks, failed
// and repeated loads, edit generations and the registry chain; value access by textual path;
// arrays that several entries share; trigger trees and their copies.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/parameterclone.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/parametervaluepath.h"

#include "paramgen/clonetest_1_0_1.h"
#include "paramgen/moduletest.h"
#include "tests/common/definitionmember.h"
#include "tests/common/logcapture.h"
#include "tests/common/modulefile.h"
#include "tests/common/testsetmanager.h"

namespace {

using moduletest::moduleTestType;
using moduletest::moduleTestTypeClass;
using ParamTest::LoadedModule;
using ParamTest::ModuleFile;
using ParamTest::Reals;
using TuningWriter::ElementType;
using TuningWriter::EntryValue;

constexpr char const* InstanceName = "moduleTest";
ParamTest::ModuleSchema const TestModule{
    &moduleTestType::Descriptor, "moduletest::moduleTestType", InstanceName, {2, 3, 1}};
ParamTest::ModuleSchema const Tree{&clonetest_1_0_1::varitonal_clonetest10Type::Descriptor,
                                   "clonetest_1_0_1::varitonal_clonetest10Type",
                                   "clonetest10_v2",
                                   {1, 0, 1}};
using TreeType = clonetest_1_0_1::varitonal_clonetest10Type;
using TreeClass = clonetest_1_0_1::varitonal_clonetest10TypeClass;
using TreeNode = clonetest_1_0_1::triggerType;

EntryValue Pair(char const* first, EntryValue a, char const* second, EntryValue b)
{
    return EntryValue::Struct({{first, std::move(a)}, {second, std::move(b)}});
}

/// A trigger with one row per value of data, the rows' points counting up from start.
EntryValue Trigger(double start, std::vector<double> const& data)
{
    std::vector<EntryValue> rows;
    for (size_t i = 0; i < data.size(); ++i)
        rows.push_back(Pair("triggerPt", Pair("start", EntryValue::Real(start + i), "end", {}),
                            "triggerData",
                            EntryValue::Struct({{"data", EntryValue::Real(data[i])}})));
    return Pair("triggerPt", Pair("start", EntryValue::Real(start), "end", {}), "triggerData",
                EntryValue::List(rows));
}

/// The values the tests write unless they change some: every member kind set, arrays of several
/// elements.
EntryValue SampleValue()
{
    auto landmark = [](uint64_t index, double margin) {
        return Pair("landmarkIndex", EntryValue::UInt(index), "shrinkMarginFactor",
                    EntryValue::Real(margin));
    };
    EntryValue const shrink = EntryValue::Struct({
        {"enable", EntryValue::Int(1)},
        {"faceNum", EntryValue::UInt(3)},
        {"landmarkPoints",
         EntryValue::List({landmark(4, 0.5), landmark(9, 0.25), landmark(12, 0.125)})},
        {"facePoseShrinkFactor", Pair("rollShrinkFactor", Trigger(1.5, {0.9}), "pitchShrinkFactor",
                                      Trigger(5, {0.6, 0.5}))},
        {"factorRoundingPrecision", EntryValue::Real(0.05)},
        {"faceMaskROIControl", Pair("enableMaskROIAdjustment", EntryValue::Int(1),
                                    "minROISizeToRemoveMask", Reals({8, 12}))},
        {"reservedParameters", Reals({0, 1, 2, 3.5, 4, 5, 6, 7, 8, 9})},
    });
    return EntryValue::Struct({
        {"module_version",
         Pair("major_revision", EntryValue::Int(2), "minor_revision", EntryValue::Int(3))},
        {"parameter_version", EntryValue::Struct({{"revision", EntryValue::Text("rev-A")}})},
        {"noise_threshold_g", EntryValue::Real(2.75)},
        {"frameCount", EntryValue::UInt(9007199254740993ull)},
        {"optionalGain", Reals({1.25})},
        {"levels", EntryValue::List({EntryValue::UInt(1), EntryValue::UInt(7)})},
        {"labels", EntryValue::List(
                       {EntryValue::Text("near"), EntryValue::Text("far"), EntryValue::Text("")})},
        {"table",
         EntryValue::List({EntryValue::Int(10), EntryValue::Int(20), EntryValue::Int(30)})},
        {"shrink", shrink},
        {"corners",
         EntryValue::List({Pair("x", EntryValue::Int(-4), "weight", EntryValue::Real(0.5)),
                           Pair("x", EntryValue::Int(11), "weight", EntryValue::Real(2.5))})},
        {"note", EntryValue::List({EntryValue::Text("spare")})},
    });
}

/// The registry entry a set manager would hold for the test module, over a file of two samples.
class ModuleTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_first = m_file.AddModule(SampleValue());
        m_second = m_file.AddModule(SampleValue());
        ASSERT_TRUE(m_file.Build());
    }

    moduleTestTypeClass* Create(ModuleData* record)
    {
        return static_cast<moduleTestTypeClass*>(m_kind.module->Create(record, &m_kind));
    }

    ParamTest::TestSetManager m_manager;
    ModuleFile m_file{TestModule, {}, true, &m_manager};
    uint32_t m_first = 0;
    uint32_t m_second = 0;
    DefaultModule m_kind{new moduleTestTypeClass(InstanceName)};
};

// A load counts itself and keeps the ID; a second load of a loaded module changes nothing. Each
// edit counts and steps the ID's top byte, which wraps to 1, not 0. The unload gives every
// allocation back, and the module reloads by the ID's low 24 bits.
TEST_F(ModuleTest, LoadEditAndUnload)
{
    moduleTestTypeClass* module = Create(m_file.Record(m_first));
    ASSERT_NE(module, nullptr);
    ASSERT_TRUE(module->LoadModule(&m_file.Table()));
    module->UnloadModule();
    // What the table sets up on its first read stays; the load's own allocations go with it.
    size_t const before = Vorn::Testing::AllocatedBytes();
    ParamTest::LogCapture log;
    EXPECT_TRUE(module->LoadModule(&m_file.Table()));
    EXPECT_TRUE(module->loaded);
    EXPECT_EQ(module->modified, 2u);
    EXPECT_EQ(module->symbolTableID, m_first);
    EXPECT_EQ(log.Messages(), std::vector<std::string>());
    module->shrink.faceNum = 42;
    EXPECT_TRUE(module->LoadModule(&m_file.Table()));
    EXPECT_EQ(module->modified, 2u);
    EXPECT_EQ(module->shrink.faceNum, 42u);

    for (int edit = 1; edit <= 254; ++edit)
        ASSERT_TRUE(module->SetValue("shrink.faceNum", "5"));
    EXPECT_EQ(module->symbolTableID, 0xFE000000u | m_first);
    ASSERT_TRUE(module->SetValue("shrink.faceNum", "6"));
    EXPECT_EQ(module->symbolTableID, 0xFF000000u | m_first) << "255th edit";
    ASSERT_TRUE(module->SetValue("shrink.faceNum", "7"));
    EXPECT_EQ(module->symbolTableID, 0x01000000u | m_first) << "256th edit wraps to 1, not 0";
    EXPECT_EQ(module->modified, 2u + 256u);

    module->UnloadModule();
    EXPECT_FALSE(module->loaded);
    EXPECT_EQ(module->labels, nullptr);
    EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before);
    EXPECT_TRUE(module->LoadModule(&m_file.Table())) << "found by the low 24 bits";
    EXPECT_EQ(module->shrink.faceNum, 3u);
}

TEST_F(ModuleTest, CreateRefusesAnotherVersionOrName)
{
    std::string const unable = "Unable to create moduleTestTypeClass, binary ";
    auto const versionMessage = [&](VersionUnion binary) {
        return unable + "version (" + std::to_string(binary.Raw) +
               ") does not match source version (" + std::to_string(VersionUnion(2, 3, 1).Raw) +
               ")\n";
    };
    char hashMessage[200];
    std::snprintf(hashMessage, sizeof(hashMessage),
                  "%sname hash (0x%016lx) does not match source name hash (0x%016lx)\n",
                  unable.c_str(), ParserCRC64::HashName("otherModule"),
                  ParserCRC64::HashName(InstanceName));
    struct Case
    {
        TuningWriter::FileVersion version;
        char const* name;
        std::string message;
    };
    Case const cases[] = {
        {{2, 3, 0}, InstanceName, versionMessage(VersionUnion(2, 3, 0))},
        {{2, 4, 1}, InstanceName, versionMessage(VersionUnion(2, 4, 1))},
        // The version is checked before the name.
        {{2, 4, 1}, "otherModule", versionMessage(VersionUnion(2, 4, 1))},
        {{2, 3, 1}, "otherModule", hashMessage},
    };
    for (Case const& item : cases) {
        SCOPED_TRACE(item.message);
        ParamTest::LogCapture log;
        EXPECT_EQ(Create(m_file.Record(m_first, 0, item.name, &item.version)), nullptr);
        EXPECT_TRUE(log.HasMessage(item.message)) << testing::PrintToString(log.Messages());
        EXPECT_EQ(m_kind.first, nullptr);
    }
}

// A record with a duplicate ID gets the instance of that ID. Instances are found by their ID, a
// second instance of an ID once the first one leaves; an instance without a record (as a factory
// is) makes a lookup walk the chain in order, and matches any ID behind the others.
TEST_F(ModuleTest, RegistryChainFindsInstancesByTheirId)
{
    moduleTestTypeClass* a = Create(m_file.Record(m_first));
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(Create(m_file.Record(m_second, m_first)), a);
    moduleTestTypeClass* b = Create(m_file.Record(m_second));
    ASSERT_NE(b, nullptr);
    EXPECT_NE(b, a);
    EXPECT_EQ(m_kind.Find(99), nullptr);
    auto* twin = new moduleTestTypeClass(InstanceName, m_file.Record(m_first));
    m_kind.AddModule(twin);
    EXPECT_EQ(m_kind.Find(m_first), a);
    m_kind.RemoveModule(a);
    delete a;
    EXPECT_EQ(m_kind.Find(m_first), twin);
    auto* spare = new moduleTestTypeClass("spare");
    m_kind.AddModule(spare);
    EXPECT_EQ(m_kind.Find(m_second), b);
    EXPECT_EQ(m_kind.Find(99), spare);
}

TEST_F(ModuleTest, MissingSymbolIdLeavesZerosAndUnloaded)
{
    moduleTestTypeClass* module = Create(m_file.Record(77));
    ASSERT_NE(module, nullptr);
    // Stale values from an earlier life must not survive a failed load.
    module->noise_threshold_g = 5.0f;
    module->shrink.faceNum = 9;
    ParamTest::LogCapture log;
    EXPECT_FALSE(module->LoadModule(&m_file.Table()));
    EXPECT_TRUE(log.HasMessage(
        "moduleTestTypeClass::LoadModule Failed to find module ID (77) in Symbol Table\n"));
    EXPECT_FALSE(module->loaded);
    EXPECT_EQ(module->modified, 1u);
    moduleTestType zero{};
    zero.symbolTableID = 77;
    EXPECT_EQ(std::memcmp(static_cast<moduleTestType*>(module), &zero, sizeof(zero)), 0);
}

// ---- Value paths ---------------------------------------------------------------------------

class ValuePathTest : public ModuleTest
{
protected:
    void SetUp() override
    {
        ModuleTest::SetUp();
        m_module = Create(m_file.Record(m_first));
        ASSERT_NE(m_module, nullptr);
        ASSERT_TRUE(m_module->LoadModule(&m_file.Table()));
    }

    /// What GetValue leaves in a buffer of size, or "<false>" when it fails and leaves the buffer
    /// alone; a byte written past size shows as "<overrun>".
    std::string Get(char const* path, unsigned int size = 256)
    {
        std::string out(size + 1, '#');
        bool const read = m_module->GetValue(path, out.data(), size);
        if (out[size] != '#')
            return "<overrun>";
        if (!read)
            return out == std::string(size + 1, '#') ? "<false>" : "<false, written>";
        return out.c_str();
    }

    moduleTestTypeClass* m_module = nullptr;
};

// Text is cut to the buffer, terminator included, and an empty buffer is never written.
TEST_F(ValuePathTest, GetValueByPath)
{
    std::string const reserved = "0.0,1.0,2.0,3.5,4.0,5.0,6.0,7.0,8.0,9.0";
    struct Case
    {
        char const* path;
        std::string text;
        unsigned int size = 256;
    } const cases[] = {
        // An index at the last element reads it; one past reads the whole array.
        {"shrink.reservedParameters[9]", "9.0"},
        {"shrink.reservedParameters[10]", reserved},
        {"table[2]", "30"},
        {"table[3]", "10,20,30"},
        {"labels[2]", ""},
        {"labels[3]", "near,far,"},
        {"shrink.facePoseShrinkFactor.pitchShrinkFactor.triggerData[1].triggerData.data", "0.5"},
        {"shrink.landmarkPoints[2].landmarkIndex", "12"},
        {"corners[1].x", "11"},
        // A float held under an integer name reads without its fraction (2.75).
        {"noise_threshold_g", "2"},
        // Steps behind a number are ignored.
        {"shrink.enable.x", "1"},
        {"frameCount", "9007199254740992"},
        {"optionalGain", "1.25"},
        {"levels", "1,7"},
        {"parameter_version.revision", "rev-A"},
        {"note", "spare"},
        {"shrink.reservedParameters", "0.0,1.0", 8},
        {"shrink.reservedParameters", "0.0,1.", 7},
        {"parameter_version.revision", "rev-A", 6},
        {"parameter_version.revision", "rev-", 5},
    };
    for (Case const& item : cases)
        EXPECT_EQ(Get(item.path, item.size), item.text) << item.path << " " << item.size;
    // An element one past the last of an array of structures, and paths to no value.
    for (char const* path :
         {"shrink.landmarkPoints", "shrink.landmarkPoints[3].landmarkIndex", "shrink.missing",
          "Shrink.enable", "", "shrink", "shrink.facePoseShrinkFactor", "corners", "corners[2].x"})
        EXPECT_EQ(Get(path), "<false>") << path;
    for (char const* path :
         {"shrink.reservedParameters[10]", "labels", "parameter_version.revision", "shrink.enable"})
        EXPECT_EQ(Get(path, 0), "<false>") << path;
}

// Each change is read back by path and counts as an edit; a refusal changes and counts nothing.
TEST_F(ValuePathTest, SetValueStoresNumbersAndListsAndRefusesTheRest)
{
    struct Case
    {
        char const* path;
        char const* value;
        bool stored;
        char const* readPath;
        char const* text;
    } const cases[] = {
        // A list stores from the first element on and skips what is no number; "" is no change.
        {"shrink.reservedParameters", "10,x,12", true, "shrink.reservedParameters",
         "10.0,1.0,12.0,3.5,4.0,5.0,6.0,7.0,8.0,9.0"},
        {"shrink.reservedParameters", "", true, "shrink.reservedParameters[0]", "10.0"},
        // An index at the last element sets it; one past stores a list from the first.
        {"shrink.reservedParameters[9]", "19", true, "shrink.reservedParameters[9]", "19.0"},
        {"shrink.reservedParameters[10]", "20", true, "shrink.reservedParameters[0]", "20.0"},
        // A list longer than the array stops at its end; a counted array never grows.
        {"table", "1,2,3,4,5", true, "table", "1,2,3"},
        {"table[2]", "33", true, "table", "1,2,33"},
        {"table[3]", "7", true, "table", "7,2,33"},
        // A float held under an integer name keeps its fraction but shows without it.
        {"noise_threshold_g", "2.25", true, "noise_threshold_g", "2"},
        // Integer storage saturates.
        {"shrink.faceNum", "-5", true, "shrink.faceNum", "0"},
        {"levels[0]", "2", true, "levels", "2,7"},
        {"shrink.landmarkPoints[2].shrinkMarginFactor", "0.75", true,
         "shrink.landmarkPoints[2].shrinkMarginFactor", "0.75"},
        // Texts belong to their load; an element one past the last of structures is no value.
        {"levels[1]", "many", false, "levels", "2,7"},
        {"parameter_version.revision", "rev-B", false, "parameter_version.revision", "rev-A"},
        {"labels[0]", "x", false, "labels[0]", "near"},
        {"note", "other", false, "note", "spare"},
        {"corners", "1", false, "corners[0].x", "-4"},
        {"shrink.landmarkPoints[3].landmarkIndex", "1", false, "shrink.faceNum", "0"},
        {"corners[2].x", "1", false, "corners[1].x", "11"},
        {"shrink.nothing", "1", false, "shrink.faceNum", "0"},
    };
    uint32_t edits = 1;
    for (Case const& item : cases) {
        EXPECT_EQ(m_module->SetValue(item.path, item.value), item.stored) << item.path;
        EXPECT_EQ(Get(item.readPath), item.text) << item.path;
        edits += item.stored ? 1 : 0;
    }
    EXPECT_FLOAT_EQ(m_module->noise_threshold_g, 2.25f);
    EXPECT_EQ(m_module->modified, edits);
    EXPECT_EQ(m_module->symbolTableID, ((edits - 1) << 24) | m_first);
}

/// "name type value" of each record (a null name as "-"), with "[count]" for an array.
std::vector<std::string> Records(PList<ParameterParserInfo> const& list)
{
    std::vector<std::string> texts;
    for (unsigned int i = 0; i < list.Count(); ++i)
        texts.push_back(std::string(list[i].name != nullptr ? list[i].name : "-") + " " +
                        list[i].type + " " + list[i].value +
                        (list[i].isArray ? "[" + std::to_string(list[i].count) + "]" : ""));
    return texts;
}

// A structure lists its members; a named member gives one record without a name, an element the
// members of that element; every call appends. Arrays of numbers are not named: their values
// come through GetValue.
TEST_F(ValuePathTest, GetInfoListsMembersOrDescribesOne)
{
    PList<ParameterParserInfo> list;
    ASSERT_TRUE(m_module->GetInfo("shrink.", list));
    ASSERT_TRUE(m_module->GetInfo("shrink.landmarkPoints", list));
    ASSERT_TRUE(m_module->GetInfo("shrink.landmarkPoints[1]", list));
    ASSERT_TRUE(m_module->GetInfo("parameter_version.revision", list));
    EXPECT_FALSE(m_module->GetInfo("shrink.reservedParameters", list));
    EXPECT_FALSE(m_module->GetInfo("shrink.missing", list));
    EXPECT_EQ(
        Records(list),
        (std::vector<std::string>{
            "enable Boolean 1", "faceNum UInt32 3", "landmarkPoints Structure [3]",
            "facePoseShrinkFactor Structure ", "factorRoundingPrecision Float 0.0500000007",
            "factorFilterLength UInt32 0", "minShrinkFactor Float 0.0",
            "roiSizeInCropWindow Boolean 0", "minROISizeToShrink Float 0.0",
            "faceMaskROIControl Structure ", "reservedParameters Float [10]", "- Structure [3]",
            "landmarkIndex UInt32 9", "shrinkMarginFactor Float 0.25", "- String rev-A"}));
    PList<ParameterParserInfo> top;
    ASSERT_TRUE(m_module->GetInfo("", top));
    ASSERT_EQ(top.Count(), 11u);
    EXPECT_EQ(Records(top)[2], "noise_threshold_g UInt32 2");
    EXPECT_EQ(Records(top)[6], "labels String [3]");
    EXPECT_EQ(Records(top)[9], "corners Structure [2]");
    EXPECT_FALSE(ParameterValuePath::GetInfo(nullptr, moduleTestType::Descriptor, "", top));
}

// ---- Shared arrays -------------------------------------------------------------------------

/// A list of n elements of the kind a member holds: numbers, texts, landmarks.
EntryValue Items(char kind, unsigned int n)
{
    std::vector<EntryValue> items;
    for (unsigned int i = 0; i < n; ++i)
        items.push_back(kind == 'n'   ? EntryValue::Int(10 * (i + 1))
                        : kind == 't' ? EntryValue::Text("label" + std::to_string(i))
                                      : Pair("landmarkIndex", EntryValue::UInt(i + 1),
                                             "shrinkMarginFactor", EntryValue::Real(0.5)));
    return EntryValue::List(items);
}

using Array = std::pair<void const*, unsigned int>;

/// The array the member at path holds in module, and its count.
Array ArrayAt(moduleTestType const& module, std::string const& path)
{
    if (path == "table")
        return {module.table, module.tableCount};
    if (path == "labels")
        return {module.labels, module.labelsCount};
    if (path == "shrink.landmarkPoints")
        return {module.shrink.landmarkPoints, module.shrink.landmarkPointsCount};
    return {module.parameter_version.revision, 1};
}

// Two holders of one block, declaring the same count or another one: the first loads it, the
// second takes the same array (cut to what it holds) and the registry counts both; the array goes
// with the last, whichever that is.
TEST(ModuleSharingTest, SharedArrayIsLoadedOnceAndFreedWithItsLastHolder)
{
    struct Case
    {
        char const* path; ///< the member, one step or two
        char kind;        ///< of Items; 's' for a single text
        unsigned int first;
        unsigned int second;
        bool secondUnloadsLast;
    } const cases[] = {
        {"table", 'n', 3, 3, false},
        {"table", 'n', 3, 5, false},
        {"labels", 't', 2, 6, false},
        {"shrink.landmarkPoints", 'l', 3, 4, false},
        {"parameter_version.revision", 's', 1, 1, false},
        // A holder with fewer elements keeps its count; going last, it still frees them all.
        {"labels", 't', 3, 1, true},
    };
    for (Case const& c : cases) {
        std::string const path = c.path;
        SCOPED_TRACE(path + " " + std::to_string(c.first) + "/" + std::to_string(c.second));
        size_t const before = Vorn::Testing::AllocatedBytes();
        {
            // Both holders name one block of the larger count: only the counts they declare
            // differ, so the array the first one loads is the smaller one when it goes first.
            ModuleFile file(TestModule);
            EntryValue values[2] = {SampleValue(), SampleValue()};
            for (int holder = 0; holder < 2; ++holder) {
                EntryValue list = c.kind == 's' ? EntryValue::Text("shared text")
                                                : Items(c.kind, std::max(c.first, c.second));
                (holder == 0 ? list.blockName : list.duplicateOf) = "shared";
                if (c.kind != 's')
                    list.countOverride = holder == 0 ? c.first : c.second;
                size_t const dot = path.find('.');
                std::string const outer = path.substr(0, dot);
                values[holder].Set(
                    outer,
                    dot == std::string::npos
                        ? list
                        : EntryValue(*values[holder].Find(outer)).Set(path.substr(dot + 1), list));
            }
            uint32_t const firstId = file.AddModule(values[0]);
            uint32_t const secondId = file.AddModule(values[1]);
            ASSERT_TRUE(file.Build());

            ParamTest::LogCapture log;
            LoadedModule<moduleTestTypeClass> a(file, firstId, InstanceName);
            LoadedModule<moduleTestTypeClass> b(file, secondId, InstanceName);
            ASSERT_TRUE(a.loadResult && b.loadResult);
            Array const shared = ArrayAt(*a.module, path);
            EXPECT_EQ(ArrayAt(*b.module, path).first, shared.first) << "one array for both";
            EXPECT_EQ(shared.second, c.first);
            EXPECT_EQ(ArrayAt(*b.module, path).second, std::min(c.first, c.second));
            std::string const cut =
                "holds " + std::to_string(c.first) + " elements, not " + std::to_string(c.second);
            EXPECT_EQ(log.Contains(cut), c.second > c.first);
            DupObjInfo* info = file.Table().FindDupObject(const_cast<void*>(shared.first));
            ASSERT_NE(info, nullptr);
            EXPECT_EQ(info->RefCount.load(), 2u);
            moduleTestTypeClass* earlier = c.secondUnloadsLast ? a.module : b.module;
            moduleTestTypeClass* later = c.secondUnloadsLast ? b.module : a.module;
            earlier->UnloadModule();
            EXPECT_EQ(ArrayAt(*earlier, path).first, nullptr);
            EXPECT_EQ(info->RefCount.load(), 1u);
            EXPECT_EQ(ArrayAt(*later, path).first, shared.first) << "kept for its other holder";
            later->UnloadModule();
            EXPECT_EQ(file.Table().FindDupObject(const_cast<void*>(shared.first)), nullptr);
        }
        EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before) << "every element freed once";
    }
}

// ---- Trigger trees ---------------------------------------------------------------------------

EntryValue Node(double start, EntryValue children)
{
    return EntryValue::Struct({{"start", EntryValue::Real(start)},
                               {"end", EntryValue::Real(start + 1)},
                               {"trigger", std::move(children)}});
}

// A leaf with one region whose red table rises by 16 a point from base.
EntryValue Leaf(double start, double base)
{
    std::vector<double> red;
    for (int i = 0; i < 65; ++i)
        red.push_back(base + 16 * i);
    EntryValue const region =
        EntryValue::Struct({{"channel_r_tab", EntryValue::Struct({{"channel_r", Reals(red)}})}});
    return Node(start, EntryValue::List({})).Set("region", EntryValue::List({region}));
}

/// A tree module whose control variables name two levels (4 then 9) over the given roots.
EntryValue TreeValue(EntryValue roots)
{
    return EntryValue::Struct(
        {{"control_variables",
          EntryValue::Struct({{"control_var_type",
                               EntryValue::List({EntryValue::UInt(4), EntryValue::UInt(9)})}})},
         {"varitonal_clonetest10_core",
          EntryValue::Struct({{"mod_clonetest10_trigger_data", std::move(roots)}})}});
}

// After a load each node knows its level and the control variable of that level; a third level
// of nodes lies past the list and keeps what it was loaded with (zeros). The file's nodes hold a
// member the compiled ones lack: it is stepped over, and the hidden members the load fills in are
// no difference of the file's. A copy owns every node and region array, and editing it leaves the
// module alone.
TEST(TriggerTreeTest, NodesTakeTheirLevelAndACopyOwnsThem)
{
    size_t const before = Vorn::Testing::AllocatedBytes();
    {
        ModuleFile file(Tree);
        for (TuningWriter::DefinitionStructure& structure : file.FileSchema()) {
            if (structure.name == "triggerType")
                structure.elements.push_back(ParamTest::Member("spare", ElementType::UInt32));
        }
        EntryValue const third = EntryValue::List({Node(100, EntryValue::List({}))});
        uint32_t const id = file.AddModule(TreeValue(
            EntryValue::List({Node(0, EntryValue::List({Node(10, third), Leaf(20, 0.75)})),
                              Node(1, EntryValue::List({}))})));
        ASSERT_TRUE(file.Build());
        ParamTest::LogCapture log;
        LoadedModule<TreeClass> loaded(file, id, Tree.instanceName);
        ASSERT_TRUE(loaded.loadResult);
        EXPECT_EQ(log.Count("Structure triggerType of the file differs from compiled triggerType: "
                            "1 members stepped over, 0 missing, 0 in another form"),
                  1u);

        auto const& core = loaded.module->varitonal_clonetest10_core;
        ASSERT_EQ(core.mod_clonetest10_trigger_dataCount, 2u);
        TreeNode const& first = core.mod_clonetest10_trigger_data[0];
        ASSERT_EQ(first.triggerCount, 2u);
        ASSERT_EQ(first.trigger[0].triggerCount, 1u);
        auto const levelAndType = [](TreeNode const& node) {
            return std::make_pair(node.level, static_cast<uint32_t>(node.type));
        };
        EXPECT_EQ(levelAndType(core.mod_clonetest10_trigger_data[1]), std::make_pair(0u, 4u));
        EXPECT_EQ(levelAndType(first), std::make_pair(0u, 4u));
        EXPECT_EQ(levelAndType(first.trigger[1]), std::make_pair(1u, 9u));
        EXPECT_EQ(levelAndType(first.trigger[0].trigger[0]), std::make_pair(0u, 0u));
        EXPECT_FLOAT_EQ(first.trigger[0].trigger[0].start, 100.0f);
        // The hidden members are not on a value path; six steps reach a leaf's table, where an
        // "Int32" held as float shows without its fraction.
        char out[64];
        std::string const root = "varitonal_clonetest10_core.mod_clonetest10_trigger_data[0].";
        EXPECT_FALSE(loaded.module->GetValue((root + "level").c_str(), out, sizeof(out)));
        PList<ParameterParserInfo> members;
        ASSERT_TRUE(loaded.module->GetInfo(root.c_str(), members));
        EXPECT_EQ(Records(members),
                  (std::vector<std::string>{"start Float 0.0", "end Float 1.0",
                                            "trigger Structure [2]", "region Structure [0]"}));
        ASSERT_TRUE(loaded.module->GetValue(
            (root + "trigger[1].region[0].channel_r_tab.channel_r[64]").c_str(), out, sizeof(out)));
        EXPECT_STREQ(out, "1024");

        TreeType* copy = static_cast<TreeType const&>(*loaded.module).Clone();
        ASSERT_NE(copy, nullptr);
        auto const& copiedRoots = copy->varitonal_clonetest10_core;
        ASSERT_EQ(copiedRoots.mod_clonetest10_trigger_dataCount, 2u);
        EXPECT_NE(copiedRoots.mod_clonetest10_trigger_data, core.mod_clonetest10_trigger_data);
        TreeNode const& node = copiedRoots.mod_clonetest10_trigger_data[0];
        ASSERT_EQ(node.triggerCount, 2u);
        EXPECT_NE(node.trigger, first.trigger);
        ASSERT_EQ(node.trigger[1].regionCount, 1u);
        EXPECT_NE(node.trigger[1].region, first.trigger[1].region);
        EXPECT_EQ(node.trigger[1].level, 1u);
        // A node without children or regions has null arrays in the copy too.
        TreeNode const& bare = copiedRoots.mod_clonetest10_trigger_data[1];
        EXPECT_EQ(bare.triggerCount, 0u);
        EXPECT_EQ(bare.trigger, nullptr);
        EXPECT_EQ(bare.region, nullptr);
        node.trigger[1].region[0].channel_r_tab.channel_r[64] = 5.0f;
        EXPECT_FLOAT_EQ(first.trigger[1].region[0].channel_r_tab.channel_r[64], 1024.75f);
        ParameterClone::Destroy(copy, TreeType::Descriptor);
    }
    EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before);
}

} // namespace
