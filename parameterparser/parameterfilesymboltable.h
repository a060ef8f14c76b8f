// SPDX-License-Identifier: Apache-2.0
// ParameterFileSymbolTable: the tables of a loaded tuning file (schema maps for now).
#pragma once

#include <cstdint>
#include <unordered_map>

#include "parameterparser/parameterexport.h"
#include "parameterparser/versionunion.h"

class IParameterLoggingAPI;
class ParameterDefinitionElement;
class ParameterDefinitionModule;
class ParameterDefinitionStructure;
class ParameterSetManager;

class PARAMETERPARSER_API ParameterFileSymbolTable
{
public:
    /// Where a section stands in the file.
    struct SectionInfo
    {
        uint32_t Offset;
        uint32_t Size;
    };

    /// The file's modules by name hash and its structures by ID.
    using ModuleMap = std::unordered_map<unsigned long, ParameterDefinitionModule*>;
    using StructureMap = std::unordered_map<unsigned int, ParameterDefinitionStructure*>;

    /// manager owns the table and is its logger; it may be null (then everything is logged).
    ParameterFileSymbolTable(ParameterSetManager* manager, unsigned char alignment,
                             VersionUnion const& version);
    ~ParameterFileSymbolTable();

    ParameterFileSymbolTable(ParameterFileSymbolTable const&) = delete;
    ParameterFileSymbolTable& operator=(ParameterFileSymbolTable const&) = delete;

    /// Reads the definition section of size bytes at pos in buffer (length bytes) at the table's
    /// alignment, and leaves pos where the walk stopped. With keep the module and structure
    /// records go into the maps and every structure's size and offsets are computed; without it
    /// each record is read with the same checks and dropped. Earlier definitions are replaced.
    /// A duplicate module hash or structure ID logs "Error: Duplicate structure Hash (%llu) found
    /// in definition table: %s / %s\n" or "Error: Duplicate structure ID (%u) found in
    /// definition table: %s / %s\n" and keeps the first. Returns false with no message when the
    /// section does not lie within length; false after "Error: Unexpected type found in
    /// definition table (%u)\n" for record kinds 3 and 7 and above; false after the reader's
    /// short-read message when a record runs past the section. Records read before a failure
    /// stay.
    [[nodiscard]] bool ReadDefinitions(unsigned char* buffer, unsigned int length,
                                       unsigned int& pos, unsigned int size, bool keep);

    /// With all, destroys every module and structure and both maps. Without it, keeps only what
    /// later loads still need to check: each child verified all the way down loses its Info;
    /// structures with a child that failed, and the structures such children refer to, stay;
    /// every other structure goes, and every module whose top structure went goes with it.
    void ClearDefinitions(bool all);

    /// The structure with this ID; null if none or no definitions were read. Borrowed.
    ParameterDefinitionStructure* FindStructure(unsigned int id) const;

    /// The top structure of the module with this name hash; null if the module or its structure
    /// is not (or no longer) there. Borrowed.
    ParameterDefinitionStructure* FindModuleStructure(unsigned long nameHash) const;

    /// A new element that stands for the whole module (NameHash set, FromFile false, one instance
    /// of its top structure), or null if the module or its structure is gone or memory ran out.
    /// The caller owns it and deletes it after the load.
    ParameterDefinitionElement* BuildModuleElement(unsigned long nameHash) const;

    VersionUnion const& GetVersion() const { return m_version; }
    unsigned char GetAlignment() const { return m_alignment; }

    /// The definition maps; null when no definition section was read (or after
    /// ClearDefinitions(true)).
    ModuleMap const* GetDefinitionModules() const { return m_definitionModules; }
    StructureMap const* GetDefinitionStructures() const { return m_definitionStructures; }

private:
    IParameterLoggingAPI* Logger() const;

    ParameterSetManager* m_setManager;
    VersionUnion m_version;
    unsigned char m_alignment;
    ModuleMap* m_definitionModules = nullptr;
    StructureMap* m_definitionStructures = nullptr;
};
