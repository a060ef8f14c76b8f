// SPDX-License-Identifier: Apache-2.0
// ParameterFileSymbolTableEntry, table side: decoding an entry, its data, and shared objects.
#include "parameterparser/parameterfilesymboltableentry.h"

#include <new>

#include "platform/vornalloc.h"

#include "parameterparser/moduledata.h"
#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterlogging.h"

// Symbol entry layout, field by field; every field steps FieldStep(width) at the file's
// alignment.
//
// | Field       | Width | Present                          |
// |-------------|-------|----------------------------------|
// | ID          | 4     | below 6.0.0                      |
// | Name        | 32    | below 6.0.0 (read and dropped)   |
// | NameHash    | 8     | from 6.0.0                       |
// | Version     | 8     | always                           |
// | (skipped)   | 8     | alignment 1 and below 3.0.1      |
// | ModeID      | 4     | always                           |
// | Offset      | 4     | always                           |
// | Size        | 4     | always                           |
// | DuplicateID | 4     | above 3.0.1                      |
//
// A data table entry is ID (below 6.0.0), Offset, Size and DuplicateID.

ParameterFileSymbolTableEntry::~ParameterFileSymbolTableEntry()
{
    delete Module;
    if (OwnsData)
        VornFree(Data, VornTagRelease);
}

void ParameterFileSymbolTableEntry::Init(ParameterFileSymbolTable* table)
{
    // An entry can be filled again (a reused local, an identifier stored twice in a table): what
    // it owned from the last fill goes first.
    delete Module;
    Module = nullptr;
    if (OwnsData)
        VornFree(Data, VornTagRelease);
    OwnsData = false;
    Table = table;
    Data = nullptr;
    Position = 0;
}

namespace {

// What an entry's bytes say beyond the fields the entry keeps itself.
struct DecodedFields
{
    uint64_t nameHash = 0;
    uint64_t rawVersion = 0;
    uint32_t modeId = ParameterFileSymbolTable::NoModuleModeId;
    uint32_t offset = 0;
};

// In file mode an entry's bytes come from the file into a block of its own, decoded from 0. A
// data entry takes fewer bytes than a symbol entry; reading only its own size keeps the last
// entry of a table at the end of the file within the file. Null when the read fails.
unsigned char* ReadEntryFromFile(ParameterFileSymbolTable const& table, ParameterBinaryFile* file,
                                 unsigned int pos, bool isSymbol, unsigned int& entrySize)
{
    ParameterFileLayout const& layout = table.GetLayout();
    entrySize = isSymbol || !table.HasDataTable() ? layout.symbolEntrySize : layout.dataEntrySize;
    unsigned int tableOffset = table.GetSymbolOffset();
    if (!isSymbol && table.GetDataTableOffset() != 0)
        tableOffset = table.GetDataTableOffset();
    auto* bytes = static_cast<unsigned char*>(VornCalloc(entrySize, VornTagAllocData));
    if (bytes == nullptr || !file->Read(bytes, tableOffset, pos, entrySize, 1)) {
        VornFree(bytes, VornTagRelease);
        return nullptr;
    }
    return bytes;
}

// Reads the fields of one entry in the layout's order into entry and fields; false when the
// bytes run out (the reader has logged it).
bool DecodeEntry(ParameterByteReader& reader, ParameterFileLayout const& layout, bool isSymbol,
                 unsigned int id, ParameterFileSymbolTableEntry& entry, DecodedFields& fields)
{
    entry.ID = id;
    if (!layout.positionalIds) {
        uint32_t stored = 0;
        if (reader.ReadU32(stored))
            entry.ID = stored;
    }
    if (isSymbol) {
        if (layout.positionalIds)
            (void)reader.ReadU64(fields.nameHash);
        else
            (void)reader.Skip(ParameterFileLayout::SymbolNameLength);
        (void)reader.ReadU64(fields.rawVersion);
        if (layout.symbolSpareBytes)
            (void)reader.SkipUnaligned(ParameterFileLayout::OldSymbolSpareBytes);
        (void)reader.ReadU32(fields.modeId);
    }
    uint32_t size = 0;
    (void)reader.ReadU32(fields.offset);
    (void)reader.ReadU32(size);
    entry.Size = size;
    entry.DuplicateID = entry.ID;
    if (layout.hasDuplicateId) {
        uint32_t duplicate = 0;
        if (reader.ReadU32(duplicate))
            entry.DuplicateID = duplicate;
    }
    return !reader.Failed();
}

} // namespace

// The file object alone decides file mode; the name travels with it for the callers' messages.
bool ParameterFileSymbolTableEntry::Load(unsigned char* buffer, char const* /*fileName*/,
                                         ParameterBinaryFile* file, unsigned int length,
                                         unsigned int& pos, unsigned int dataOffset,
                                         IModeTable* modeTable, bool isSymbol, unsigned int id)
{
    if (Table == nullptr)
        return false;
    IParameterLoggingAPI* log = Table->Logger();
    ParameterFileLayout const& layout = Table->GetLayout();

    unsigned char* bytes = buffer;
    unsigned int byteLength = length;
    unsigned int cursor = pos;
    unsigned char* temporary = nullptr;
    bool const fromFile = file != nullptr;
    if (fromFile) {
        temporary = ReadEntryFromFile(*Table, file, pos, isSymbol, byteLength);
        if (temporary == nullptr)
            return false;
        bytes = temporary;
        cursor = 0;
    }
    ParameterByteReader reader(bytes, byteLength, layout.alignment, log, cursor);
    DecodedFields fields;
    bool const ok = DecodeEntry(reader, layout, isSymbol, id, *this, fields);
    pos += reader.Position() - cursor;
    VornFree(temporary, VornTagRelease);
    if (!ok)
        return false;

    unsigned int const count = isSymbol ? Table->GetSymbolCount() : Table->GetDataCount();
    if (layout.hasDuplicateId && DuplicateID > count)
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                isSymbol ? "Invalid DuplicateID value %u, should be less than "
                                           "module table count: %u\n"
                                         : "Invalid DuplicateID value %u, should be less than "
                                           "data table count: %u\n",
                                DuplicateID, count);

    // The block must lie inside the data section, and in memory the data section inside the
    // buffer: Data points there without another check.
    unsigned int const dataSize = Table->GetDataSize();
    unsigned long long const dataEnd = static_cast<unsigned long long>(dataOffset) + dataSize;
    if (fields.offset > dataSize || Size > dataSize - fields.offset ||
        (!fromFile && dataEnd > Table->GetFileLength())) {
        ParameterLogging::Write(log, ParameterLogging::LogError,
                                "Failed to read %lld bytes from binary file offset %d, length %d\n",
                                static_cast<long long>(Size), static_cast<int>(fields.offset),
                                static_cast<int>(dataSize));
        return false;
    }

    if (isSymbol && fields.modeId != ParameterFileSymbolTable::NoModuleModeId) {
        Module =
            new (std::nothrow) ModuleData(layout.positionalIds ? fields.nameHash : 0, ID,
                                          DuplicateID, VersionUnion(fields.rawVersion),
                                          fields.modeId, modeTable, Table->GetSetManager(), Table);
        if (Module == nullptr)
            return false;
    }
    if (!fromFile) {
        Data = bytes + dataOffset + fields.offset;
        OwnsData = false;
        return true;
    }
    return ReadDataFromFile(file, dataOffset, fields.offset);
}

bool ParameterFileSymbolTableEntry::ReadDataFromFile(ParameterBinaryFile* file,
                                                     unsigned int dataOffset, unsigned int offset)
{
    OwnsData = true;
    if (Size == 0)
        return true;
    Data = static_cast<unsigned char*>(VornCalloc(Size, VornTagAllocData));
    unsigned int dataPos = offset;
    if (Data == nullptr || !file->Read(Data, dataOffset, dataPos, Size, 1)) {
        VornFree(Data, VornTagRelease);
        Data = nullptr;
        return false;
    }
    return true;
}

DupObjInfo* ParameterFileSymbolTableEntry::GetDupObject(int loc)
{
    if (Table == nullptr)
        return nullptr;
    return Table->GetDupObjectInternal(Module != nullptr, DuplicateID, loc, true);
}

void* ParameterFileSymbolTableEntry::SetFromDupObject(int loc)
{
    DupObjInfo* info = GetDupObject(loc);
    return info != nullptr ? info->Object : nullptr;
}

DupObjInfo* ParameterFileSymbolTableEntry::SetDupObject(void* object, int loc, unsigned int count,
                                                        uintptr_t elementType)
{
    if (Table == nullptr)
        return nullptr;
    return Table->SetDupObject(Module != nullptr, DuplicateID, object, loc, count, elementType);
}

void* ParameterFileSymbolTableEntry::TakeDupObject(int loc, unsigned int& count,
                                                   uintptr_t elementType)
{
    if (Table == nullptr)
        return nullptr;
    DupObjInfo* info =
        Table->GetDupObjectInternal(Module != nullptr, DuplicateID, loc, true, elementType);
    if (info == nullptr)
        return nullptr;
    // Every holder of one group reads the same block, but each brings its own count: one that
    // asks for more than the first reader loaded would read past the shared array.
    unsigned int const held = info->Count;
    if (count > held) {
        LogMessage(true,
                   "Shared array of data entry %u (Loc %d) holds %u elements, not %u: count set "
                   "to %u\n",
                   ID, loc, held, count, held);
        count = held;
    }
    return info->Object;
}

bool ParameterFileSymbolTableEntry::ReadPointerEntry(ParameterFileSymbolTableEntry& target)
{
    if (Table == nullptr)
        return false;
    return Table->ReadPointerEntry(target, this);
}

unsigned char ParameterFileSymbolTableEntry::GetAlignment()
{
    return Table != nullptr ? Table->GetAlignment() : 1;
}

ParameterSetManager* ParameterFileSymbolTableEntry::GetSetManager()
{
    return Table != nullptr ? Table->GetSetManager() : nullptr;
}
