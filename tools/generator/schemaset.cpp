// SPDX-License-Identifier: Apache-2.0
// SchemaSet: the structures of generated schemas as writer definition records.
#include "tools/generator/schemaset.h"

#include <algorithm>
#include <utility>

namespace TuningWriter {

bool SchemaSet::Begin(std::string const& namespaceName)
{
    if (std::find(m_namespaces.begin(), m_namespaces.end(), namespaceName) != m_namespaces.end())
        return false;
    m_namespaces.push_back(namespaceName);
    return true;
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
