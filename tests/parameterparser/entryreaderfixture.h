// SPDX-License-Identifier: Apache-2.0
// The compiled-in side of the entry reader tests: a sample module with one member of every
// reader kind, loaded the way generated code loads, and writer-made files to load it from.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterentryreader.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterfilesymboltableentry.h"
#include "parameterparser/parsercrc.h"
#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/entryencoder.h"
#include "tools/writer/symboltablebuilder.h"

#include "tests/common/logcapture.h"
#include "tests/common/testsetmanager.h"

namespace EntryReaderTest {

using TuningWriter::DefinitionElement;
using TuningWriter::DefinitionStructure;
using TuningWriter::ElementType;
using TuningWriter::EntryValue;
using TuningWriter::FileVersion;

inline unsigned long Hash(char const* name)
{
    return ParserCRC64::HashName(name);
}

constexpr char const* ModuleName = "EntryReaderSample";
constexpr uint32_t SampleStructureId = 1;
constexpr uint32_t InnerStructureId = 2;

// Dup types of the pointer members, numbered as the generator numbers them.
constexpr int CountedLoc = 8;
constexpr int ItemsLoc = 9;
constexpr int NameLoc = 10;
constexpr int LabelsLoc = 11;
constexpr int OptionalNameLoc = 12;

/// Frees a loaded pointer the way generated Unload does: shared objects only on their last
/// release.
inline void ReleasePointer(ParameterFileSymbolTable* table, void*& pointer)
{
    if (pointer == nullptr)
        return;
    if (table == nullptr || table->ReleaseDupObject(pointer))
        VornFree(pointer, VornTagRelease);
    pointer = nullptr;
}

template <typename T> void Release(ParameterFileSymbolTable* table, T*& pointer)
{
    void* raw = pointer;
    ReleasePointer(table, raw);
    pointer = static_cast<T*>(raw);
}

/// Compiled-in: { int32 a; float b[2]; }
struct InnerType
{
    int32_t a;
    float b[2];

    void Load(ParameterLoadParameters& params)
    {
        std::memset(this, 0, sizeof(*this));
        ParameterLoadParameters local;
        if (!ParameterEntryReader::BeginStructure(params, local))
            return;
        ParameterFileSymbolTableEntry* entry = params.entry;
        local.nameHash = Hash("a");
        entry->ReadSimpleTypeFixedArray(&a, 1, local);
        local.nameHash = Hash("b");
        entry->ReadSimpleTypeFixedArray(b, 2, local);
        entry->UpdatePosition(local.loadLimit);
    }

    static void LoadArray(ParameterLoadParameters& params, void* array, unsigned int count)
    {
        if (array == nullptr)
            return;
        for (unsigned int i = 0; i < count; ++i) {
            params.arrayIndex = i;
            static_cast<InnerType*>(array)[i].Load(params);
        }
    }

    static void* AllocArray(unsigned int count)
    {
        return count == 0 ? nullptr : VornCalloc(count * sizeof(InnerType), VornTagAllocData);
    }
};

/// Compiled-in module: one member of every reader kind, in this order.
struct SampleType
{
    uint32_t symbolTableID;
    uint32_t first;
    int16_t shortValue;
    float gains[3];
    InnerType inner;
    InnerType pairs[2];
    uint32_t countedCount;
    uint32_t countedID;
    uint32_t* counted; // minimum 1
    double optionalValue;
    uint32_t optionalValueCount;
    uint32_t optionalValueID;
    uint32_t itemsCount;
    uint32_t itemsID;
    InnerType* items; // minimum 0
    InnerType optionalInner;
    uint32_t optionalInnerCount;
    uint32_t optionalInnerID;
    char* name;
    uint32_t labelsCount;
    uint32_t labelsID;
    char** labels;
    char* optionalName;
    uint32_t optionalNameCount;
    uint32_t optionalNameID;
    uint32_t last;

    void Load(ParameterLoadParameters& params)
    {
        std::memset(&first, 0, sizeof(*this) - offsetof(SampleType, first));
        ParameterLoadParameters local;
        if (!ParameterEntryReader::BeginStructure(params, local))
            return;
        ParameterFileSymbolTableEntry* entry = params.entry;
        local.nameHash = Hash("first");
        entry->ReadSimpleTypeFixedArray(&first, 1, local);
        local.nameHash = Hash("shortValue");
        entry->ReadSimpleTypeFixedArray(&shortValue, 1, local);
        local.nameHash = Hash("gains");
        entry->ReadSimpleTypeFixedArray(gains, 3, local);
        local.nameHash = Hash("inner");
        inner.Load(local);
        local.nameHash = Hash("pairs");
        entry->ReadStructureFixedArray(&InnerType::LoadArray, pairs, 2, local);
        local.nameHash = Hash("counted");
        entry->ReadSimpleTypeArray(counted, countedCount, countedID, 1, local, CountedLoc, false);
        local.nameHash = Hash("optionalValue");
        entry->ReadOptionalSimpleType(optionalValue, optionalValueCount, optionalValueID, local);
        local.nameHash = Hash("items");
        items = static_cast<InnerType*>(
            entry->ReadStructureArray(&InnerType::LoadArray, &InnerType::AllocArray, itemsCount,
                                      itemsID, 0, local, ItemsLoc));
        local.nameHash = Hash("optionalInner");
        entry->ReadOptionalStructure(&InnerType::LoadArray, &optionalInner, optionalInnerCount,
                                     optionalInnerID, local);
        local.nameHash = Hash("name");
        entry->ReadStringFixedArray(&name, 1, local, NameLoc);
        local.nameHash = Hash("labels");
        entry->ReadStringArray(labels, labelsCount, labelsID, 0, local, LabelsLoc);
        local.nameHash = Hash("optionalName");
        entry->ReadOptionalString(optionalName, optionalNameCount, optionalNameID, local,
                                  OptionalNameLoc);
        local.nameHash = Hash("last");
        entry->ReadSimpleTypeFixedArray(&last, 1, local);
        entry->UpdatePosition(local.loadLimit);
    }

    void Unload(ParameterFileSymbolTable* table)
    {
        Release(table, counted);
        Release(table, items);
        Release(table, name);
        if (labels != nullptr) {
            // The texts belong to the array: they go with its last holder.
            char** array = labels;
            unsigned int const count = labelsCount;
            void* raw = labels;
            labels = nullptr;
            if (table == nullptr || table->ReleaseDupObject(raw)) {
                for (unsigned int i = 0; i < count; ++i)
                    Release(table, array[i]);
                VornFree(raw, VornTagRelease);
            }
        }
        Release(table, optionalName);
    }
};

inline DefinitionElement Element(std::string name, ElementType type, uint32_t minCount = 1,
                                 uint32_t maxCount = 1, uint32_t id = 0, uint16_t flags = 0)
{
    DefinitionElement element;
    element.name = std::move(name);
    element.type = type;
    element.id = id;
    element.minCount = minCount;
    element.maxCount = maxCount;
    element.flags = flags;
    return element;
}

/// The file's schema when it was written from the compiled-in one: tests copy and change it.
struct Schema
{
    std::vector<DefinitionElement> sample;
    std::vector<DefinitionElement> inner;

    static Schema Source()
    {
        Schema schema;
        schema.sample = {
            Element("first", ElementType::UInt32),
            Element("shortValue", ElementType::Int16),
            Element("gains", ElementType::Float, 3, 3),
            Element("inner", ElementType::Structure, 1, 1, InnerStructureId),
            Element("pairs", ElementType::Structure, 2, 2, InnerStructureId),
            Element("counted", ElementType::UInt32, 1, 8),
            Element("optionalValue", ElementType::Double, 0, 1),
            Element("items", ElementType::Structure, 0, 8, InnerStructureId),
            Element("optionalInner", ElementType::Structure, 0, 1, InnerStructureId),
            Element("name", ElementType::String),
            Element("labels", ElementType::String, 0, 4),
            Element("optionalName", ElementType::String, 0, 1),
            Element("last", ElementType::UInt32),
        };
        schema.inner = {
            Element("a", ElementType::Int32),
            Element("b", ElementType::Float, 2, 2),
        };
        return schema;
    }

    /// The element of a member of the sample structure, for a test to change.
    DefinitionElement& Member(std::string const& name)
    {
        for (DefinitionElement& element : sample) {
            if (element.name == name)
                return element;
        }
        ADD_FAILURE() << "no member " << name;
        return sample.front();
    }

    void Remove(std::string const& name)
    {
        for (auto it = sample.begin(); it != sample.end(); ++it) {
            if (it->name == name) {
                sample.erase(it);
                return;
            }
        }
        ADD_FAILURE() << "no member " << name;
    }

    /// Puts element in front of the member before (at the end for "").
    void Insert(std::string const& before, DefinitionElement element)
    {
        auto it = sample.begin();
        while (it != sample.end() && it->name != before)
            ++it;
        sample.insert(it, std::move(element));
    }

    std::vector<DefinitionStructure> Structures() const
    {
        return {{SampleStructureId, "EntryReaderSampleType", std::nullopt, sample},
                {InnerStructureId, "InnerType", std::nullopt, inner}};
    }
};

inline EntryValue Inner(int64_t a, double b0, double b1)
{
    return EntryValue::Struct(
        {{"a", EntryValue::Int(a)},
         {"b", EntryValue::List({EntryValue::Real(b0), EntryValue::Real(b1)})}});
}

/// The values every test writes unless it changes one.
inline EntryValue SampleValue()
{
    return EntryValue::Struct({
        {"first", EntryValue::UInt(101)},
        {"shortValue", EntryValue::Int(-7)},
        {"gains",
         EntryValue::List({EntryValue::Real(1.5), EntryValue::Real(2.5), EntryValue::Real(3.5)})},
        {"inner", Inner(11, 0.25, 0.5)},
        {"pairs", EntryValue::List({Inner(21, 1, 2), Inner(22, 3, 4)})},
        {"counted",
         EntryValue::List({EntryValue::UInt(7), EntryValue::UInt(8), EntryValue::UInt(9)})},
        {"optionalValue", EntryValue::Real(6.25)},
        {"items", EntryValue::List({Inner(31, 5, 6), Inner(32, 7, 8)})},
        {"optionalInner", Inner(41, 9, 10)},
        {"name", EntryValue::Text("alpha")},
        {"labels", EntryValue::List(
                       {EntryValue::Text("x"), EntryValue::Text("yy"), EntryValue::Text("zzz")})},
        {"optionalName", EntryValue::Text("omega")},
        {"last", EntryValue::UInt(999)},
    });
}

/// A loaded sample; unloads itself through its table.
struct LoadedSample
{
    SampleType value{};
    ParameterFileSymbolTable* table = nullptr;

    LoadedSample() = default;
    LoadedSample(LoadedSample const&) = delete;
    LoadedSample& operator=(LoadedSample const&) = delete;
    ~LoadedSample() { value.Unload(table); }

    SampleType const* operator->() const { return &value; }
};

inline std::string Text(char const* text)
{
    return text != nullptr ? std::string(text) : std::string("<null>");
}

/// A file of symbol, data and (optionally) definition sections written by the writer, loaded
/// into a symbol table of its own in buffer mode, with its entries kept for Find.
class EntryFile
{
public:
    explicit EntryFile(FileVersion version = {}, Schema schema = Schema::Source(),
                       bool withDefinitions = true)
        : m_version(version), m_schema(std::move(schema)), m_withDefinitions(withDefinitions),
          m_symbols(version), m_encoder(version, m_schema.Structures(), m_symbols)
    {
    }

    /// Adds a module entry holding value; returns its symbol identifier.
    uint32_t AddModule(EntryValue const& value)
    {
        return AddModuleBytes(m_encoder.Encode(SampleStructureId, &value));
    }

    /// Adds a module entry with these bytes (an encoding a test has cut or changed).
    uint32_t AddModuleBytes(std::vector<uint8_t> bytes)
    {
        TuningWriter::ModuleEntry entry;
        entry.name = ModuleName;
        entry.modeId = TuningWriter::NoModuleModeId;
        entry.data = std::move(bytes);
        return m_symbols.AddModule(std::move(entry));
    }

    TuningWriter::EntryEncoder& Encoder() { return m_encoder; }

    /// Lays the sections out in one buffer and reads them into the table.
    bool Build()
    {
        unsigned char const alignment = TuningWriter::AlignmentFor(m_version);
        std::vector<uint8_t> definitions;
        if (m_withDefinitions) {
            TuningWriter::DefinitionTableBuilder builder;
            builder.AddModule({SampleStructureId, ModuleName, std::nullopt, ""});
            for (DefinitionStructure& structure : m_schema.Structures())
                builder.AddStructure(std::move(structure));
            definitions = builder.Build(alignment);
        }
        TuningWriter::SymbolTableBuilder::Sections const sections = m_symbols.Build();
        ParameterFileSymbolTable::SectionInfo const definitionSection = Append(definitions);
        ParameterFileSymbolTable::SectionInfo const symbolSection = Append(sections.symbol);
        ParameterFileSymbolTable::SectionInfo const dataTableSection = Append(sections.dataTable);
        ParameterFileSymbolTable::SectionInfo const dataSection = Append(sections.data);
        VersionUnion const version(m_version.major, m_version.minor, m_version.patch);
        m_table = std::make_unique<ParameterFileSymbolTable>(&m_manager, alignment, version);
        auto const length = static_cast<unsigned int>(m_buffer.size());
        return m_table->Load(m_buffer.data(), length, nullptr, nullptr, length, symbolSection,
                             dataTableSection, dataSection, definitionSection, nullptr, true);
    }

    ParameterFileSymbolTable& Table() { return *m_table; }

    /// Loads the module entry id the way a generated LoadModule does. False if it is not found.
    bool Load(uint32_t id, LoadedSample& sample)
    {
        sample.table = m_table.get();
        ParameterFileSymbolTableEntry entry;
        bool const found = m_table->Find(entry, id, true);
        ParameterDefinitionElement* root = nullptr;
        ParameterFileSymbolTable::ModuleMap const* modules = m_table->GetDefinitionModules();
        if (modules != nullptr && !modules->empty())
            root = m_table->BuildModuleElement(Hash(ModuleName));
        ParameterLoadParameters params{&entry, Hash(ModuleName), true, true,
                                       root,   entry.Position,   0,    NoLoadLimit};
        sample.value.Load(params);
        delete root;
        return found;
    }

    /// The file's element of a sample member; null if the definitions no longer hold it.
    ParameterDefinitionElement* SampleElement(char const* name)
    {
        ParameterDefinitionStructure* structure = m_table->FindStructure(SampleStructureId);
        return structure != nullptr ? structure->FindChild(Hash(name)) : nullptr;
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

    FileVersion m_version;
    Schema m_schema;
    bool m_withDefinitions;
    TuningWriter::SymbolTableBuilder m_symbols;
    TuningWriter::EntryEncoder m_encoder;
    ParamTest::TestSetManager m_manager;
    std::vector<uint8_t> m_buffer;
    std::unique_ptr<ParameterFileSymbolTable> m_table;
};

/// Checks every member against SampleValue(), except the members named in except.
inline void ExpectSampleValues(SampleType const& s, std::set<std::string> const& except = {})
{
    auto const check = [&except](char const* member) { return except.count(member) == 0; };
    if (check("first")) {
        EXPECT_EQ(s.first, 101u);
    }
    if (check("shortValue")) {
        EXPECT_EQ(s.shortValue, -7);
    }
    if (check("gains")) {
        EXPECT_FLOAT_EQ(s.gains[0], 1.5f);
        EXPECT_FLOAT_EQ(s.gains[1], 2.5f);
        EXPECT_FLOAT_EQ(s.gains[2], 3.5f);
    }
    if (check("inner")) {
        EXPECT_EQ(s.inner.a, 11);
        EXPECT_FLOAT_EQ(s.inner.b[0], 0.25f);
        EXPECT_FLOAT_EQ(s.inner.b[1], 0.5f);
    }
    if (check("pairs")) {
        EXPECT_EQ(s.pairs[0].a, 21);
        EXPECT_FLOAT_EQ(s.pairs[0].b[1], 2.0f);
        EXPECT_EQ(s.pairs[1].a, 22);
        EXPECT_FLOAT_EQ(s.pairs[1].b[0], 3.0f);
    }
    if (check("counted")) {
        EXPECT_EQ(s.countedCount, 3u);
        if (s.counted != nullptr && s.countedCount == 3) {
            EXPECT_EQ(s.counted[0], 7u);
            EXPECT_EQ(s.counted[2], 9u);
        } else {
            ADD_FAILURE() << "counted not loaded";
        }
    }
    if (check("optionalValue")) {
        EXPECT_EQ(s.optionalValueCount, 1u);
        EXPECT_DOUBLE_EQ(s.optionalValue, 6.25);
    }
    if (check("items")) {
        EXPECT_EQ(s.itemsCount, 2u);
        if (s.items != nullptr && s.itemsCount == 2) {
            EXPECT_EQ(s.items[0].a, 31);
            EXPECT_EQ(s.items[1].a, 32);
            EXPECT_FLOAT_EQ(s.items[1].b[1], 8.0f);
        } else {
            ADD_FAILURE() << "items not loaded";
        }
    }
    if (check("optionalInner")) {
        EXPECT_EQ(s.optionalInnerCount, 1u);
        EXPECT_EQ(s.optionalInner.a, 41);
        EXPECT_FLOAT_EQ(s.optionalInner.b[1], 10.0f);
    }
    if (check("name")) {
        EXPECT_EQ(Text(s.name), "alpha");
    }
    if (check("labels")) {
        EXPECT_EQ(s.labelsCount, 3u);
        if (s.labels != nullptr && s.labelsCount == 3) {
            EXPECT_EQ(Text(s.labels[0]), "x");
            EXPECT_EQ(Text(s.labels[2]), "zzz");
        } else {
            ADD_FAILURE() << "labels not loaded";
        }
    }
    if (check("optionalName")) {
        EXPECT_EQ(s.optionalNameCount, 1u);
        EXPECT_EQ(Text(s.optionalName), "omega");
    }
    if (check("last")) {
        EXPECT_EQ(s.last, 999u);
    }
}

/// printf into a string, for expected messages that carry numbers.
inline std::string Format(char const* format, ...) __attribute__((format(printf, 1, 2)));
inline std::string Format(char const* format, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    return text;
}

/// "<reader>: 0x<hash> entry not found in the binary file, all values will be 0\n"
inline std::string NotFound(char const* reader, char const* member)
{
    return Format("%s: 0x%llx entry not found in the binary file, all values will be 0\n", reader,
                  static_cast<unsigned long long>(Hash(member)));
}

} // namespace EntryReaderTest
