// SPDX-License-Identifier: Apache-2.0
// Values for generated modules made from their type descriptors, and the member-by-member check
// of a loaded module against the values it was written from.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "parameterparser/parametermemberaccess.h"
#include "parameterparser/parameterstoragesize.h"
#include "parameterparser/parsercrc.h"
#include "tools/writer/entryencoder.h"

namespace ModuleTest {

using TuningWriter::EntryValue;

/// Values for every member a type descriptor lists, each number distinct, so that a member read
/// from a neighbour's place shows. Counted arrays get two elements; a type that holds itself is
/// cut off below its third level, so trees end in leaves.
///
/// A written schema names a member known only by its hash by the name chosen for it, so a reader
/// that matches hashes does not find it there. With namedOnly such members get what a member
/// missing from the file reads as: zeros, no elements, no text.
class ValueMaker
{
public:
    explicit ValueMaker(bool namedOnly = false) : m_namedOnly(namedOnly) {}

    EntryValue Make(ParameterTypeDescriptor const& type)
    {
        std::vector<std::pair<std::string, EntryValue>> fields;
        m_stack.push_back(&type);
        for (uint32_t i = 0; i < type.memberCount; ++i) {
            ParameterMemberDescriptor const& member = type.members[i];
            if (member.hidden)
                continue;
            bool const hashOnly = ParserCRC64::HashName(member.name) != member.nameHash;
            fields.emplace_back(member.name,
                                m_namedOnly && hashOnly ? Missing(member) : Member(member));
        }
        m_stack.pop_back();
        return EntryValue::Struct(std::move(fields));
    }

    /// What member reads as when the file lacks it.
    static EntryValue Missing(ParameterMemberDescriptor const& member)
    {
        switch (member.kind) {
        case ParameterMemberKind::Scalar:
            return Zero(member.storage);
        case ParameterMemberKind::FixedArray:
            return EntryValue::List(std::vector<EntryValue>(member.length, Zero(member.storage)));
        case ParameterMemberKind::Structure:
            return MissingStructure(*member.type);
        case ParameterMemberKind::StructureFixedArray:
            return EntryValue::List(
                std::vector<EntryValue>(member.length, MissingStructure(*member.type)));
        case ParameterMemberKind::String:
            return EntryValue::Text("<null>");
        case ParameterMemberKind::StringFixedArray:
            return EntryValue::List(
                std::vector<EntryValue>(member.length, EntryValue::Text("<null>")));
        case ParameterMemberKind::CountedArray:
        case ParameterMemberKind::OptionalScalar:
        case ParameterMemberKind::StructureArray:
        case ParameterMemberKind::OptionalStructure:
        case ParameterMemberKind::OptionalString:
        case ParameterMemberKind::StringArray:
            break;
        }
        return EntryValue::List({});
    }

private:
    static EntryValue MissingStructure(ParameterTypeDescriptor const& type)
    {
        std::vector<std::pair<std::string, EntryValue>> fields;
        for (uint32_t i = 0; i < type.memberCount; ++i) {
            if (!type.members[i].hidden)
                fields.emplace_back(type.members[i].name, Missing(type.members[i]));
        }
        return EntryValue::Struct(std::move(fields));
    }

    static EntryValue Zero(ParameterStorage storage)
    {
        switch (storage) {
        case ParameterStorage::Int8:
        case ParameterStorage::Int16:
        case ParameterStorage::Int32:
        case ParameterStorage::Int64:
            return EntryValue::Int(0);
        case ParameterStorage::UInt8:
        case ParameterStorage::UInt16:
        case ParameterStorage::UInt32:
        case ParameterStorage::UInt64:
            return EntryValue::UInt(0);
        case ParameterStorage::Float:
        case ParameterStorage::Double:
            break;
        }
        return EntryValue::Real(0);
    }

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

    bool m_namedOnly;
    int64_t m_seed = 0;
    std::vector<ParameterTypeDescriptor const*> m_stack;
};

/// Compares a loaded structure with the value it was written from, member by member through its
/// descriptor; reports each difference with its value path. Members that the value leaves out
/// are not compared.
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
            if (expected != nullptr)
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
            CheckNumber(at + i * ParameterValuePath::StorageSize(storage), storage,
                        expected.items[i], where + "[" + std::to_string(i) + "]");
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

} // namespace ModuleTest
