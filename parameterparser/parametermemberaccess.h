// SPDX-License-Identifier: Apache-2.0
// The member descriptor tables of generated types and the shared routines that load, unload and
// allocate them: generated code states its layout once and calls these.
#pragma once

#include <cstdint>

#include "parameterparser/parameterexport.h"
#include "parameterparser/parameterfilesymboltableentry.h"
#include "parameterparser/parameterloadparameters.h"

class ParameterFileSymbolTable;
struct ParameterTypeDescriptor;

/// How a member stands in its structure and which reader fills it.
enum class ParameterMemberKind : uint8_t
{
    Scalar,              ///< one number
    FixedArray,          ///< length numbers inline
    CountedArray,        ///< count, ID, pointer to numbers
    OptionalScalar,      ///< number, count (0 or 1), ID
    Structure,           ///< embedded structure
    StructureFixedArray, ///< length structures inline
    StructureArray,      ///< count, ID, pointer to structures
    OptionalStructure,   ///< structure, count (0 or 1), ID
    String,              ///< pointer to characters
    StringFixedArray,    ///< length pointers to characters inline
    OptionalString,      ///< pointer to characters, count (0 or 1), ID
    StringArray,         ///< count, ID, pointer to pointers to characters
};

/// The storage of a number member. Enumerations are stored as UInt32.
enum class ParameterStorage : uint8_t
{
    Int8,
    UInt8,
    Int16,
    UInt16,
    Int32,
    UInt32,
    Int64,
    UInt64,
    Float,
    Double,
};

/// Calls visit with a null pointer of the C++ number type that storage stands for and returns
/// its result; the one place that maps a storage to its type.
template <typename Visit> auto VisitStorage(ParameterStorage storage, Visit visit)
{
    switch (storage) {
    case ParameterStorage::Int8:
        return visit(static_cast<signed char*>(nullptr));
    case ParameterStorage::UInt8:
        return visit(static_cast<unsigned char*>(nullptr));
    case ParameterStorage::Int16:
        return visit(static_cast<short*>(nullptr));
    case ParameterStorage::UInt16:
        return visit(static_cast<unsigned short*>(nullptr));
    case ParameterStorage::Int32:
        return visit(static_cast<int*>(nullptr));
    case ParameterStorage::UInt32:
        return visit(static_cast<unsigned int*>(nullptr));
    case ParameterStorage::Int64:
        return visit(static_cast<long*>(nullptr));
    case ParameterStorage::UInt64:
        return visit(static_cast<unsigned long*>(nullptr));
    case ParameterStorage::Float:
        return visit(static_cast<float*>(nullptr));
    case ParameterStorage::Double:
        break;
    }
    // Double, and the only way out for a value outside the enumeration.
    return visit(static_cast<double*>(nullptr));
}

/// One member of a generated type, in schema order. Offsets are offsetof values in the type.
struct ParameterMemberDescriptor
{
    char const* name;     ///< the schema's member name: value paths and listings use it
    char const* typeName; ///< what value access reports (one of ParameterTypeNames)
    unsigned long nameHash;
    uint32_t offset;       ///< the value, the inline array, or the pointer
    uint32_t countOffset;  ///< counted and optional members: the count word
    uint32_t idOffset;     ///< counted and optional members: the ID word
    uint32_t length;       ///< inline element count: 1, or the fixed array's length
    uint32_t minimumCount; ///< counted members: the reader's minimum count
    int loc;               ///< pointer members: the dup type under which loads are shared
    ParameterMemberKind kind;
    ParameterStorage storage;
    uint8_t precision; ///< digits behind the point in value texts
    bool enumeration;  ///< counted numbers read as enumerations (no float conversion)
    bool hidden;       ///< not in the file and not on a value path; only zeroed
    ParameterTypeDescriptor const* type; ///< structure members: the element type
};

/// One generated type: its size, its members and its array functions.
struct ParameterTypeDescriptor
{
    char const* name;
    uint32_t size;
    /// Bytes at the start that Load keeps: the symbolTableID of a top type.
    uint32_t loadStart;
    ParameterMemberDescriptor const* members;
    uint32_t memberCount;
    ParameterFileSymbolTableEntry::LoadArrayFunction loadArray;
    ParameterFileSymbolTableEntry::AllocArrayFunction allocArray;
    /// True when the type holds a pointer, directly or through a member.
    bool hasPointer;
};

/// The load and unload of a generated type from its descriptor.
namespace ParameterMemberAccess {

/// Zeroes object (past loadStart) and reads its members in order from params.entry, each under
/// its name hash, then moves the entry to the structure's end. A structure the file lacks stays
/// zero after the reader's "entry not found" message.
PARAMETERPARSER_API void Load(void* object, ParameterTypeDescriptor const& type,
                              ParameterLoadParameters& params);

/// Load of each of count elements of array with params.arrayIndex set; nothing for a null array
/// or count 0.
PARAMETERPARSER_API void LoadArray(ParameterTypeDescriptor const& type,
                                   ParameterLoadParameters& params, void* array,
                                   unsigned int count);

/// A zeroed array of count elements (data tag); null for count 0 or when memory runs out.
PARAMETERPARSER_API void* AllocArray(ParameterTypeDescriptor const& type, unsigned int count);

/// Gives back every pointer of object, members first: a shared array goes back to table and is
/// freed (with what its elements hold) only by its last holder; without a table it is freed.
/// Every pointer ends null.
PARAMETERPARSER_API void Unload(void* object, ParameterTypeDescriptor const& type,
                                ParameterFileSymbolTable* table);

} // namespace ParameterMemberAccess
