// SPDX-License-Identifier: Apache-2.0
// Catalogue modules end to end: writer-made entries load through the generated module classes,
// and every module class accepts its own file record only.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/defaultmodule.h"
#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parametermemberaccess.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parsercrc.h"
#include "tools/generator/schemaset.h"
#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/entryencoder.h"
#include "tools/writer/symboltablebuilder.h"

#include "paramgen/Vorn.h"
#include "paramgen/Vorn.writer.h"
#include "paramgen/aecxconvergence.h"
#include "paramgen/aecxdbconvbase.h"
#include "paramgen/aecxdbconvbase.writer.h"
#include "paramgen/aftofelements.h"
#include "paramgen/aftofelements.writer.h"
#include "paramgen/gamma_1_6_0.h"
#include "paramgen/gamma_1_6_0.writer.h"
#include "paramgen/gamma_1_6_1.h"
#include "paramgen/gamma_1_6_1.writer.h"
#include "paramgen/modflashdecv1.h"
#include "paramgen/modflashdecv1.writer.h"
#include "paramgen/statsnnsaliency.h"
#include "paramgen/statsnnsaliency.writer.h"
#include "paramgen/trackerroimixer.h"
#include "paramgen/trackerroimixer.writer.h"
#include "paramgen/versionsA_1_0_0.h"
#include "paramgen/versionsA_1_0_0.writer.h"
#include "paramgen/versionsB_1_0_0.h"
#include "paramgen/versionsC_1_0_0.h"
#include "paramgen/versionsD_1_0_0.h"
#include "paramgen/versionsE_1_0_0.h"
#include "paramgen/versionsF_1_0_0.h"
#include "paramgen/versionsG_1_0_0.h"
#include "paramgen/versionsH_1_0_0.h"
#include "paramgen/vornbitmlconfig.h"
#include "paramgen/vornfdconfig.h"
#include "paramgen/vornfdconfig.writer.h"
#include "paramgen/vornflindices.h"
#include "paramgen/vornflindices.writer.h"
#include "paramgen/vornt2tconfig.h"
#include "tests/common/logcapture.h"
#include "tests/common/testsetmanager.h"

namespace {

using TuningWriter::EntryValue;

/// Values for every member a type descriptor lists, each number distinct, so that a member read
/// from a neighbour's place shows. Counted arrays get two elements; a type that holds itself is
/// cut off below its third level, so trees end in leaves.
class ValueMaker
{
public:
    EntryValue Make(ParameterTypeDescriptor const& type)
    {
        std::vector<std::pair<std::string, EntryValue>> fields;
        m_stack.push_back(&type);
        for (uint32_t i = 0; i < type.memberCount; ++i) {
            ParameterMemberDescriptor const& member = type.members[i];
            if (!member.hidden)
                fields.emplace_back(member.name, Member(member));
        }
        m_stack.pop_back();
        return EntryValue::Struct(std::move(fields));
    }

private:
    EntryValue Member(ParameterMemberDescriptor const& member)
    {
        switch (member.kind) {
        case ParameterMemberKind::Scalar:
            return Number(member.storage);
        case ParameterMemberKind::FixedArray:
            return Numbers(member.storage, member.length);
        case ParameterMemberKind::CountedArray:
            return Numbers(member.storage, 2);
        case ParameterMemberKind::OptionalScalar:
            return Numbers(member.storage, 1);
        case ParameterMemberKind::Structure:
            return Make(*member.type);
        case ParameterMemberKind::StructureFixedArray:
            return Structures(*member.type, member.length);
        case ParameterMemberKind::StructureArray:
            return Structures(*member.type, Depth(member.type) < 3 ? 2 : 0);
        case ParameterMemberKind::OptionalStructure:
            return Structures(*member.type, 1);
        case ParameterMemberKind::String:
            return Text();
        case ParameterMemberKind::StringFixedArray:
            return Texts(member.length);
        case ParameterMemberKind::OptionalString:
            return Texts(1);
        case ParameterMemberKind::StringArray:
            return Texts(2);
        }
        return EntryValue();
    }

    EntryValue Number(ParameterStorage storage)
    {
        int64_t const seed = ++m_seed;
        switch (storage) {
        case ParameterStorage::Int8:
        case ParameterStorage::Int16:
        case ParameterStorage::Int32:
        case ParameterStorage::Int64:
            return EntryValue::Int(-(seed % 120) - 1);
        case ParameterStorage::UInt8:
        case ParameterStorage::UInt16:
        case ParameterStorage::UInt32:
        case ParameterStorage::UInt64:
            return EntryValue::UInt(static_cast<uint64_t>(seed % 250) + 1);
        case ParameterStorage::Float:
        case ParameterStorage::Double:
            return EntryValue::Real(static_cast<double>(seed) + 0.25);
        }
        return EntryValue();
    }

    EntryValue Numbers(ParameterStorage storage, uint32_t count)
    {
        std::vector<EntryValue> items;
        for (uint32_t i = 0; i < count; ++i)
            items.push_back(Number(storage));
        return EntryValue::List(std::move(items));
    }

    EntryValue Structures(ParameterTypeDescriptor const& type, uint32_t count)
    {
        std::vector<EntryValue> items;
        for (uint32_t i = 0; i < count; ++i)
            items.push_back(Make(type));
        return EntryValue::List(std::move(items));
    }

    EntryValue Text() { return EntryValue::Text("text" + std::to_string(++m_seed)); }

    EntryValue Texts(uint32_t count)
    {
        std::vector<EntryValue> items;
        for (uint32_t i = 0; i < count; ++i)
            items.push_back(Text());
        return EntryValue::List(std::move(items));
    }

    int Depth(ParameterTypeDescriptor const* type) const
    {
        int depth = 0;
        for (ParameterTypeDescriptor const* open : m_stack)
            depth += open == type ? 1 : 0;
        return depth;
    }

    int64_t m_seed = 0;
    std::vector<ParameterTypeDescriptor const*> m_stack;
};

/// Compares a loaded structure with the value it was written from, member by member through its
/// descriptor; reports each difference with its value path.
class ValueChecker
{
public:
    void Check(void const* object, ParameterTypeDescriptor const& type, EntryValue const& value,
               std::string const& path)
    {
        auto const* base = static_cast<unsigned char const*>(object);
        for (uint32_t i = 0; i < type.memberCount; ++i) {
            ParameterMemberDescriptor const& member = type.members[i];
            if (member.hidden)
                continue;
            std::string const where = path.empty() ? member.name : path + "." + member.name;
            EntryValue const* expected = value.Find(member.name);
            if (expected == nullptr) {
                ADD_FAILURE() << where << ": no value was written";
                continue;
            }
            CheckMember(base, member, *expected, where);
        }
    }

private:
    void CheckMember(unsigned char const* base, ParameterMemberDescriptor const& member,
                     EntryValue const& expected, std::string const& where)
    {
        unsigned char const* at = base + member.offset;
        switch (member.kind) {
        case ParameterMemberKind::Scalar:
            CheckNumber(at, member.storage, expected, where);
            return;
        case ParameterMemberKind::FixedArray:
            CheckNumbers(at, member.storage, expected, where);
            return;
        case ParameterMemberKind::CountedArray:
            if (CheckCount(base, member, expected, where))
                CheckNumbers(Pointer(at), member.storage, expected, where);
            return;
        case ParameterMemberKind::OptionalScalar:
            if (CheckCount(base, member, expected, where))
                CheckNumber(at, member.storage, expected.items[0], where);
            return;
        case ParameterMemberKind::Structure:
            Check(at, *member.type, expected, where);
            return;
        case ParameterMemberKind::StructureFixedArray:
            CheckStructures(at, member, expected, where);
            return;
        case ParameterMemberKind::StructureArray:
            if (CheckCount(base, member, expected, where))
                CheckStructures(Pointer(at), member, expected, where);
            return;
        case ParameterMemberKind::OptionalStructure:
            if (CheckCount(base, member, expected, where))
                Check(at, *member.type, expected.items[0], where);
            return;
        case ParameterMemberKind::String:
            CheckText(at, expected, where);
            return;
        case ParameterMemberKind::StringFixedArray:
            CheckTexts(at, expected, where);
            return;
        case ParameterMemberKind::OptionalString:
            if (CheckCount(base, member, expected, where))
                CheckText(at, expected.items[0], where);
            return;
        case ParameterMemberKind::StringArray:
            if (CheckCount(base, member, expected, where))
                CheckTexts(Pointer(at), expected, where);
            return;
        }
    }

    static unsigned char const* Pointer(unsigned char const* at)
    {
        void const* pointer = nullptr;
        std::memcpy(&pointer, at, sizeof(pointer));
        return static_cast<unsigned char const*>(pointer);
    }

    /// The count word against the items written; false when the elements cannot be compared.
    static bool CheckCount(unsigned char const* base, ParameterMemberDescriptor const& member,
                           EntryValue const& expected, std::string const& where)
    {
        uint32_t count = 0;
        std::memcpy(&count, base + member.countOffset, sizeof(count));
        EXPECT_EQ(count, expected.items.size()) << where << ": count";
        bool const isPointer = member.kind == ParameterMemberKind::CountedArray ||
                               member.kind == ParameterMemberKind::StructureArray ||
                               member.kind == ParameterMemberKind::StringArray;
        if (isPointer && count != 0 && Pointer(base + member.offset) == nullptr) {
            ADD_FAILURE() << where << ": no array behind a count of " << count;
            return false;
        }
        return count == expected.items.size() && count != 0;
    }

    static size_t Width(ParameterStorage storage)
    {
        switch (storage) {
        case ParameterStorage::Int8:
        case ParameterStorage::UInt8:
            return 1;
        case ParameterStorage::Int16:
        case ParameterStorage::UInt16:
            return 2;
        case ParameterStorage::Int32:
        case ParameterStorage::UInt32:
        case ParameterStorage::Float:
            return 4;
        case ParameterStorage::Int64:
        case ParameterStorage::UInt64:
        case ParameterStorage::Double:
            return 8;
        }
        return 0;
    }

    template <typename T> static T Read(unsigned char const* at)
    {
        T value;
        std::memcpy(&value, at, sizeof(value));
        return value;
    }

    static void CheckNumber(unsigned char const* at, ParameterStorage storage,
                            EntryValue const& expected, std::string const& where)
    {
        switch (storage) {
        case ParameterStorage::Int8:
            EXPECT_EQ(Read<int8_t>(at), expected.signedValue) << where;
            return;
        case ParameterStorage::Int16:
            EXPECT_EQ(Read<int16_t>(at), expected.signedValue) << where;
            return;
        case ParameterStorage::Int32:
            EXPECT_EQ(Read<int32_t>(at), expected.signedValue) << where;
            return;
        case ParameterStorage::Int64:
            EXPECT_EQ(Read<int64_t>(at), expected.signedValue) << where;
            return;
        case ParameterStorage::UInt8:
            EXPECT_EQ(Read<uint8_t>(at), expected.unsignedValue) << where;
            return;
        case ParameterStorage::UInt16:
            EXPECT_EQ(Read<uint16_t>(at), expected.unsignedValue) << where;
            return;
        case ParameterStorage::UInt32:
            EXPECT_EQ(Read<uint32_t>(at), expected.unsignedValue) << where;
            return;
        case ParameterStorage::UInt64:
            EXPECT_EQ(Read<uint64_t>(at), expected.unsignedValue) << where;
            return;
        case ParameterStorage::Float:
            EXPECT_EQ(Read<float>(at), static_cast<float>(expected.realValue)) << where;
            return;
        case ParameterStorage::Double:
            EXPECT_EQ(Read<double>(at), expected.realValue) << where;
            return;
        }
    }

    static void CheckNumbers(unsigned char const* at, ParameterStorage storage,
                             EntryValue const& expected, std::string const& where)
    {
        for (size_t i = 0; i < expected.items.size(); ++i)
            CheckNumber(at + i * Width(storage), storage, expected.items[i],
                        where + "[" + std::to_string(i) + "]");
    }

    void CheckStructures(unsigned char const* at, ParameterMemberDescriptor const& member,
                         EntryValue const& expected, std::string const& where)
    {
        for (size_t i = 0; i < expected.items.size(); ++i)
            Check(at + i * member.type->size, *member.type, expected.items[i],
                  where + "[" + std::to_string(i) + "]");
    }

    static void CheckText(unsigned char const* at, EntryValue const& expected,
                          std::string const& where)
    {
        char const* text = Read<char const*>(at);
        EXPECT_EQ(text != nullptr ? std::string(text) : std::string("<null>"), expected.text)
            << where;
    }

    static void CheckTexts(unsigned char const* at, EntryValue const& expected,
                           std::string const& where)
    {
        for (size_t i = 0; i < expected.items.size(); ++i)
            CheckText(at + i * sizeof(char*), expected.items[i],
                      where + "[" + std::to_string(i) + "]");
    }
};

/// The one mode every module record of these files hangs on.
class SingleModeTable : public IModeTable
{
public:
    ModeSlot* GetModeEntry(unsigned int modeId) override { return modeId == 0 ? &m_slot : nullptr; }

private:
    ModeEntry m_mode{false, false};
    ModeSlot m_slot{&m_mode, 0};
};

constexpr char const* InstanceName = "catalogueModule";

/// One module class of the catalogue: how to make its factory instance, and where its file
/// description and its top type's descriptor are.
struct ModuleKind
{
    char const* label;
    ParameterModule* (*makeFactory)(char const* name);
    void (*describe)(TuningWriter::SchemaSet& set);
    char const* topType; ///< qualified name of the top structure in the description
    ParameterTypeDescriptor const* descriptor;
};

template <typename Class> ParameterModule* MakeFactory(char const* name)
{
    return new Class(name);
}

/// A file with one module entry written from the kind's description and the values ValueMaker
/// gives, its symbol table loaded from memory, and the module created for the entry's record
/// and loaded through its class. withDefinitions false leaves the schema section out, so that
/// the module reads by its compiled-in layout (members known only by a hash cannot be named in a
/// written schema).
class LoadedModule
{
public:
    LoadedModule(ModuleKind const& kind, bool withDefinitions)
        : m_kind(kind), m_symbols(m_version), m_factory(kind.makeFactory(InstanceName))
    {
        kind.describe(m_schema);
        ValueMaker maker;
        m_value = maker.Make(*kind.descriptor);
        TuningWriter::EntryEncoder encoder(m_version, m_schema.Structures(), m_symbols);
        TuningWriter::ModuleEntry entry;
        entry.name = InstanceName;
        entry.moduleVersion = {m_factory->version.Parts.Major, m_factory->version.Parts.Minor,
                               m_factory->version.Parts.Patch};
        entry.data = encoder.Encode(m_schema.Id(kind.topType), &m_value);
        m_id = m_symbols.AddModule(std::move(entry));

        std::vector<uint8_t> definitions;
        if (withDefinitions) {
            TuningWriter::DefinitionTableBuilder builder;
            builder.AddModule(m_schema.Module(InstanceName, kind.topType));
            m_schema.AddTo(builder);
            definitions = builder.Build(TuningWriter::AlignmentFor(m_version));
        }
        TuningWriter::SymbolTableBuilder::Sections const sections = m_symbols.Build();
        auto const definitionSection = Append(definitions);
        auto const symbolSection = Append(sections.symbol);
        auto const dataTableSection = Append(sections.dataTable);
        auto const dataSection = Append(sections.data);
        m_table = std::make_unique<ParameterFileSymbolTable>(
            &m_manager, TuningWriter::AlignmentFor(m_version),
            VersionUnion(m_version.major, m_version.minor, m_version.patch));
        auto const length = static_cast<unsigned int>(m_buffer.size());
        m_tableLoaded =
            m_table->Load(m_buffer.data(), length, nullptr, nullptr, length, symbolSection,
                          dataTableSection, dataSection, definitionSection, &m_modes, true);
        m_record = std::make_unique<ModuleData>(ParserCRC64::HashName(InstanceName), m_id, 0,
                                                m_factory->version, 0, &m_modes, &m_manager,
                                                m_table.get());
        m_registry = std::make_unique<DefaultModule>(m_factory);
        m_module = m_factory->Create(m_record.get(), m_registry.get());
        if (m_module != nullptr)
            m_moduleLoaded = m_module->LoadModule(m_table.get());
    }

    ~LoadedModule()
    {
        // Instances give their arrays back to the table, so they go first.
        m_registry.reset();
        m_record.reset();
        m_table.reset();
    }

    LoadedModule(LoadedModule const&) = delete;
    LoadedModule& operator=(LoadedModule const&) = delete;

    /// True when the table read the file and the module was made and loaded from its entry.
    bool Loaded() const { return m_tableLoaded && m_module != nullptr && m_moduleLoaded; }

    ParameterModule* Module() const { return m_module; }

    /// The module's top structure: the class's second base.
    template <typename Class> Class* As() const { return static_cast<Class*>(m_module); }

    /// Compares every member of the loaded top structure with what was written.
    void ExpectEveryMember(void const* top) const
    {
        ValueChecker().Check(top, *m_kind.descriptor, m_value, "");
    }

private:
    ParameterFileSymbolTable::SectionInfo Append(std::vector<uint8_t> const& bytes)
    {
        if (bytes.empty())
            return {0, 0};
        auto const offset = static_cast<uint32_t>(m_buffer.size());
        m_buffer.insert(m_buffer.end(), bytes.begin(), bytes.end());
        return {offset, static_cast<uint32_t>(bytes.size())};
    }

    ModuleKind m_kind;
    TuningWriter::FileVersion m_version{};
    TuningWriter::SchemaSet m_schema;
    TuningWriter::SymbolTableBuilder m_symbols;
    EntryValue m_value;
    uint32_t m_id = 0;
    ParamTest::TestSetManager m_manager;
    SingleModeTable m_modes;
    std::vector<uint8_t> m_buffer;
    std::unique_ptr<ParameterFileSymbolTable> m_table;
    ParameterModule* m_factory;
    std::unique_ptr<ModuleData> m_record;
    std::unique_ptr<DefaultModule> m_registry;
    ParameterModule* m_module = nullptr;
    bool m_tableLoaded = false;
    bool m_moduleLoaded = false;
};

/// The top structure of a loaded module of class Class, for the descriptor walk.
template <typename Class, typename Top> void const* TopOf(ParameterModule* module)
{
    return static_cast<Top const*>(static_cast<Class const*>(module));
}

struct RoundTripCase
{
    ModuleKind kind;
    bool withDefinitions;
    void const* (*top)(ParameterModule* module);
};

void PrintTo(RoundTripCase const& testCase, std::ostream* out)
{
    *out << testCase.kind.label;
}

class CatalogueRoundTripTest : public testing::TestWithParam<RoundTripCase>
{
};

// One module per family, with and without value access, with hashed members, optional members,
// string arrays, a data bank's nested trigger levels, the fixed nest and the recursive tree.
RoundTripCase const RoundTripCases[] = {
    {{"vornflindices", &MakeFactory<vornflindices::FLIndicesTypeClass>,
      &ParamSchema::vornflindices::Describe, "vornflindices::FLIndicesType",
      &vornflindices::FLIndicesType::Descriptor},
     true,
     &TopOf<vornflindices::FLIndicesTypeClass, vornflindices::FLIndicesType>},
    {{"vornfdconfig", &MakeFactory<vornfdconfig::FaceDetectionCtrlTypeClass>,
      &ParamSchema::vornfdconfig::Describe, "vornfdconfig::FaceDetectionCtrlType",
      &vornfdconfig::FaceDetectionCtrlType::Descriptor},
     false,
     &TopOf<vornfdconfig::FaceDetectionCtrlTypeClass, vornfdconfig::FaceDetectionCtrlType>},
    {{"statsnnsaliency", &MakeFactory<statsnnsaliency::varitonalStatsNNSaliencyTypeClass>,
      &ParamSchema::statsnnsaliency::Describe, "statsnnsaliency::varitonalStatsNNSaliencyType",
      &statsnnsaliency::varitonalStatsNNSaliencyType::Descriptor},
     true,
     &TopOf<statsnnsaliency::varitonalStatsNNSaliencyTypeClass,
            statsnnsaliency::varitonalStatsNNSaliencyType>},
    {{"trackerroimixer", &MakeFactory<trackerroimixer::varitonalTrackerROIMixerTypeClass>,
      &ParamSchema::trackerroimixer::Describe, "trackerroimixer::varitonalTrackerROIMixerType",
      &trackerroimixer::varitonalTrackerROIMixerType::Descriptor},
     true,
     &TopOf<trackerroimixer::varitonalTrackerROIMixerTypeClass,
            trackerroimixer::varitonalTrackerROIMixerType>},
    {{"FlashDriverData", &MakeFactory<Vorn::FlashDriverDataClass>, &ParamSchema::Vorn::Describe,
      "Vorn::FlashDriverData", &Vorn::FlashDriverData::Descriptor},
     false,
     &TopOf<Vorn::FlashDriverDataClass, Vorn::FlashDriverData>},
    {{"SensorBinSocIdMap", &MakeFactory<Vorn::SensorBinSocIdMapClass>, &ParamSchema::Vorn::Describe,
      "Vorn::SensorBinSocIdMap", &Vorn::SensorBinSocIdMap::Descriptor},
     true,
     &TopOf<Vorn::SensorBinSocIdMapClass, Vorn::SensorBinSocIdMap>},
    {{"aecxdbconvbase", &MakeFactory<aecxdbconvbase::AECXDBConvBaseTypeClass>,
      &ParamSchema::aecxdbconvbase::Describe, "aecxdbconvbase::AECXDBConvBaseType",
      &aecxdbconvbase::AECXDBConvBaseType::Descriptor},
     true,
     &TopOf<aecxdbconvbase::AECXDBConvBaseTypeClass, aecxdbconvbase::AECXDBConvBaseType>},
    {{"aftofelements", &MakeFactory<aftofelements::varitonalTOFTypeClass>,
      &ParamSchema::aftofelements::Describe, "aftofelements::varitonalTOFType",
      &aftofelements::varitonalTOFType::Descriptor},
     true,
     &TopOf<aftofelements::varitonalTOFTypeClass, aftofelements::varitonalTOFType>},
    {{"modflashdecv1", &MakeFactory<modflashdecv1::varitonalFlashDecV1TypeClass>,
      &ParamSchema::modflashdecv1::Describe, "modflashdecv1::varitonalFlashDecV1Type",
      &modflashdecv1::varitonalFlashDecV1Type::Descriptor},
     true,
     &TopOf<modflashdecv1::varitonalFlashDecV1TypeClass, modflashdecv1::varitonalFlashDecV1Type>},
    {{"gamma_1_6_0", &MakeFactory<gamma_1_6_0::varitonal_gamma16TypeClass>,
      &ParamSchema::gamma_1_6_0::Describe, "gamma_1_6_0::varitonal_gamma16Type",
      &gamma_1_6_0::varitonal_gamma16Type::Descriptor},
     true,
     &TopOf<gamma_1_6_0::varitonal_gamma16TypeClass, gamma_1_6_0::varitonal_gamma16Type>},
    {{"gamma_1_6_1", &MakeFactory<gamma_1_6_1::varitonal_gamma16TypeClass>,
      &ParamSchema::gamma_1_6_1::Describe, "gamma_1_6_1::varitonal_gamma16Type",
      &gamma_1_6_1::varitonal_gamma16Type::Descriptor},
     true,
     &TopOf<gamma_1_6_1::varitonal_gamma16TypeClass, gamma_1_6_1::varitonal_gamma16Type>},
    {{"versionsA_1_0_0", &MakeFactory<versionsA_1_0_0::varitonal_versionsA10TypeClass>,
      &ParamSchema::versionsA_1_0_0::Describe, "versionsA_1_0_0::varitonal_versionsA10Type",
      &versionsA_1_0_0::varitonal_versionsA10Type::Descriptor},
     true,
     &TopOf<versionsA_1_0_0::varitonal_versionsA10TypeClass,
            versionsA_1_0_0::varitonal_versionsA10Type>},
};

TEST_P(CatalogueRoundTripTest, EveryMemberComesBack)
{
    RoundTripCase const& param = GetParam();
    ParamTest::LogCapture log;
    LoadedModule loaded(param.kind, param.withDefinitions);
    ASSERT_TRUE(loaded.Loaded()) << param.kind.label;
    loaded.ExpectEveryMember(param.top(loaded.Module()));
    // A file that carries the very schema the module reads has nothing to complain about.
    // (Without a schema the reader cannot know the width of a short optional number and warns
    // about its block; the values still come back.)
    if (param.withDefinitions) {
        for (std::string const& message : log.Messages())
            ADD_FAILURE() << "logged: " << message;
    }
}

INSTANTIATE_TEST_SUITE_P(Families, CatalogueRoundTripTest, testing::ValuesIn(RoundTripCases),
                         [](testing::TestParamInfo<RoundTripCase> const& testCase) {
                             return std::string(testCase.param.kind.label);
                         });

ModuleKind const& Kind(char const* label)
{
    for (RoundTripCase const& known : RoundTripCases) {
        if (std::strcmp(known.kind.label, label) == 0)
            return known.kind;
    }
    ADD_FAILURE() << "no module kind " << label;
    return RoundTripCases[0].kind;
}

// The tree stamps each node with its depth and the control variable the file names for that
// depth; nodes deeper than the list of control variables keep 0 for both.
TEST(CatalogueTriggerTreeTest, NodesCarryTheirLevelAndControlVariable)
{
    LoadedModule loaded(Kind("gamma_1_6_1"), true);
    ASSERT_TRUE(loaded.Loaded());
    auto const& gamma = *loaded.As<gamma_1_6_1::varitonal_gamma16TypeClass>();
    auto const& variables = gamma.control_variables;
    ASSERT_EQ(variables.control_var_typeCount, 2u);
    ASSERT_EQ(gamma.varitonal_gamma16_core.mod_gamma16_trigger_dataCount, 2u);

    gamma_1_6_1::triggerType const& root = gamma.varitonal_gamma16_core.mod_gamma16_trigger_data[1];
    EXPECT_EQ(root.level, 0u);
    EXPECT_EQ(root.type, variables.control_var_type[0]);
    ASSERT_EQ(root.triggerCount, 2u);
    gamma_1_6_1::triggerType const& child = root.trigger[1];
    EXPECT_EQ(child.level, 1u);
    EXPECT_EQ(child.type, variables.control_var_type[1]);
    ASSERT_EQ(child.triggerCount, 2u);
    gamma_1_6_1::triggerType const& grandchild = child.trigger[0];
    EXPECT_EQ(grandchild.triggerCount, 0u);
    EXPECT_EQ(grandchild.level, 0u);
    EXPECT_EQ(static_cast<unsigned int>(grandchild.type), 0u);
    EXPECT_NE(static_cast<unsigned int>(variables.control_var_type[0]), 0u);

    // The same leaf, reached by a value path through the tree.
    char text[64] = {};
    ASSERT_TRUE(loaded.Module()->GetValue("varitonal_gamma16_core.mod_gamma16_trigger_data[0]."
                                          "trigger[1].region[0].channel_r_tab.channel_r[64]",
                                          text, sizeof(text)));
    float const expected = gamma.varitonal_gamma16_core.mod_gamma16_trigger_data[0]
                               .trigger[1]
                               .region[0]
                               .channel_r_tab.channel_r[64];
    EXPECT_NE(expected, 0.0f);
    // "Int32" held as float: shown rounded to a whole number.
    EXPECT_EQ(std::string(text), std::to_string(static_cast<long>(expected + 0.5f)));
}

// Modules without value access keep the base operations: nothing is reachable by path.
TEST(CatalogueValueAccessTest, ModulesWithoutAccessAnswerNoPath)
{
    LoadedModule loaded(Kind("vornflindices"), true);
    ASSERT_TRUE(loaded.Loaded());
    auto const* indices = loaded.As<vornflindices::FLIndicesTypeClass>();
    EXPECT_NE(indices->numPoints, 0u);
    char text[32] = {};
    EXPECT_FALSE(loaded.Module()->GetValue("numPoints", text, sizeof(text)));
    PList<ParameterParserInfo> info;
    EXPECT_FALSE(loaded.Module()->GetInfo(nullptr, info));
}

/// Every module class generated from the catalogue: its factory instance.
struct FactoryCase
{
    char const* className;
    ParameterModule* (*makeFactory)(char const* name);
};

FactoryCase const Factories[] = {
    {"FLIndicesTypeClass", &MakeFactory<vornflindices::FLIndicesTypeClass>},
    {"FaceDetectionCtrlTypeClass", &MakeFactory<vornfdconfig::FaceDetectionCtrlTypeClass>},
    {"BITMLConfigTypeClass", &MakeFactory<vornbitmlconfig::BITMLConfigTypeClass>},
    {"T2TCtrlTypeClass", &MakeFactory<vornt2tconfig::T2TCtrlTypeClass>},
    {"varitonalStatsNNSaliencyTypeClass",
     &MakeFactory<statsnnsaliency::varitonalStatsNNSaliencyTypeClass>},
    {"varitonalTrackerROIMixerTypeClass",
     &MakeFactory<trackerroimixer::varitonalTrackerROIMixerTypeClass>},
    {"FlashDriverDataClass", &MakeFactory<Vorn::FlashDriverDataClass>},
    {"SensorBinSocIdMapClass", &MakeFactory<Vorn::SensorBinSocIdMapClass>},
    {"AECXConvergenceTypeClass", &MakeFactory<aecxconvergence::AECXConvergenceTypeClass>},
    {"AECXDBConvBaseTypeClass", &MakeFactory<aecxdbconvbase::AECXDBConvBaseTypeClass>},
    {"varitonalTOFTypeClass", &MakeFactory<aftofelements::varitonalTOFTypeClass>},
    {"varitonalFlashDecV1TypeClass", &MakeFactory<modflashdecv1::varitonalFlashDecV1TypeClass>},
    {"varitonal_gamma16TypeClass", &MakeFactory<gamma_1_6_0::varitonal_gamma16TypeClass>},
    {"varitonal_gamma16TypeClass", &MakeFactory<gamma_1_6_1::varitonal_gamma16TypeClass>},
    {"varitonal_versionsA10TypeClass",
     &MakeFactory<versionsA_1_0_0::varitonal_versionsA10TypeClass>},
    {"varitonal_versionsB10TypeClass",
     &MakeFactory<versionsB_1_0_0::varitonal_versionsB10TypeClass>},
    {"varitonal_versionsC10TypeClass",
     &MakeFactory<versionsC_1_0_0::varitonal_versionsC10TypeClass>},
    {"varitonal_versionsD10TypeClass",
     &MakeFactory<versionsD_1_0_0::varitonal_versionsD10TypeClass>},
    {"varitonal_versionsE10TypeClass",
     &MakeFactory<versionsE_1_0_0::varitonal_versionsE10TypeClass>},
    {"varitonal_versionsF10TypeClass",
     &MakeFactory<versionsF_1_0_0::varitonal_versionsF10TypeClass>},
    {"varitonal_versionsG10TypeClass",
     &MakeFactory<versionsG_1_0_0::varitonal_versionsG10TypeClass>},
    {"varitonal_versionsH10TypeClass",
     &MakeFactory<versionsH_1_0_0::varitonal_versionsH10TypeClass>},
};

void PrintTo(FactoryCase const& testCase, std::ostream* out)
{
    *out << testCase.className;
}

class CatalogueCreateTest : public testing::TestWithParam<FactoryCase>
{
};

std::string VersionMessage(char const* className, VersionUnion file, VersionUnion source)
{
    char text[256];
    snprintf(text, sizeof(text),
             "Unable to create %s, binary version (%lld) does not match source version (%lld)\n",
             className, static_cast<long long>(file.Raw), static_cast<long long>(source.Raw));
    return text;
}

std::string HashMessage(char const* className, unsigned long file, unsigned long source)
{
    char text[256];
    snprintf(text, sizeof(text),
             "Unable to create %s, binary name hash (0x%016llx) does not match source name hash "
             "(0x%016llx)\n",
             className, static_cast<unsigned long long>(file),
             static_cast<unsigned long long>(source));
    return text;
}

// Create makes an instance for a record of its own name and version only. Any other version
// (one generation's patch against the other's, as between gamma_1_6_0 and gamma_1_6_1) is
// refused first, even when the name differs too; then any other name.
TEST_P(CatalogueCreateTest, AcceptsOnlyItsOwnVersionAndName)
{
    FactoryCase const& param = GetParam();
    ParamTest::TestSetManager manager;
    SingleModeTable modes;
    ParameterModule* factory = param.makeFactory(InstanceName);
    VersionUnion const own = factory->version;
    unsigned long const ownHash = ParserCRC64::HashName(InstanceName);
    unsigned long const otherHash = ParserCRC64::HashName("otherModule");
    ModuleData accepted(ownHash, 5, 0, own, 0, &modes, &manager, nullptr);
    DefaultModule registry(factory);

    ParameterModule* instance = factory->Create(&accepted, &registry);
    ASSERT_NE(instance, nullptr);
    EXPECT_NE(instance, factory);
    EXPECT_EQ(registry.Find(5), instance);

    struct Refusal
    {
        VersionUnion version;
        unsigned long nameHash;
        bool versionMessage;
    };
    Refusal const refusals[] = {
        {VersionUnion(own.Parts.Major, own.Parts.Minor, own.Parts.Patch ^ 1u), ownHash, true},
        {VersionUnion(own.Parts.Major, static_cast<unsigned short>(own.Parts.Minor + 1),
                      own.Parts.Patch),
         ownHash, true},
        {VersionUnion(static_cast<unsigned short>(own.Parts.Major + 1), own.Parts.Minor,
                      own.Parts.Patch),
         otherHash, true},
        {own, otherHash, false},
    };
    for (Refusal const& refusal : refusals) {
        ParamTest::LogCapture log;
        ModuleData record(refusal.nameHash, 6, 0, refusal.version, 0, &modes, &manager, nullptr);
        EXPECT_EQ(factory->Create(&record, &registry), nullptr);
        std::string const expected = refusal.versionMessage
                                         ? VersionMessage(param.className, refusal.version, own)
                                         : HashMessage(param.className, refusal.nameHash, ownHash);
        EXPECT_TRUE(log.HasMessage(expected)) << expected;
    }
    EXPECT_EQ(registry.Find(6), nullptr);
}

INSTANTIATE_TEST_SUITE_P(AllModules, CatalogueCreateTest, testing::ValuesIn(Factories),
                         [](testing::TestParamInfo<FactoryCase> const& testCase) {
                             return std::string(testCase.param.className) + "_" +
                                    std::to_string(testCase.index);
                         });

} // namespace
