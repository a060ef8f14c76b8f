// SPDX-License-Identifier: Apache-2.0
// Values for generated modules made from their type descriptors, and a loaded structure's values
// as value access reads them, to compare a load with the load of a reference file.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "parameterparser/parametermemberaccess.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/parametervaluepath.h"
#include "tools/writer/entryencoder.h"

namespace ModuleTest {

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
        m_open.push_back(&type);
        for (uint32_t i = 0; i < type.memberCount; ++i) {
            ParameterMemberDescriptor const& member = type.members[i];
            if (!member.hidden)
                fields.emplace_back(member.name, Member(member));
        }
        m_open.pop_back();
        return EntryValue::Struct(std::move(fields));
    }

private:
    using Kind = ParameterMemberKind;

    EntryValue Member(ParameterMemberDescriptor const& member)
    {
        bool const structure = member.type != nullptr;
        bool const text = member.kind == Kind::String || member.kind == Kind::StringFixedArray ||
                          member.kind == Kind::OptionalString || member.kind == Kind::StringArray;
        if (member.kind == Kind::Structure)
            return Make(*member.type);
        if (member.kind == Kind::Scalar)
            return Number(member.storage);
        if (member.kind == Kind::String)
            return EntryValue::Text("text" + std::to_string(++m_seed));
        uint32_t count = member.length; // the fixed arrays
        if (member.kind == Kind::OptionalScalar || member.kind == Kind::OptionalStructure ||
            member.kind == Kind::OptionalString)
            count = 1;
        if (member.kind == Kind::CountedArray || member.kind == Kind::StringArray)
            count = 2;
        if (member.kind == Kind::StructureArray) {
            int depth = 0;
            for (ParameterTypeDescriptor const* open : m_open)
                depth += open == member.type ? 1 : 0;
            count = depth < 3 ? 2 : 0;
        }
        std::vector<EntryValue> items;
        for (uint32_t i = 0; i < count; ++i) {
            items.push_back(structure ? Make(*member.type)
                            : text    ? EntryValue::Text("text" + std::to_string(++m_seed))
                                      : Number(member.storage));
        }
        return EntryValue::List(std::move(items));
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
        case ParameterStorage::Float:
        case ParameterStorage::Double:
            return EntryValue::Real(static_cast<double>(seed) + 0.25);
        default:
            return EntryValue::UInt(static_cast<uint64_t>(seed % 250) + 1);
        }
    }

    int64_t m_seed = 0;
    std::vector<ParameterTypeDescriptor const*> m_open;
};

/// Value path to the text value access gives it: every number and text of a structure, arrays
/// of numbers and texts whole, arrays of structures element by element.
using Leaves = std::map<std::string, std::string>;

inline void CollectLeaves(void* object, ParameterTypeDescriptor const& type,
                          std::string const& path, Leaves& leaves)
{
    PList<ParameterParserInfo> records;
    if (!ParameterValuePath::GetInfo(object, type, path.c_str(), records))
        return;
    for (unsigned int i = 0; i < records.Count(); ++i) {
        ParameterParserInfo const& record = records[i];
        if (record.name == nullptr)
            continue;
        std::string const member = path.empty() ? record.name : path + "." + record.name;
        if (record.type == ParameterTypeNames::Structure && !record.isArray) {
            CollectLeaves(object, type, member, leaves);
        } else if (record.type == ParameterTypeNames::Structure) {
            for (unsigned int index = 0; index < record.count; ++index)
                CollectLeaves(object, type, member + "[" + std::to_string(index) + "]", leaves);
        } else if (record.isArray) {
            char text[4096] = "";
            ParameterValuePath::GetValue(object, type, member.c_str(), text, sizeof(text));
            leaves[member] = std::to_string(record.count) + ":" + text;
        } else {
            leaves[member] = record.value;
        }
    }
}

inline Leaves ReadLeaves(void* object, ParameterTypeDescriptor const& type)
{
    Leaves leaves;
    CollectLeaves(object, type, "", leaves);
    return leaves;
}

} // namespace ModuleTest
