// SPDX-License-Identifier: Apache-2.0
// Copies of generated structures, driven by their descriptors.
#include "parameterparser/parameterclone.h"

#include <cstring>

#include "platform/vornalloc.h"

#include "parameterparser/parametermemberaccess.h"

namespace {

unsigned char* At(void* object, uint32_t offset)
{
    return static_cast<unsigned char*>(object) + offset;
}

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

uint32_t& Count(void* object, ParameterMemberDescriptor const& member)
{
    return *reinterpret_cast<uint32_t*>(At(object, member.countOffset));
}

// Applies action to each structure that object holds inline: embedded structures and the
// elements of fixed arrays of structures.
template <typename Action>
void ForEachInline(void* object, ParameterTypeDescriptor const& type, Action action)
{
    for (uint32_t i = 0; i < type.memberCount; ++i) {
        ParameterMemberDescriptor const& member = type.members[i];
        if (member.kind != ParameterMemberKind::Structure &&
            member.kind != ParameterMemberKind::StructureFixedArray &&
            member.kind != ParameterMemberKind::OptionalStructure)
            continue;
        for (uint32_t element = 0; element < member.length; ++element)
            action(At(object, member.offset + element * member.type->size), *member.type);
    }
}

// Gives the counted arrays of structures of target (already a byte copy) arrays of their own.
void Deepen(void* target, ParameterTypeDescriptor const& type)
{
    for (uint32_t i = 0; i < type.memberCount; ++i) {
        ParameterMemberDescriptor const& member = type.members[i];
        if (member.kind != ParameterMemberKind::StructureArray)
            continue;
        void const* shared = PointerAt(target, member.offset);
        uint32_t& count = Count(target, member);
        void* own = nullptr;
        if (shared != nullptr && count != 0)
            own = VornCalloc(static_cast<size_t>(count) * member.type->size, VornTagAllocData);
        if (own == nullptr) {
            count = 0;
        } else {
            for (uint32_t element = 0; element < count; ++element) {
                size_t const offset = static_cast<size_t>(element) * member.type->size;
                ParameterClone::CloneFrom(static_cast<unsigned char*>(own) + offset,
                                          static_cast<unsigned char const*>(shared) + offset,
                                          *member.type);
            }
        }
        SetPointer(target, member.offset, own);
    }
    ForEachInline(target, type, [](void* inner, ParameterTypeDescriptor const& innerType) {
        Deepen(inner, innerType);
    });
}

// Frees what Deepen allocated in object, not object itself.
void Release(void* object, ParameterTypeDescriptor const& type)
{
    for (uint32_t i = 0; i < type.memberCount; ++i) {
        ParameterMemberDescriptor const& member = type.members[i];
        if (member.kind != ParameterMemberKind::StructureArray)
            continue;
        void* own = PointerAt(object, member.offset);
        if (own == nullptr)
            continue;
        for (uint32_t element = 0; element < Count(object, member); ++element)
            Release(static_cast<unsigned char*>(own) +
                        static_cast<size_t>(element) * member.type->size,
                    *member.type);
        VornFree(own, VornTagRelease);
        SetPointer(object, member.offset, nullptr);
        Count(object, member) = 0;
    }
    ForEachInline(object, type, [](void* inner, ParameterTypeDescriptor const& innerType) {
        Release(inner, innerType);
    });
}

} // namespace

namespace ParameterClone {

void CloneFrom(void* target, void const* source, ParameterTypeDescriptor const& type)
{
    if (target == nullptr || source == nullptr || target == source)
        return;
    std::memcpy(target, source, type.size);
    Deepen(target, type);
}

void* Clone(void const* source, ParameterTypeDescriptor const& type)
{
    if (source == nullptr)
        return nullptr;
    void* clone = VornCalloc(type.size, VornTagAllocObject);
    if (clone != nullptr)
        CloneFrom(clone, source, type);
    return clone;
}

void Destroy(void* clone, ParameterTypeDescriptor const& type)
{
    if (clone == nullptr)
        return;
    Release(clone, type);
    VornFree(clone, VornTagRelease);
}

} // namespace ParameterClone
