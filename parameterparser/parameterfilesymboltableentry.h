// SPDX-License-Identifier: Apache-2.0
// ParameterFileSymbolTableEntry: one symbol or data table entry and the typed reads of its data.
#pragma once

#include <cstdint>

#include "parameterparser/parameterexport.h"
#include "parameterparser/parameterloadparameters.h"

class IModeTable;
class ModuleData;
class ParameterBinaryFile;
class ParameterDefinitionElement;
class ParameterFileSymbolTable;
class ParameterSetManager;
struct DupObjInfo;

/// One entry of the symbol table (a module instance) or of the data table (a block that module
/// data points at), with a read cursor over its data. Entries of the tables own nothing in buffer
/// mode (Data points into the caller's buffer); entries re-read from the file own their Data.
class PARAMETERPARSER_API ParameterFileSymbolTableEntry
{
public:
    /// Fills an array element of a structure array: (parameters, array, element count).
    using LoadArrayFunction = void (*)(ParameterLoadParameters&, void*, unsigned int);
    /// Allocates a zeroed array of structures for count elements.
    using AllocArrayFunction = void* (*)(unsigned int);

    ParameterFileSymbolTableEntry() = default;
    ~ParameterFileSymbolTableEntry();

    // Find hands out a copy of a table entry that shares its Data; such a copy owns neither
    // Data nor Module. No implicit copies: ownership must be settled where a copy is made.
    ParameterFileSymbolTableEntry(ParameterFileSymbolTableEntry const&) = delete;
    ParameterFileSymbolTableEntry& operator=(ParameterFileSymbolTableEntry const&) = delete;

    // ---- Table side: filled by the symbol table -------------------------------------------

    /// Sets Table, clears Data and Position.
    void Init(ParameterFileSymbolTable* table);

    /// Decodes the entry at pos (in buffer, or read from file in file mode) and sets Data to its
    /// bytes. Returns false if a field could not be read.
    [[nodiscard]] bool Load(unsigned char* buffer, char const* fileName, ParameterBinaryFile* file,
                            unsigned int length, unsigned int& pos, unsigned int dataOffset,
                            IModeTable* modeTable, bool isSymbol, unsigned int id);

    DupObjInfo* GetDupObject(int loc);
    void* SetFromDupObject(int loc);
    /// Publishes object, an array of count elements of kind elementType (an identity chosen by
    /// the reader), as the shared object of loc in this entry's duplicate group.
    DupObjInfo* SetDupObject(void* object, int loc, unsigned int count = 0,
                             uintptr_t elementType = 0);
    /// The shared array of loc for one more holder, counted, when it holds elements of kind
    /// elementType; null when none is published or it holds another kind (the caller then loads
    /// a private copy). A holder that declares more elements than the array holds gets its count
    /// cut to the array's, with an error logged.
    void* TakeDupObject(int loc, unsigned int& count, uintptr_t elementType);

    /// Reads a u32 data table identifier at the cursor and finds that entry into target.
    [[nodiscard]] bool ReadPointerEntry(ParameterFileSymbolTableEntry& target);

    unsigned char GetAlignment();
    ParameterSetManager* GetSetManager();

    // ---- Reader side: the typed reads of generated Load functions ---------------------------

    template <typename T>
    void ReadSimpleTypeFixedArray(T* values, unsigned int count,
                                  ParameterLoadParameters& parameters);
    template <typename T>
    void ReadOptionalSimpleType(T& value, unsigned int& count, unsigned int& id,
                                ParameterLoadParameters& parameters);
    template <typename T>
    void ReadSimpleTypeArray(T*& values, unsigned int& count, unsigned int& id,
                             unsigned int minimumCount, ParameterLoadParameters& parameters,
                             int loc, bool noFloat);
    void ReadStructureFixedArray(LoadArrayFunction loadArray, void* values, unsigned int count,
                                 ParameterLoadParameters& parameters);
    void* ReadStructureArray(LoadArrayFunction loadArray, AllocArrayFunction allocArray,
                             unsigned int& count, unsigned int& id, unsigned int minimumCount,
                             ParameterLoadParameters& parameters, int loc);
    void ReadOptionalStructure(LoadArrayFunction loadArray, void* value, unsigned int& count,
                               unsigned int& id, ParameterLoadParameters& parameters);
    void ReadString(char*& value, ParameterLoadParameters& parameters, int loc);
    void ReadStringFixedArray(char** values, unsigned int count,
                              ParameterLoadParameters& parameters, int loc);
    void ReadStringArray(char**& values, unsigned int& count, unsigned int& id,
                         unsigned int minimumCount, ParameterLoadParameters& parameters, int loc);
    void ReadOptionalString(char*& value, unsigned int& count, unsigned int& id,
                            ParameterLoadParameters& parameters, int loc);

    ParameterDefinitionElement* AdjustPositionAndGetElement(ParameterLoadParameters& parameters,
                                                            bool verify, bool& modified);
    void UpdatePosition(unsigned int position);
    unsigned int ReadLoadDataLimit(unsigned int limit);
    bool GetCountAndPointerEntry(unsigned int& count, ParameterFileSymbolTableEntry*& target,
                                 ParameterFileSymbolTableEntry& storage, unsigned long minimumSize,
                                 unsigned int minimumCount, unsigned long nameHash, bool isPointer,
                                 bool isFixedArray, bool isArray,
                                 ParameterDefinitionElement* element, bool& countChanged,
                                 unsigned int limit);
    bool IsFixedCountVersion();
    /// Cuts count to what available bytes hold at size bytes an element (never below
    /// minimumCount), logging the cut; true when count changed. A size of 0 counts as one byte.
    bool FitCountToData(unsigned int& count, unsigned long size, unsigned int available,
                        unsigned int minimumCount, unsigned long nameHash);

    template <typename T>
    void ReadArray(T* values, ParameterDefinitionElement* element, unsigned int count,
                   unsigned int limit);
    float* ReadArray(ParameterDefinitionElement* element, unsigned int count, unsigned int limit);

    void ReadString(char** value, unsigned int length, int loc, unsigned int limit);
    void ReadString(char*& value, int loc, unsigned int limit);

    /// Formats into 4096 bytes and logs at warning level, or at error level if error is set.
    void LogMessage(bool error, char const* format, ...) __attribute__((format(printf, 3, 4)));

    // ---- Fields, in record order ------------------------------------------------------------

    ParameterFileSymbolTable* Table = nullptr;
    uint32_t ID = 0;
    uint32_t DuplicateID = 0;
    unsigned char* Data = nullptr;
    bool OwnsData = false;
    uint32_t Position = 0; ///< read cursor in Data
    uint32_t Size = 0;
    ModuleData* Module = nullptr; ///< owned; set for a symbol entry with a real Mode ID

private:
    /// File mode: reads the entry's Size bytes at offset of the data section into an owned Data.
    bool ReadDataFromFile(ParameterBinaryFile* file, unsigned int dataOffset, unsigned int offset);
};
