// SPDX-License-Identifier: Apache-2.0
// SchemaSet: the structures of generated modules as writer definition records, for tests and
// tools that write module data from the very schema the library reads. The records are derived
// from the type descriptors that the generated types carry.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/writer/definitiontablebuilder.h"

struct ParameterTypeDescriptor;

namespace TuningWriter {

/// Collects the structures of one or more generated modules (or hand-written records) with
/// file-unique IDs from 1 on.
class SchemaSet
{
public:
    /// Adds type and every structure its members reach, each type once and the members' types
    /// ahead of their holder, hidden members left out; type's ID is then known as qualifiedName
    /// ("ns::TopType"). Returns type's ID.
    uint32_t Describe(std::string const& qualifiedName, ParameterTypeDescriptor const& type);

    /// Adds a structure under its qualified name ("ns::Type", "ns::Outer::innerStruct") and
    /// returns its ID.
    uint32_t AddStructure(std::string const& qualifiedName, std::string const& name,
                          std::vector<DefinitionElement> elements);

    /// The ID of a structure added earlier; 0 if none.
    uint32_t Id(std::string const& qualifiedName) const;

    /// A module record named moduleName (the instance name the file stores) whose top structure
    /// is qualifiedType.
    DefinitionModule Module(std::string const& moduleName, std::string const& qualifiedType) const;

    /// Every structure added, in order: the records an EntryEncoder needs.
    std::vector<DefinitionStructure> const& Structures() const { return m_structures; }

    /// Adds every structure to builder.
    void AddTo(DefinitionTableBuilder& builder) const;

private:
    uint32_t DescribeType(ParameterTypeDescriptor const& type);

    std::map<ParameterTypeDescriptor const*, uint32_t> m_described;
    std::vector<DefinitionStructure> m_structures;
    std::map<std::string, uint32_t> m_ids;
};

/// An element of a generated description: (name, type, structure ID, minimum, maximum).
DefinitionElement SchemaElement(char const* name, ElementType type, uint32_t id, uint32_t minCount,
                                uint32_t maxCount);

} // namespace TuningWriter
