// SPDX-License-Identifier: Apache-2.0
// SchemaSet: the structures of generated schemas as writer definition records.
#include "tools/generator/schemaset.h"

#include <utility>

#include "parameterparser/parametermemberaccess.h"

namespace TuningWriter {

namespace {

// Counted members take any number of elements up to what a u16 count allows.
constexpr uint32_t CountedMaximum = 65535;

ElementType StorageType(ParameterStorage storage)
{
    switch (storage) {
    case ParameterStorage::Int8:
        return ElementType::Int8;
    case ParameterStorage::UInt8:
        return ElementType::UInt8;
    case ParameterStorage::Int16:
        return ElementType::Int16;
    case ParameterStorage::UInt16:
        return ElementType::UInt16;
    case ParameterStorage::Int32:
        return ElementType::Int32;
    case ParameterStorage::UInt32:
        return ElementType::UInt32;
    case ParameterStorage::Int64:
        return ElementType::Int64;
    case ParameterStorage::UInt64:
        return ElementType::UInt64;
    case ParameterStorage::Float:
        return ElementType::Float;
    case ParameterStorage::Double:
        return ElementType::Double;
    }
    return ElementType::UInt32;
}

// The element type and the count range of a member, by its kind.
DefinitionElement ElementOf(ParameterMemberDescriptor const& member, uint32_t structureId)
{
    ElementType type = StorageType(member.storage);
    uint32_t minCount = 1;
    uint32_t maxCount = 1;
    switch (member.kind) {
    case ParameterMemberKind::Scalar:
        break;
    case ParameterMemberKind::FixedArray:
        minCount = maxCount = member.length;
        break;
    case ParameterMemberKind::CountedArray:
        minCount = member.minimumCount;
        maxCount = CountedMaximum;
        break;
    case ParameterMemberKind::OptionalScalar:
        minCount = 0;
        break;
    case ParameterMemberKind::Structure:
        type = ElementType::Structure;
        break;
    case ParameterMemberKind::StructureFixedArray:
        type = ElementType::Structure;
        minCount = maxCount = member.length;
        break;
    case ParameterMemberKind::StructureArray:
        type = ElementType::Structure;
        minCount = member.minimumCount;
        maxCount = CountedMaximum;
        break;
    case ParameterMemberKind::OptionalStructure:
        type = ElementType::Structure;
        minCount = 0;
        break;
    case ParameterMemberKind::String:
        type = ElementType::String;
        break;
    case ParameterMemberKind::StringFixedArray:
        type = ElementType::String;
        minCount = maxCount = member.length;
        break;
    case ParameterMemberKind::OptionalString:
        type = ElementType::String;
        minCount = 0;
        break;
    case ParameterMemberKind::StringArray:
        type = ElementType::String;
        minCount = member.minimumCount;
        maxCount = CountedMaximum;
        break;
    }
    return SchemaElement(member.name, type, structureId, minCount, maxCount);
}

} // namespace

uint32_t SchemaSet::Describe(std::string const& qualifiedName, ParameterTypeDescriptor const& type)
{
    uint32_t const id = DescribeType(type);
    m_ids[qualifiedName] = id;
    return id;
}

uint32_t SchemaSet::DescribeType(ParameterTypeDescriptor const& type)
{
    auto const known = m_described.find(&type);
    if (known != m_described.end())
        return known->second;
    // Members' types first. A schema reaches a type through itself only by a counted array of
    // its own type, so the walk ends; that member names the ID this record is about to get.
    for (uint32_t i = 0; i < type.memberCount; ++i) {
        ParameterMemberDescriptor const& member = type.members[i];
        if (!member.hidden && member.type != nullptr && member.type != &type)
            DescribeType(*member.type);
    }
    auto const id = static_cast<uint32_t>(m_structures.size() + 1);
    std::vector<DefinitionElement> elements;
    for (uint32_t i = 0; i < type.memberCount; ++i) {
        ParameterMemberDescriptor const& member = type.members[i];
        if (member.hidden)
            continue;
        uint32_t const structureId = member.type == &type     ? id
                                     : member.type != nullptr ? m_described[member.type]
                                                              : 0;
        elements.push_back(ElementOf(member, structureId));
    }
    m_structures.push_back({id, type.name, std::nullopt, std::move(elements)});
    m_described[&type] = id;
    return id;
}

uint32_t SchemaSet::AddStructure(std::string const& qualifiedName, std::string const& name,
                                 std::vector<DefinitionElement> elements)
{
    auto const id = static_cast<uint32_t>(m_structures.size() + 1);
    m_structures.push_back({id, name, std::nullopt, std::move(elements)});
    m_ids[qualifiedName] = id;
    return id;
}

uint32_t SchemaSet::Id(std::string const& qualifiedName) const
{
    auto const found = m_ids.find(qualifiedName);
    return found != m_ids.end() ? found->second : 0;
}

DefinitionModule SchemaSet::Module(std::string const& moduleName,
                                   std::string const& qualifiedType) const
{
    DefinitionModule module;
    module.structureId = Id(qualifiedType);
    module.name = moduleName;
    return module;
}

void SchemaSet::AddTo(DefinitionTableBuilder& builder) const
{
    for (DefinitionStructure const& structure : m_structures)
        builder.AddStructure(structure);
}

DefinitionElement SchemaElement(char const* name, ElementType type, uint32_t id, uint32_t minCount,
                                uint32_t maxCount)
{
    DefinitionElement element;
    element.name = name;
    element.type = type;
    element.id = id;
    element.minCount = minCount;
    element.maxCount = maxCount;
    return element;
}

} // namespace TuningWriter
