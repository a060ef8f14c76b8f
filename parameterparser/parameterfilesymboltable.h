// SPDX-License-Identifier: Apache-2.0
// ParameterFileSymbolTable: the tables of a loaded tuning file: schema, symbols, data, shared
// objects.
#pragma once

#include <cstdint>
#include <unordered_map>

#include "parameterparser/parameterexport.h"
#include "parameterparser/parameterfilelayout.h"
#include "parameterparser/parameterfilesection.h"
#include "parameterparser/parametersharedarrayregistry.h"
#include "parameterparser/plist.h"
#include "parameterparser/versionunion.h"

class IModeTable;
class IParameterLoggingAPI;
class ModuleData;
class ParameterBinaryFile;
class ParameterDefinitionElement;
class ParameterDefinitionModule;
class ParameterDefinitionStructure;
class ParameterFileSymbolTableEntry;
class ParameterSetManager;

/// The tables of one loaded tuning file. The definition part is the file's schema; the symbol
/// table has one entry per module instance, the data table one per block that module data points
/// at. In buffer mode the entries point into the caller's buffer and go once the modules are
/// read; in file mode the table owns the file object and re-reads entries from it through the
/// lookup rows for its whole life. Shared objects are counted per duplicate group and Loc.
class PARAMETERPARSER_API ParameterFileSymbolTable
{
public:
    /// Where a section stands in the file.
    using SectionInfo = ParameterSectionInfo;

    /// One row per identifier of a table.
    struct EntryData
    {
        uint32_t Duplicate; ///< after the read: the duplicate group, 0 for a block not shared
        uint32_t Position;  ///< where the entry stands in its table
    };

    /// The file's modules by name hash and its structures by ID.
    using ModuleMap = std::unordered_map<unsigned long, ParameterDefinitionModule*>;
    using StructureMap = std::unordered_map<unsigned int, ParameterDefinitionStructure*>;

    /// Symbol entry ModeID of an entry that is no module.
    static constexpr uint32_t NoModuleModeId = 0xFFFFFFFF;

    /// manager owns the table and is its logger; it may be null (then everything is logged). The
    /// table keeps manager for the module records, never calls it itself, and logs through the
    /// logger that manager's host face gives.
    ParameterFileSymbolTable(ParameterSetManager* manager, unsigned char alignment,
                             VersionUnion const& version);
    /// Frees the entries, every shared-object record, the lookups and the module records (logging
    /// "%d DupInfo object were not released\n" when shared objects are still held), the
    /// definitions, and the file object.
    ~ParameterFileSymbolTable();

    ParameterFileSymbolTable(ParameterFileSymbolTable const&) = delete;
    ParameterFileSymbolTable& operator=(ParameterFileSymbolTable const&) = delete;

    // ---- Symbol and data tables --------------------------------------------------------------

    /// Reads the definition, symbol and data tables. buffer (length bytes) is the whole file in
    /// buffer mode; with file set the table works in file mode, reads every table through the
    /// file and takes ownership of the file object (also when the load then fails). Failures,
    /// each logged at error level: "Invalid symbol table size: %d, expected: %d\n", "Invalid data
    /// table size: %d, expected: %d\n", "Failed to allocate entry/lookup tables\n", "Failed to
    /// read definition table from binary file\n", "Failed to read symbol table from binary
    /// file\n", "Failed to read data table from binary file\n" (file mode: a section that cannot
    /// be read first logs "Failed to read ... table buffer (offset: %d, size: %d) from binary
    /// file\n"). A data table of a version that has none logs "Data table entry size is zero\n"
    /// and is ignored. What was read before a failure stays until the table is destroyed.
    [[nodiscard]] bool Load(unsigned char* buffer, unsigned int length, char const* fileName,
                            ParameterBinaryFile* file, unsigned int fileLength,
                            SectionInfo const& symbol, SectionInfo const& dataTable,
                            SectionInfo const& data, SectionInfo const& definitions,
                            IModeTable* modeTable, bool keepDefinitions);

    /// Reads count entries of one table from buffer (length bytes) at pos into entries and
    /// lookup (count + 1 rows each) and numbers the duplicate groups into duplicateCount (groups
    /// + 1) and duplicates (one list per group, null without groups). Below 6.0.0 each entry's
    /// stored identifier chooses its row; an identifier outside 1 to count logs "Symbol table
    /// entry ID %d out of range 1 - %d\n" and is tried again at the same place in the next round.
    /// From 6.0.0 the row is the entry's position. Module records of symbol entries from row 1 on
    /// move to Modules(). False (duplicateCount 1) when an identifier or an entry cannot be read:
    /// "Failed to read entry ID from Symbol table\n" after the short-read message.
    [[nodiscard]] bool ReadTable(unsigned char* buffer, unsigned int length, unsigned int& pos,
                                 unsigned int count, ParameterFileSymbolTableEntry* entries,
                                 EntryData* lookup, unsigned int& duplicateCount,
                                 PList<DupObjInfo*>*& duplicates, unsigned int dataOffset,
                                 IModeTable* modeTable, bool isSymbol);

    /// Fills entry with the entry of identifier id of the symbol (isSymbol) or data table. While
    /// the table's entries exist, entry becomes a copy that shares Data and owns nothing; after
    /// they are gone, in file mode, the entry is read again from the file and owns its Data and
    /// Module. An id of 0 or above the count logs "Find: Symbol table entry ID %d out of range 1 -
    /// %d\n" and gives false; false without a message once a buffer-mode table has dropped its
    /// entries, or when a file read fails.
    [[nodiscard]] bool Find(ParameterFileSymbolTableEntry& entry, unsigned int id, bool isSymbol);

    /// Reads a u32 data identifier at reader's cursor and finds that entry into target. A short
    /// read logs the reader's message and "Insufficient data to read variable from symbol table
    /// entry\n"; a short read or identifier 0 logs "ReadPointerEntry: Unable to read pointer
    /// entry from Symbol table\n"; an identifier Find refuses logs "ReadPointerEntry: Unable to
    /// find pointer entry ID %u in Symbol table%d\n" (with the data count). False in all three.
    [[nodiscard]] bool ReadPointerEntry(ParameterFileSymbolTableEntry& target,
                                        ParameterFileSymbolTableEntry* reader);

    /// Destroys the entry arrays (the data array only where it is not the symbol array).
    void FreeEntryData();
    /// Frees the lookup arrays (the data array only where it is not the symbol array).
    void FreeLookupData();

    /// Adds adjust to the file object's references (1 opens it, the last -1 closes it). Without
    /// a file logs "FileReference called with null File object, Adjust: %d\n" at error level.
    void FileReference(int adjust);

    // ---- Shared objects ------------------------------------------------------------------------

    /// The record of loc in the duplicate group of identifier id on the symbol (isModule) or
    /// data side when it holds an object, with its RefCount raised for the caller; null if the
    /// block is not shared or no object is published for loc (an empty record is not handed
    /// out: its object could appear after the lock is gone, without the caller's reference).
    /// Calls that do not fit the tables log "GetDupObject called with invalid values, ..." at
    /// error level and give null. With lock the registry's lock is held for reading; a failed lock
    /// throws std::system_error. The record stays owned by the table.
    /// With an elementType other than AnyElementType, a record whose object holds another kind
    /// of element is not handed out either.
    DupObjInfo* GetDupObjectInternal(bool isModule, unsigned int id, int loc, bool lock,
                                     uintptr_t elementType = AnyElementType);

    /// The element kind that matches every record.
    static constexpr uintptr_t AnyElementType = ParameterSharedArrayRegistry::AnyElementType;

    /// Publishes object as the shared object of loc in id's group and returns its record (owned
    /// by the table). Null when the block is not shared, when the call does not fit the tables
    /// (logged as "SetDupObject called with invalid values, ..."), or when another reader has
    /// published first: the caller then keeps object as its private copy.
    /// elementCount and elementType are stored with a new object for the readers that take it
    /// later.
    DupObjInfo* SetDupObject(bool isModule, unsigned int id, void* object, int loc,
                             unsigned int elementCount = 0, uintptr_t elementType = 0);

    /// Drops one reference on a shared object. True when the caller must free object: it was
    /// never shared (or is no longer), or this was its last reference. False for null and while
    /// other holders remain.
    /// With sharedCount, the element count stored with a shared object is written there when
    /// this was its last reference, so that the caller frees every element the array holds.
    bool ReleaseDupObject(void* object, unsigned int* sharedCount = nullptr)
    {
        return m_shared.Release(object, sharedCount);
    }

    /// The record of a published object; null if object is not shared now. Takes no lock:
    /// callers hold the registry's lock for writing or run alone. Owned by the table.
    DupObjInfo* FindDupObject(void* object) { return m_shared.Find(object); }

    // ---- Definitions ---------------------------------------------------------------------------

    /// Reads the definition section of size bytes at pos in buffer (length bytes) at the table's
    /// alignment, and leaves pos where the walk stopped. With keep the module and structure
    /// records go into the maps and every structure's size and offsets are computed as the
    /// table's version lays them out; without it
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

    // ---- State -------------------------------------------------------------------------------

    VersionUnion const& GetVersion() const { return m_layout.version; }
    unsigned char GetAlignment() const { return m_layout.alignment; }
    /// The layout of the file's version at the table's alignment.
    ParameterFileLayout const& GetLayout() const { return m_layout; }
    ParameterSetManager* GetSetManager() const { return m_setManager; }
    /// The owning manager as the table's logger; null without one.
    IParameterLoggingAPI* Logger() const { return m_log; }

    /// The definition maps; null when no definition section was read (or after
    /// ClearDefinitions(true)).
    ModuleMap const* GetDefinitionModules() const { return m_definitionModules; }
    StructureMap const* GetDefinitionStructures() const { return m_definitionStructures; }

    /// Every module record of the file in table order; owned by the table.
    PList<ModuleData*> const& Modules() const { return m_modules; }
    unsigned int GetSymbolCount() const { return m_symbols.count; }
    unsigned int GetDataCount() const { return m_data.count; }
    /// Duplicate groups + 1 of each side (slot 0 unused).
    unsigned int GetSymbolDuplicateCount() const { return m_shared.GroupCount(true); }
    unsigned int GetDataDuplicateCount() const { return m_shared.GroupCount(false); }
    /// The lookup rows (count + 1); null after FreeLookupData. Borrowed.
    EntryData const* GetSymbolLookup() const { return m_symbols.lookup; }
    EntryData const* GetDataLookup() const { return m_data.lookup; }
    /// The entry arrays (count + 1); null after FreeEntryData. Borrowed.
    ParameterFileSymbolTableEntry const* GetSymbolEntries() const { return m_symbols.entries; }
    ParameterFileSymbolTableEntry const* GetDataEntries() const { return m_data.entries; }
    /// Records of one duplicate group; null for group 0 or a group that does not exist.
    PList<DupObjInfo*> const* GetDuplicates(bool isModule, unsigned int group) const
    {
        return m_shared.Records(isModule, group);
    }
    bool IsFileMode() const { return m_fileMode; }
    /// The owned file object in file mode; null in buffer mode. Borrowed.
    ParameterBinaryFile* GetFile() const { return m_file; }
    char const* GetFileName() const { return m_fileName; }
    unsigned int GetFileLength() const { return m_fileLength; }
    unsigned int GetSymbolOffset() const { return m_symbols.offset; }
    unsigned int GetDataTableOffset() const { return m_data.offset; }
    unsigned int GetDataOffset() const { return m_dataOffset; }
    unsigned int GetDataSize() const { return m_dataSize; }
    /// True when the file has a data table; without one, data identifiers name symbol entries.
    bool HasDataTable() const { return m_hasDataTable; }

private:
    /// Logs that the kind ("symbol" or "data") of table cannot be read whole from the file, with
    /// messageSection's numbers.
    void LogUnreadableTable(char const* kind, SectionInfo const& messageSection) const;
    /// Reads one table section with ReadTable: in buffer mode in place, in file mode from a
    /// temporary copy; messageSection gives the numbers of the copy's failure message.
    bool ReadTableSection(unsigned char* buffer, unsigned int length, SectionInfo const& section,
                          SectionInfo const& messageSection, unsigned int count, bool isSymbol);
    /// Counts the entries of both tables from their section sizes; a size that is no multiple of
    /// its entry size fails with its message. A data table of a version without one is ignored.
    bool CountEntries(SectionInfo const& symbol, SectionInfo const& dataTable);
    /// Allocates the entry and lookup arrays of both sides (the data side names the symbol
    /// side's without a data table); false after its message when memory runs out.
    bool AllocateTables();
    /// Reads the definition section in place or, in file mode, from a copy; false after its
    /// message.
    bool ReadDefinitionSection(unsigned char* buffer, unsigned int length,
                               SectionInfo const& definitions, bool keep);
    /// Moves the module records of the symbol entries into Modules().
    void TakeModules(ParameterFileSymbolTableEntry* entries, unsigned int count);
    /// Validates a shared-object call and gives its group; 0 when the block is not shared or the
    /// call does not fit (then invalid is set).
    unsigned int GroupOf(bool isModule, unsigned int id, bool& invalid) const;
    /// Logs a shared-object call (publish: SetDupObject) whose identifier or group does not fit
    /// the tables.
    void LogInvalidCall(bool publish, bool isModule, unsigned int id, void* object, int loc) const;
    void FreeModules();

    ParameterSetManager* m_setManager;
    IParameterLoggingAPI* m_log;
    /// One entry table, symbol or data, with its lookup rows. Without a data table the data side
    /// names the symbol side's arrays.
    struct EntryTable
    {
        uint32_t offset = 0;
        uint32_t size = 0;
        uint32_t count = 0;
        ParameterFileSymbolTableEntry* entries = nullptr;
        EntryData* lookup = nullptr;
    };

    EntryTable& Side(bool isSymbol) { return isSymbol ? m_symbols : m_data; }
    EntryTable const& Side(bool isSymbol) const { return isSymbol ? m_symbols : m_data; }

    ParameterFileLayout m_layout;
    EntryTable m_symbols;
    EntryTable m_data;
    char const* m_fileName = nullptr;
    ParameterBinaryFile* m_file = nullptr;
    uint32_t m_fileLength = 0;
    uint32_t m_dataOffset = 0;
    uint32_t m_dataSize = 0;
    unsigned char* m_buffer = nullptr;
    IModeTable* m_modeTable = nullptr;
    ModuleMap* m_definitionModules = nullptr;
    StructureMap* m_definitionStructures = nullptr;
    PList<ModuleData*> m_modules;
    bool m_fileMode = false;
    bool m_hasDataTable = false;
    /// The objects that entries of one duplicate group share, by group and Loc.
    ParameterSharedArrayRegistry m_shared;
};
