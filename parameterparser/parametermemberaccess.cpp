// SPDX-License-Identifier: Apache-2.0
// The shared load, unload and allocation of generated types, driven by their descriptors.
#include "parameterparser/parametermemberaccess.h"

#include <cstring>
#include <type_traits>

#include "platform/vornalloc.h"

#include "parameterparser/parameterentryreader.h"
#include "parameterparser/parameterfilesymboltable.h"

namespace {

unsigned char* At(void* object, uint32_t offset)
{
    return static_cast<unsigned char*>(object) + offset;
}

unsigned int& Word(void* object, uint32_t offset)
{
    return *reinterpret_cast<unsigned int*>(At(object, offset));
}

// Pointer members are moved in and out with memcpy: the member's pointer type (an enumeration,
// a structure) is not the reader's.
void* PointerAt(void* object, uint32_t offset)
{
    void* pointer = nullptr;
    std::memcpy(&pointer, At(object, offset), sizeof(pointer));
    return pointer;
}

void SetPointer(void* object, uint32_t offset, void* pointer)
{
    std::memcpy(At(object, offset), &pointer, sizeof(pointer));
}

template <typename T>
void ReadNumbers(ParameterFileSymbolTableEntry& entry, void* object,
                 ParameterMemberDescriptor const& member, ParameterLoadParameters& local)
{
    switch (member.kind) {
    case ParameterMemberKind::Scalar:
    case ParameterMemberKind::FixedArray:
        entry.ReadSimpleTypeFixedArray(reinterpret_cast<T*>(At(object, member.offset)),
                                       member.length, local);
        break;
    case ParameterMemberKind::OptionalScalar:
        entry.ReadOptionalSimpleType(*reinterpret_cast<T*>(At(object, member.offset)),
                                     Word(object, member.countOffset),
                                     Word(object, member.idOffset), local);
        break;
    case ParameterMemberKind::CountedArray: {
        T* values = nullptr;
        entry.ReadSimpleTypeArray(values, Word(object, member.countOffset),
                                  Word(object, member.idOffset), member.minimumCount, local,
                                  member.loc, member.enumeration);
        SetPointer(object, member.offset, values);
        break;
    }
    default:
        break;
    }
}

void ReadNumberMember(ParameterFileSymbolTableEntry& entry, void* object,
                      ParameterMemberDescriptor const& member, ParameterLoadParameters& local)
{
    VisitStorage(member.storage, [&](auto* type) {
        ReadNumbers<std::remove_pointer_t<decltype(type)>>(entry, object, member, local);
    });
}

void ReadMember(ParameterFileSymbolTableEntry& entry, void* object,
                ParameterMemberDescriptor const& member, ParameterLoadParameters& local)
{
    ParameterTypeDescriptor const* type = member.type;
    switch (member.kind) {
    case ParameterMemberKind::Structure:
        ParameterMemberAccess::Load(At(object, member.offset), *type, local);
        break;
    case ParameterMemberKind::StructureFixedArray:
        entry.ReadStructureFixedArray(type->loadArray, At(object, member.offset), member.length,
                                      local);
        break;
    case ParameterMemberKind::StructureArray:
        SetPointer(object, member.offset,
                   entry.ReadStructureArray(
                       type->loadArray, type->allocArray, Word(object, member.countOffset),
                       Word(object, member.idOffset), member.minimumCount, local, member.loc));
        break;
    case ParameterMemberKind::OptionalStructure:
        entry.ReadOptionalStructure(type->loadArray, At(object, member.offset),
                                    Word(object, member.countOffset), Word(object, member.idOffset),
                                    local);
        break;
    case ParameterMemberKind::String:
    case ParameterMemberKind::StringFixedArray:
        entry.ReadStringFixedArray(reinterpret_cast<char**>(At(object, member.offset)),
                                   member.length, local, member.loc);
        break;
    case ParameterMemberKind::OptionalString: {
        char* text = nullptr;
        entry.ReadOptionalString(text, Word(object, member.countOffset),
                                 Word(object, member.idOffset), local, member.loc);
        SetPointer(object, member.offset, text);
        break;
    }
    case ParameterMemberKind::StringArray: {
        char** texts = nullptr;
        entry.ReadStringArray(texts, Word(object, member.countOffset),
                              Word(object, member.idOffset), member.minimumCount, local,
                              member.loc);
        SetPointer(object, member.offset, texts);
        break;
    }
    default:
        ReadNumberMember(entry, object, member, local);
        break;
    }
}

// Drops one holder's pointer. True when this holder was the last one, so that what the block
// points at may go too; the block itself is then freed.
// count, when given, becomes the element count of a shared block: the last holder may have
// declared fewer elements than the block holds.
bool ReleaseBlock(ParameterFileSymbolTable* table, void* block, unsigned int* count = nullptr)
{
    if (block == nullptr)
        return false;
    if (table != nullptr && !table->ReleaseDupObject(block, count))
        return false;
    return true;
}

void FreeText(ParameterFileSymbolTable* table, char* text)
{
    if (ReleaseBlock(table, text))
        VornFree(text, VornTagRelease);
}

void UnloadElements(void* array, ParameterTypeDescriptor const& type, unsigned int count,
                    ParameterFileSymbolTable* table)
{
    if (!type.hasPointer)
        return;
    for (unsigned int i = 0; i < count; ++i)
        ParameterMemberAccess::Unload(At(array, i * type.size), type, table);
}

void UnloadMember(void* object, ParameterMemberDescriptor const& member,
                  ParameterFileSymbolTable* table)
{
    switch (member.kind) {
    case ParameterMemberKind::Structure:
    case ParameterMemberKind::OptionalStructure:
        UnloadElements(At(object, member.offset), *member.type, 1, table);
        break;
    case ParameterMemberKind::StructureFixedArray:
        UnloadElements(At(object, member.offset), *member.type, member.length, table);
        break;
    case ParameterMemberKind::StructureArray:
    case ParameterMemberKind::CountedArray:
    case ParameterMemberKind::StringArray: {
        void* block = PointerAt(object, member.offset);
        SetPointer(object, member.offset, nullptr);
        // A shared array is loaded once: what its elements hold belongs to the array and goes
        // only with its last holder, or the other holders would see freed elements.
        unsigned int count = Word(object, member.countOffset);
        if (!ReleaseBlock(table, block, &count))
            break;
        if (member.kind == ParameterMemberKind::StructureArray) {
            UnloadElements(block, *member.type, count, table);
        } else if (member.kind == ParameterMemberKind::StringArray) {
            auto** texts = static_cast<char**>(block);
            for (unsigned int i = 0; i < count; ++i)
                FreeText(table, texts[i]);
        }
        VornFree(block, VornTagRelease);
        break;
    }
    case ParameterMemberKind::String:
    case ParameterMemberKind::StringFixedArray:
    case ParameterMemberKind::OptionalString: {
        unsigned int const count =
            member.kind == ParameterMemberKind::StringFixedArray ? member.length : 1;
        for (unsigned int i = 0; i < count; ++i) {
            uint32_t const offset = member.offset + i * static_cast<uint32_t>(sizeof(char*));
            auto* text = static_cast<char*>(PointerAt(object, offset));
            SetPointer(object, offset, nullptr);
            FreeText(table, text);
        }
        break;
    }
    default:
        break;
    }
}

} // namespace

void ParameterMemberAccess::Load(void* object, ParameterTypeDescriptor const& type,
                                 ParameterLoadParameters& params)
{
    std::memset(At(object, type.loadStart), 0, type.size - type.loadStart);
    ParameterLoadParameters local;
    if (!ParameterEntryReader::BeginStructure(params, local))
        return;
    ParameterFileSymbolTableEntry& entry = *params.entry;
    for (uint32_t i = 0; i < type.memberCount; ++i) {
        ParameterMemberDescriptor const& member = type.members[i];
        if (member.hidden)
            continue;
        local.nameHash = member.nameHash;
        ReadMember(entry, object, member, local);
    }
    // Whatever the members consumed, the next field starts behind this structure: a file whose
    // schema grew or shrank still reads from there on.
    ParameterEntryReader::EndStructure(entry, local, type);
}

void ParameterMemberAccess::LoadArray(ParameterTypeDescriptor const& type,
                                      ParameterLoadParameters& params, void* array,
                                      unsigned int count)
{
    if (array == nullptr || count == 0)
        return;
    for (unsigned int i = 0; i < count; ++i) {
        params.arrayIndex = i;
        Load(At(array, i * type.size), type, params);
    }
}

void* ParameterMemberAccess::AllocArray(ParameterTypeDescriptor const& type, unsigned int count)
{
    if (count == 0)
        return nullptr;
    return VornCalloc(static_cast<size_t>(count) * type.size, VornTagAllocData);
}

void ParameterMemberAccess::Unload(void* object, ParameterTypeDescriptor const& type,
                                   ParameterFileSymbolTable* table)
{
    for (uint32_t i = 0; i < type.memberCount; ++i)
        UnloadMember(object, type.members[i], table);
}
