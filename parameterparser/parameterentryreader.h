// SPDX-License-Identifier: Apache-2.0
// The typed field readers of ParameterFileSymbolTableEntry: template definitions and the helpers
// that generated Load functions share. Units that read types of their own (the enumerations of
// generated modules) include this header; the number types are instantiated once in the library.
#pragma once

#include <cstdint>
#include <type_traits>

#include "platform/vornalloc.h"

#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterexport.h"
#include "parameterparser/parameterfilesymboltableentry.h"
#include "parameterparser/parameterloadparameters.h"
#include "parameterparser/parameterutilsread.h"

class IParameterLoggingAPI;
struct ParameterMemberDescriptor;
struct ParameterTypeDescriptor;

namespace ParameterEntryReader {

/// Limit on hostile input: the most pointed-to entries of structures that one read goes down
/// through. Legitimate trees (trigger trees, nested tables) stay far below it; a deeper chain of
/// pointers, or one that leads back into an entry being read, is cut there and the member
/// stays empty.
constexpr unsigned int MaxPointerDepth = 32;

/// How a reader asks GetCountAndPointerEntry for its field.
struct FieldForm
{
    unsigned long minimumSize; ///< bytes of one element when the file has no element for it
    bool isPointer;
    bool isFixedArray;
    bool isArray;
};

/// Whether an element of the file has exactly the form a reader expects (count: the compiled-in
/// count), so that reading it proves the element.
using ExactForm = bool (*)(ParameterDefinitionElementInfo const& info, unsigned int count);

/// The state a field reader works on after the common start.
struct FieldRead
{
    ParameterFileSymbolTableEntry storage;           ///< a pointed-to entry, when there is one
    ParameterFileSymbolTableEntry* target = nullptr; ///< where the field's data stands
    ParameterDefinitionElement* element = nullptr;   ///< the file's element of the field, if any
    unsigned int count = 0;                          ///< the count the file gives
    bool modified = false;                           ///< the field is not where the file says
    bool countChanged = false;                       ///< the file's count differs from its element
};

/// The start shared by every field reader: finds the file's element of parameters.nameHash,
/// reads the field's count and data table identifier as the file's form requires, and marks an
/// element of exactly the expected form Verified. count is the compiled-in count. Returns
/// whether the field is in the file; a field whose enclosing structure is described by the file
/// but lacks it is not, and then nothing is read. Logs what the lower levels log.
PARAMETERPARSER_API bool BeginField(ParameterFileSymbolTableEntry& entry,
                                    ParameterLoadParameters& parameters, FieldForm const& form,
                                    unsigned int count, ExactForm exact, FieldRead& field);

/// True when the field that element was looked up for is not in the file: there is no element,
/// and the enclosing element either was not matched to the file or has a structure of the file
/// that does not hold the field. A matched parent whose definitions were cleared trusts the
/// compiled-in schema.
PARAMETERPARSER_API bool IsFieldMissing(ParameterDefinitionElement const* parent,
                                        ParameterDefinitionElement const* element);

/// The start of a generated Load of a structure: checks the structure's own element against the
/// file (moving the cursor to where the file puts the structure), then fills local for its
/// fields (parentElement the structure's element, basePosition the cursor, loadLimit the
/// structure's stored limit). Returns false after logging "Load: 0x%llx entry not found in the
/// binary file, all values will be 0" when the file lacks the structure or puts it out of
/// bounds; the caller then leaves it zeroed. The caller ends with EndStructure (or
/// UpdatePosition(local.loadLimit)).
PARAMETERPARSER_API bool BeginStructure(ParameterLoadParameters& parameters,
                                        ParameterLoadParameters& local);

/// The end of a generated Load of a structure of compiled type type: moves the entry to the
/// structure's end (UpdatePosition(local.loadLimit)). When the load found the file's structure
/// to differ from type, logs once per load at warning level "Structure %s of the file differs
/// from compiled %s: %u members stepped over, %u missing, %u in another form\n"; the structure's
/// later instances in that load are then read without messages.
PARAMETERPARSER_API void EndStructure(ParameterFileSymbolTableEntry& entry,
                                      ParameterLoadParameters const& local,
                                      ParameterTypeDescriptor const& type);

/// Records, with the load running on this thread, that the file's structure of element (the
/// element of the structure being read) differs from the compiled one. True when the reader's
/// message about it is to be written: outside a load, for an element without a structure of
/// the file, and until the load has summed the structure up.
PARAMETERPARSER_API bool NoteDifference(ParameterDefinitionElement const* element);

/// Takes count elements from the decode work the load on this thread may still do (see
/// MaxDecodedElementsPerFileByte). False when they do not fit: the caller leaves the field
/// empty. The first refusal of a load logs "Module load passes %llu decoded elements (%llu for
/// each byte of its file): data entry %u left empty\n" at error level; later ones are silent.
PARAMETERPARSER_API bool SpendElements(ParameterFileSymbolTableEntry& entry, uint64_t count);

/// The logger of an entry's set manager (null logs everything).
PARAMETERPARSER_API IParameterLoggingAPI* EntryLogger(ParameterFileSymbolTableEntry& entry);

/// "%s: 0x%llx entry not found in the binary file, all values will be 0", at error or warning
/// level.
PARAMETERPARSER_API void LogNotFound(ParameterFileSymbolTableEntry& entry, char const* reader,
                                     unsigned long nameHash, bool error);

/// LogNotFound for a field of parameters' structure that BeginField did not find. A field that
/// the file's structure lacks is a difference of that structure (see NoteDifference).
PARAMETERPARSER_API void LogMissingField(ParameterFileSymbolTableEntry& entry,
                                         ParameterLoadParameters const& parameters,
                                         FieldRead const& field, char const* reader, bool error);

/// The warning of a fixed array of parameters' structure whose count in the file differs from the
/// compiled-in one.
PARAMETERPARSER_API void LogCountDifference(ParameterFileSymbolTableEntry& entry,
                                            ParameterLoadParameters const& parameters,
                                            unsigned int expected, unsigned int binary);

/// The lesser of the entry's Size and limit: how far a read in the entry may go.
inline unsigned int ReadLength(ParameterFileSymbolTableEntry const& entry, unsigned int limit)
{
    return entry.Size < limit ? entry.Size : limit;
}

/// A reader of the entry's data at its cursor, within the lesser of its Size and limit, logging
/// through the entry's set manager. Whoever reads through it puts its position back into the
/// entry's cursor.
inline ParameterByteReader EntryBytes(ParameterFileSymbolTableEntry& entry, unsigned int limit)
{
    return ParameterByteReader(entry.Data, ReadLength(entry, limit), entry.GetAlignment(),
                               EntryLogger(entry), entry.Position);
}

/// Reads count numbers at the entry's cursor within limit into values, as ParameterUtils::ReadArray
/// (with noFloat: ReadArrayNoFloat) does, and moves the cursor. False for an entry without data.
template <typename T>
bool ReadValues(ParameterFileSymbolTableEntry& entry, T* values,
                ParameterDefinitionElement* element, unsigned int count, unsigned int limit,
                bool noFloat)
{
    if (entry.Data == nullptr)
        return false;
    ParameterByteReader bytes = EntryBytes(entry, limit);
    bool const read = ParameterReadDetail::ReadArrayCommon(values, element, bytes, count, noFloat);
    entry.Position = bytes.Position();
    return read;
}

/// Reads one number at the entry's cursor within limit, as ParameterUtils::Read does, and moves
/// the cursor.
template <typename T>
bool ReadValue(ParameterFileSymbolTableEntry& entry, T& value, ParameterDefinitionElement* element,
               unsigned int limit)
{
    ParameterByteReader bytes = EntryBytes(entry, limit);
    bool const read = ParameterReadDetail::ReadValue(value, element, bytes);
    entry.Position = bytes.Position();
    return read;
}

/// Reads a u32 count at the entry's cursor within limit; a short read logs and gives 0 and false.
bool ReadCount(ParameterFileSymbolTableEntry& entry, unsigned int limit, uint32_t& value);

inline bool HasFlag(ParameterDefinitionElementInfo const& info, uint16_t flag)
{
    return (info.Flags & flag) != 0;
}

/// A structure element or an element for a whole module, with its structure still there.
inline bool HasLiveStructure(ParameterDefinitionElement const* element)
{
    return element != nullptr && element->Info != nullptr && element->Info->Structure != nullptr;
}

/// An element of one of the string types.
inline bool IsText(ParameterDefinitionElementInfo const& info)
{
    return info.Type > TypeUIntLike2;
}

template <typename T>
bool ExactFixedArray(ParameterDefinitionElementInfo const& info, unsigned int count)
{
    return (count == 1 || HasFlag(info, ElementFixedCount)) && info.Count == count &&
           !HasFlag(info, ElementVariableCount) && ParameterReadDetail::IsDirect<T>(info);
}

template <typename T> bool ExactOptional(ParameterDefinitionElementInfo const& info, unsigned int)
{
    return !HasFlag(info, ElementFixedCount) && HasFlag(info, ElementVariableCount) &&
           info.Count == 1 && ParameterReadDetail::IsDirect<T>(info);
}

template <typename T> bool ExactVariable(ParameterDefinitionElementInfo const& info, unsigned int)
{
    return HasFlag(info, ElementVariableCount) && ParameterReadDetail::IsDirect<T>(info);
}

// The exact forms of structure and string fields, as ExactForm predicates.
inline bool ExactStructureFixedArray(ParameterDefinitionElementInfo const& info, unsigned int count)
{
    return (count == 1 || HasFlag(info, ElementFixedCount)) && info.Count == count &&
           !HasFlag(info, ElementVariableCount) && info.Type == TypeStructure;
}

inline bool ExactStructureArray(ParameterDefinitionElementInfo const& info, unsigned int)
{
    return HasFlag(info, ElementVariableCount) && info.Type == TypeStructure;
}

inline bool ExactOptionalStructure(ParameterDefinitionElementInfo const& info, unsigned int)
{
    return !HasFlag(info, ElementFixedCount) && HasFlag(info, ElementVariableCount) &&
           info.Count == 1 && info.Type == TypeStructure;
}

inline bool ExactString(ParameterDefinitionElementInfo const& info, unsigned int)
{
    return !HasFlag(info, ElementFixedCount) && !HasFlag(info, ElementVariableCount) &&
           IsText(info);
}

inline bool ExactStringFixedArray(ParameterDefinitionElementInfo const& info, unsigned int count)
{
    return (count == 1 || HasFlag(info, ElementFixedCount)) && info.Count == count &&
           !HasFlag(info, ElementVariableCount) && IsText(info);
}

inline bool ExactStringArray(ParameterDefinitionElementInfo const& info, unsigned int)
{
    return HasFlag(info, ElementVariableCount) && IsText(info);
}

inline bool ExactOptionalString(ParameterDefinitionElementInfo const& info, unsigned int)
{
    return !HasFlag(info, ElementFixedCount) && HasFlag(info, ElementVariableCount) &&
           info.Count == 1 && IsText(info);
}

/// Whether the file's element has exactly the form in which the reader of member expects it (the
/// predicate that reader hands BeginField), so that a load reads it as it stands and proves it.
/// Counted arrays of enumerations, which a load never proves, are judged as counted UInt32. An
/// element that is not of this form is read with a conversion of type or count.
PARAMETERPARSER_API bool HasExactForm(ParameterDefinitionElementInfo const& info,
                                      ParameterMemberDescriptor const& member);

/// Whether the file's element holds numbers of another type than T, which a read converts: a
/// read of such an integer array reports itself short although it filled the values.
template <typename T> bool IsConverted(ParameterDefinitionElement const* element)
{
    return element != nullptr && element->Info != nullptr &&
           ParameterReadDetail::IsNumberCode(element->Info->Type) &&
           !ParameterReadDetail::IsDirect<T>(*element->Info);
}

/// Counted arrays stand in an entry of their own (shared through the duplicate lists) unless the
/// file holds them inline as a fixed or single field.
inline bool IsSharedField(ParameterDefinitionElement const* element)
{
    return element == nullptr || element->Info == nullptr ||
           HasFlag(*element->Info, ElementVariableCount) || element->Info->Type > TypeUIntLike2;
}

/// The element kind of a shared array of numbers, as its record stores it: size, float and sign.
/// Small values, which no array loader's address (the kind of structure arrays) can take.
template <typename T> constexpr uintptr_t NumberIdentity(bool noFloat)
{
    return sizeof(T) | (std::is_floating_point_v<T> ? 0x100u : 0u) |
           (std::is_signed_v<T> ? 0x200u : 0u) | (std::is_enum_v<T> || noFloat ? 0x400u : 0u);
}

/// The element kind of a shared array of strings.
constexpr uintptr_t StringArrayIdentity = 0x800u | sizeof(char*);

constexpr FieldForm NumberFixedForm(unsigned int count)
{
    return {4, false, count >= 2, false};
}
constexpr FieldForm NumberPointerForm{4, true, false, true};

} // namespace ParameterEntryReader

template <typename T>
void ParameterFileSymbolTableEntry::ReadArray(T* values, ParameterDefinitionElement* element,
                                              unsigned int count, unsigned int limit)
{
    if (Data == nullptr) {
        LogMessage(false, "Insufficient data to read array of symbol table entry\n");
        return;
    }
    if (!ParameterEntryReader::ReadValues(*this, values, element, count, limit, false))
        LogMessage(false, "Insufficient data to read array of symbol table entry\n");
}

template <typename T>
void ParameterFileSymbolTableEntry::ReadSimpleTypeFixedArray(T* values, unsigned int count,
                                                             ParameterLoadParameters& parameters)
{
    namespace Reader = ParameterEntryReader;
    Reader::FieldRead field;
    if (!Reader::BeginField(*this, parameters, Reader::NumberFixedForm(count), count,
                            &Reader::ExactFixedArray<T>, field)) {
        Reader::LogMissingField(*this, parameters, field, "ReadSimpleTypeFixedArray", false);
        return;
    }
    unsigned int const binary = field.count;
    ParameterFileSymbolTableEntry& target = *field.target;
    bool const read = Reader::ReadValues(target, values, field.element,
                                         binary < count ? binary : count, NoLoadLimit, false);
    // Numbers of another type are converted into values all the same: that report is about a
    // difference of the structure, told with its other messages.
    if (!read && (!Reader::IsConverted<T>(field.element) ||
                  Reader::NoteDifference(parameters.parentElement)))
        target.LogMessage(false, "Insufficient data to read array of symbol table entry\n");
    // A file with more elements leaves the rest behind the cursor: the next field is read at its
    // own place, and the end of the enclosing structure steps over what is left.
    if (binary != count)
        Reader::LogCountDifference(*this, parameters, count, binary);
}

template <typename T>
void ParameterFileSymbolTableEntry::ReadOptionalSimpleType(T& value, unsigned int& count,
                                                           unsigned int& id,
                                                           ParameterLoadParameters& parameters)
{
    namespace Reader = ParameterEntryReader;
    Reader::FieldRead field;
    if (!Reader::BeginField(*this, parameters, Reader::NumberPointerForm, 1,
                            &Reader::ExactOptional<T>, field)) {
        Reader::LogMissingField(*this, parameters, field, "ReadOptionalSimpleType", false);
        count = 0;
        return;
    }
    count = field.count;
    ParameterFileSymbolTableEntry& target = *field.target;
    id = target.ID;
    if (count == 0)
        return;
    // The structure's load limit bounds what stands inline; a pointed-to entry ends at its Size.
    unsigned int const limit = &target == this ? parameters.loadLimit : NoLoadLimit;
    if (!Reader::ReadValue(target, value, field.element, limit))
        target.LogMessage(false, "Insufficient data to read variable from symbol table entry\n");
}

template <typename T>
void ParameterFileSymbolTableEntry::ReadSimpleTypeArray(T*& values, unsigned int& count,
                                                        unsigned int& id, unsigned int minimumCount,
                                                        ParameterLoadParameters& parameters,
                                                        int loc, bool noFloat)
{
    namespace Reader = ParameterEntryReader;
    // Enumerations always take the no-float form and never prove an element.
    bool const enumeration = std::is_enum_v<T> || noFloat;
    Reader::FieldRead field;
    if (!Reader::BeginField(*this, parameters, Reader::NumberPointerForm, minimumCount,
                            enumeration ? nullptr : &Reader::ExactVariable<T>, field)) {
        Reader::LogMissingField(*this, parameters, field,
                                enumeration ? "ReadSimpleTypeArrayNoFloat" : "ReadSimpleTypeArray",
                                false);
        count = 0;
        return;
    }
    count = field.count;
    ParameterFileSymbolTableEntry& target = *field.target;
    id = target.ID;
    bool const shared = Reader::IsSharedField(field.element);
    if (shared) {
        if (void* object =
                target.TakeDupObject(loc, count, Reader::NumberIdentity<T>(enumeration))) {
            values = static_cast<T*>(object);
            return;
        }
    } else if (values != nullptr) {
        return;
    }

    // A block loaded once more for one more holder is decode work like any other.
    if (count != 0 && !Reader::SpendElements(target, count)) {
        count = 0;
        return;
    }
    T* array = nullptr;
    if (count != 0 && target.Data != nullptr) {
        array =
            static_cast<T*>(VornCalloc(sizeof(T) * static_cast<size_t>(count), VornTagAllocData));
        if (array != nullptr) {
            // The no-float form takes four-byte numbers and enumerations only.
            bool ok = false;
            if constexpr (std::is_enum_v<T> || (std::is_integral_v<T> && sizeof(T) == 4)) {
                if (enumeration)
                    ok = Reader::ReadValues(target, array, field.element, count, NoLoadLimit, true);
            }
            if constexpr (!std::is_enum_v<T>) {
                if (!enumeration)
                    ok =
                        Reader::ReadValues(target, array, field.element, count, NoLoadLimit, false);
            }
            if (!ok) {
                VornFree(array, VornTagRelease);
                array = nullptr;
            }
        }
    }
    if (array == nullptr) {
        // An integer array of another width comes out empty: a difference of the structure.
        bool const converted = !enumeration && Reader::IsConverted<T>(field.element);
        if (!converted || Reader::NoteDifference(parameters.parentElement)) {
            LogMessage(false, "Insufficient data to read array from symbol table entry\n");
            if (count != 0)
                LogMessage(true, "Failed to allocate %llx\n",
                           static_cast<unsigned long long>(parameters.nameHash));
        }
        count = 0;
        return;
    }
    values = array;
    if (shared)
        target.SetDupObject(array, loc, count, Reader::NumberIdentity<T>(enumeration));
}

// The number types are instantiated once, in the library (parameterentryreader.cpp).
#define PARAMETER_ENTRY_READER_INSTANCES(EXTERN)                                                   \
    EXTERN template bool ParameterUtils::Read<unsigned int>(                                       \
        unsigned int*, ParameterDefinitionElement*, unsigned char const*, unsigned int,            \
        unsigned int&, unsigned char, IParameterLoggingAPI*);                                      \
    EXTERN template bool ParameterUtils::Read<int>(                                                \
        int*, ParameterDefinitionElement*, unsigned char const*, unsigned int, unsigned int&,      \
        unsigned char, IParameterLoggingAPI*);                                                     \
    EXTERN template bool ParameterUtils::Read<float>(                                              \
        float*, ParameterDefinitionElement*, unsigned char const*, unsigned int, unsigned int&,    \
        unsigned char, IParameterLoggingAPI*);                                                     \
    EXTERN template bool ParameterUtils::Read<unsigned short>(                                     \
        unsigned short*, ParameterDefinitionElement*, unsigned char const*, unsigned int,          \
        unsigned int&, unsigned char, IParameterLoggingAPI*);                                      \
    EXTERN template bool ParameterUtils::Read<unsigned char>(                                      \
        unsigned char*, ParameterDefinitionElement*, unsigned char const*, unsigned int,           \
        unsigned int&, unsigned char, IParameterLoggingAPI*);                                      \
    EXTERN template bool ParameterUtils::Read<double>(                                             \
        double*, ParameterDefinitionElement*, unsigned char const*, unsigned int, unsigned int&,   \
        unsigned char, IParameterLoggingAPI*);                                                     \
    PARAMETER_ENTRY_READER_UTILS_ARRAY(EXTERN, unsigned int)                                       \
    PARAMETER_ENTRY_READER_UTILS_ARRAY(EXTERN, int)                                                \
    PARAMETER_ENTRY_READER_UTILS_ARRAY(EXTERN, float)                                              \
    PARAMETER_ENTRY_READER_UTILS_ARRAY(EXTERN, unsigned long)                                      \
    PARAMETER_ENTRY_READER_ARRAY(EXTERN, unsigned int)                                             \
    PARAMETER_ENTRY_READER_ARRAY(EXTERN, int)                                                      \
    PARAMETER_ENTRY_READER_ARRAY(EXTERN, float)                                                    \
    PARAMETER_ENTRY_READER_ARRAY(EXTERN, signed char)                                              \
    PARAMETER_ENTRY_READER_ARRAY(EXTERN, unsigned short)                                           \
    PARAMETER_ENTRY_READER_ARRAY(EXTERN, short)                                                    \
    PARAMETER_ENTRY_READER_ARRAY(EXTERN, double)                                                   \
    PARAMETER_ENTRY_READER_ARRAY(EXTERN, unsigned char)                                            \
    PARAMETER_ENTRY_READER_ARRAY(EXTERN, unsigned long)                                            \
    PARAMETER_ENTRY_READER_ARRAY(EXTERN, long)                                                     \
    PARAMETER_ENTRY_READER_FIXED(EXTERN, unsigned int)                                             \
    PARAMETER_ENTRY_READER_FIXED(EXTERN, int)                                                      \
    PARAMETER_ENTRY_READER_FIXED(EXTERN, float)                                                    \
    PARAMETER_ENTRY_READER_FIXED(EXTERN, signed char)                                              \
    PARAMETER_ENTRY_READER_FIXED(EXTERN, unsigned short)                                           \
    PARAMETER_ENTRY_READER_FIXED(EXTERN, short)                                                    \
    PARAMETER_ENTRY_READER_FIXED(EXTERN, double)                                                   \
    PARAMETER_ENTRY_READER_FIXED(EXTERN, unsigned long)                                            \
    PARAMETER_ENTRY_READER_FIXED(EXTERN, unsigned char)                                            \
    PARAMETER_ENTRY_READER_FIXED(EXTERN, long)                                                     \
    PARAMETER_ENTRY_READER_OPTIONAL(EXTERN, unsigned int)                                          \
    PARAMETER_ENTRY_READER_OPTIONAL(EXTERN, int)                                                   \
    PARAMETER_ENTRY_READER_OPTIONAL(EXTERN, float)                                                 \
    PARAMETER_ENTRY_READER_OPTIONAL(EXTERN, unsigned short)                                        \
    PARAMETER_ENTRY_READER_OPTIONAL(EXTERN, unsigned char)                                         \
    PARAMETER_ENTRY_READER_OPTIONAL(EXTERN, double)                                                \
    PARAMETER_ENTRY_READER_VARIABLE(EXTERN, unsigned int)                                          \
    PARAMETER_ENTRY_READER_VARIABLE(EXTERN, int)                                                   \
    PARAMETER_ENTRY_READER_VARIABLE(EXTERN, float)

#define PARAMETER_ENTRY_READER_UTILS_ARRAY(EXTERN, T)                                              \
    EXTERN template bool ParameterUtils::ReadArray<T>(                                             \
        T*, ParameterDefinitionElement*, unsigned char const*, unsigned int, unsigned int&,        \
        unsigned int, unsigned int, IParameterLoggingAPI*);
#define PARAMETER_ENTRY_READER_ARRAY(EXTERN, T)                                                    \
    EXTERN template void ParameterFileSymbolTableEntry::ReadArray<T>(                              \
        T*, ParameterDefinitionElement*, unsigned int, unsigned int);
#define PARAMETER_ENTRY_READER_FIXED(EXTERN, T)                                                    \
    EXTERN template void ParameterFileSymbolTableEntry::ReadSimpleTypeFixedArray<T>(               \
        T*, unsigned int, ParameterLoadParameters&);
#define PARAMETER_ENTRY_READER_OPTIONAL(EXTERN, T)                                                 \
    EXTERN template void ParameterFileSymbolTableEntry::ReadOptionalSimpleType<T>(                 \
        T&, unsigned int&, unsigned int&, ParameterLoadParameters&);
#define PARAMETER_ENTRY_READER_VARIABLE(EXTERN, T)                                                 \
    EXTERN template void ParameterFileSymbolTableEntry::ReadSimpleTypeArray<T>(                    \
        T*&, unsigned int&, unsigned int&, unsigned int, ParameterLoadParameters&, int, bool);

#ifndef PARAMETER_ENTRY_READER_DEFINE_INSTANCES
PARAMETER_ENTRY_READER_INSTANCES(extern)
#endif
