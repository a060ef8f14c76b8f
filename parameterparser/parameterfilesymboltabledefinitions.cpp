// SPDX-License-Identifier: Apache-2.0
// ParameterFileSymbolTable's schema: reading the definition section into module and structure
// records, pruning them after a load, and finding them by name hash or ID.
#include <new>
#include <unordered_set>

#include "platform/vornalloc.h"

#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterlogging.h"

namespace {

// Record kinds of a definition section. Kinds 0 to 2 carry nothing the reader needs; 3 and 7 on
// are not defined.
constexpr uint8_t RecordOpaqueOne = 0;
constexpr uint8_t RecordOpaqueThree = 1;
constexpr uint8_t RecordOpaqueTwoTexts = 2;
constexpr uint8_t RecordModule = 4;
constexpr uint8_t RecordStructure = TypeStructure;
constexpr uint8_t RecordEnum = 6;

// A u32 length at the alignment, then that many bytes rounded up to it.
bool SkipCountedText(ParameterByteReader& reader)
{
    uint32_t length = 0;
    return reader.ReadU32(length) && reader.Skip(length);
}

// The opaque records are stepped over by their lengths alone. Their fixed bytes were written
// without padding, so they are stepped over byte-exactly whatever the alignment.
bool SkipOpaque(ParameterByteReader& reader, uint8_t kind)
{
    switch (kind) {
    case RecordOpaqueOne:
        return reader.SkipUnaligned(1) && SkipCountedText(reader) && reader.SkipUnaligned(1);
    case RecordOpaqueThree:
        return reader.SkipUnaligned(3) && SkipCountedText(reader) && reader.SkipUnaligned(1);
    default:
        return reader.SkipUnaligned(2) && SkipCountedText(reader) && SkipCountedText(reader);
    }
}

// Enumerations are numbers throughout the system, so their records are skipped. ID, name hash and
// each value with its flag were written without padding; only the lengths are aligned.
bool SkipEnum(ParameterByteReader& reader)
{
    uint32_t valueCount = 0;
    if (!reader.SkipUnaligned(4) || !SkipCountedText(reader) || !reader.SkipUnaligned(8) ||
        !reader.ReadU32(valueCount))
        return false;
    for (uint32_t i = 0; i < valueCount; ++i) {
        if (!reader.SkipUnaligned(5) || !SkipCountedText(reader) || !SkipCountedText(reader))
            return false;
    }
    return true;
}

// Names are null only when memory ran out while reading them.
char const* Printable(char const* name)
{
    return name != nullptr ? name : "";
}

} // namespace

bool ParameterFileSymbolTable::ReadDefinitions(unsigned char* buffer, unsigned int length,
                                               unsigned int& pos, unsigned int size, bool keep)
{
    if (buffer == nullptr || !ParameterByteReader::InBounds(pos, size, length))
        return false;

    ClearDefinitions(true);
    m_definitionModules = new (std::nothrow) ModuleMap();
    m_definitionStructures = new (std::nothrow) StructureMap();
    if (m_definitionModules == nullptr || m_definitionStructures == nullptr) {
        ClearDefinitions(true);
        return false;
    }

    IParameterLoggingAPI* log = Logger();
    // The reader stops at the section's end, so a record that claims more bytes than the section
    // holds fails there instead of reading the sections behind it.
    ParameterByteReader reader =
        ParameterByteReader(buffer, length, m_layout.alignment, log).Section(pos, size);
    bool reachedEnd = true;
    while (reader.Remaining() != 0) {
        uint8_t kind = 0;
        // A record that was cut short has failed the reader already: the walk stops here.
        if (!reader.ReadU8(kind)) {
            reachedEnd = false;
            break;
        }
        if (kind == RecordModule) {
            auto* module = new (std::nothrow) ParameterDefinitionModule(reader);
            if (module == nullptr || !keep) {
                delete module;
                continue;
            }
            auto const inserted = m_definitionModules->emplace(module->NameHash, module);
            if (!inserted.second) {
                ParameterLogging::Write(
                    log, ParameterLogging::LogError,
                    "Error: Duplicate structure Hash (%llu) found in definition table: %s / %s\n",
                    static_cast<unsigned long long>(module->NameHash),
                    Printable(inserted.first->second->Name), Printable(module->Name));
                delete module;
            }
        } else if (kind == RecordStructure) {
            auto* structure = new (std::nothrow) ParameterDefinitionStructure(reader, log);
            if (structure == nullptr || !keep) {
                delete structure;
                continue;
            }
            auto const inserted = m_definitionStructures->emplace(structure->ID, structure);
            if (!inserted.second) {
                ParameterLogging::Write(
                    log, ParameterLogging::LogError,
                    "Error: Duplicate structure ID (%u) found in definition table: %s / %s\n",
                    structure->ID, Printable(inserted.first->second->Name),
                    Printable(structure->Name));
                delete structure;
            }
        } else if (kind == RecordEnum) {
            (void)SkipEnum(reader);
        } else if (kind <= RecordOpaqueTwoTexts) {
            (void)SkipOpaque(reader, kind);
        } else {
            ParameterLogging::Write(log, ParameterLogging::LogError,
                                    "Error: Unexpected type found in definition table (%u)\n",
                                    static_cast<unsigned int>(kind));
            reachedEnd = false;
            break;
        }
    }
    pos = reader.Position();

    // Sizes are computed for what was read, also when the walk broke off, as this file's version
    // lays structures out.
    if (keep) {
        for (auto& entry : *m_definitionStructures)
            entry.second->PopulateOffsetSizeStructure(m_definitionStructures, log, m_layout);
    }
    return reachedEnd;
}

bool ParameterFileSymbolTable::ReadDefinitionSection(unsigned char* buffer, unsigned int length,
                                                     SectionInfo const& definitions, bool keep)
{
    IParameterLoggingAPI* log = Logger();
    bool read = false;
    if (!m_fileMode) {
        unsigned int pos = definitions.Offset;
        read = ReadDefinitions(buffer, length, pos, definitions.Size, keep);
    } else {
        unsigned char* copy = m_file->Read(definitions.Offset, definitions.Size);
        if (copy == nullptr) {
            ParameterLogging::Write(log, ParameterLogging::LogError,
                                    "Failed to read definition table buffer (offset: %u, "
                                    "size: %u) from binary file\n",
                                    static_cast<unsigned int>(definitions.Offset),
                                    static_cast<unsigned int>(definitions.Size));
        } else {
            unsigned int pos = 0;
            read = ReadDefinitions(copy, definitions.Size, pos, definitions.Size, keep);
            VornFree(copy, VornTagRelease);
        }
    }
    if (!read) {
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "Failed to read definition table from binary file\n");
        return false;
    }
    return true;
}

void ParameterFileSymbolTable::ClearDefinitions(bool all)
{
    if (all) {
        if (m_definitionModules != nullptr) {
            for (auto& entry : *m_definitionModules)
                delete entry.second;
            delete m_definitionModules;
            m_definitionModules = nullptr;
        }
        if (m_definitionStructures != nullptr) {
            for (auto& entry : *m_definitionStructures)
                delete entry.second;
            delete m_definitionStructures;
            m_definitionStructures = nullptr;
        }
        return;
    }

    if (m_definitionStructures == nullptr)
        return;

    // What was verified all the way down is read straight from now on: its Info goes. A child
    // that failed keeps its structure alive, and the structure it refers to.
    std::unordered_set<ParameterDefinitionStructure*> keepSet;
    for (auto& entry : *m_definitionStructures) {
        ParameterDefinitionStructure* structure = entry.second;
        bool needed = false;
        for (auto& child : structure->Children) {
            ParameterDefinitionElement* element = child.second;
            PList<unsigned int> visited;
            if (element->IsStructVerified(visited)) {
                delete element->Info;
                element->Info = nullptr;
            } else {
                if (element->Info != nullptr && element->Info->Structure != nullptr)
                    keepSet.insert(element->Info->Structure);
                needed = true;
            }
        }
        if (needed)
            keepSet.insert(structure);
    }

    for (auto it = m_definitionStructures->begin(); it != m_definitionStructures->end();) {
        if (keepSet.count(it->second) != 0) {
            ++it;
            continue;
        }
        delete it->second;
        it = m_definitionStructures->erase(it);
    }

    if (m_definitionModules == nullptr)
        return;
    for (auto it = m_definitionModules->begin(); it != m_definitionModules->end();) {
        if (FindStructure(it->second->StructureID) != nullptr) {
            ++it;
            continue;
        }
        delete it->second;
        it = m_definitionModules->erase(it);
    }
}

ParameterDefinitionStructure* ParameterFileSymbolTable::FindStructure(unsigned int id) const
{
    if (m_definitionStructures == nullptr)
        return nullptr;
    auto const found = m_definitionStructures->find(id);
    return found != m_definitionStructures->end() ? found->second : nullptr;
}

ParameterDefinitionStructure*
ParameterFileSymbolTable::FindModuleStructure(unsigned long nameHash) const
{
    if (m_definitionModules == nullptr)
        return nullptr;
    auto const found = m_definitionModules->find(nameHash);
    if (found == m_definitionModules->end())
        return nullptr;
    return FindStructure(found->second->StructureID);
}

ParameterDefinitionElement*
ParameterFileSymbolTable::BuildModuleElement(unsigned long nameHash) const
{
    ParameterDefinitionStructure* structure = FindModuleStructure(nameHash);
    if (structure == nullptr)
        return nullptr;
    auto* info = new (std::nothrow) ParameterDefinitionElementInfo(structure);
    if (info == nullptr)
        return nullptr;
    auto* element = new (std::nothrow) ParameterDefinitionElement(nameHash, info);
    if (element == nullptr)
        delete info;
    return element;
}
