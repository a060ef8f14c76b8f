// SPDX-License-Identifier: Apache-2.0
// Members of a writer's definition table, for tests and fuzz seeds that describe a schema by hand.
#pragma once

#include <cstdint>
#include <string>

#include "tools/writer/definitiontablebuilder.h"

namespace ParamTest {

/// A member of type with minCount to maxCount elements; a schema change that only names a
/// member leaves the type at its first value.
inline TuningWriter::DefinitionElement Member(std::string name, TuningWriter::ElementType type = {},
                                              uint32_t minCount = 1, uint32_t maxCount = 1,
                                              uint16_t flags = 0)
{
    TuningWriter::DefinitionElement element;
    element.name = std::move(name);
    element.type = type;
    element.minCount = minCount;
    element.maxCount = maxCount;
    element.flags = flags;
    return element;
}

/// A member holding structure id.
inline TuningWriter::DefinitionElement StructMember(std::string name, uint32_t id,
                                                    uint32_t minCount = 1, uint32_t maxCount = 1)
{
    TuningWriter::DefinitionElement element =
        Member(std::move(name), TuningWriter::ElementType::Structure, minCount, maxCount);
    element.id = id;
    return element;
}

} // namespace ParamTest
