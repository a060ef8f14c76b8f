// SPDX-License-Identifier: Apache-2.0
// The field readers of ParameterFileSymbolTableEntry that generated code calls: positions,
// counts and pointers, and structures. Strings are in parameterentryreaderstrings.cpp.
#include <cstdarg>
#include <cstdio>
#include <optional>

#include "platform/vornalloc.h"

#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterentryreader.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterlogging.h"

namespace {

using ParameterEntryReader::ExactOptionalStructure;
using ParameterEntryReader::ExactStructureArray;
using ParameterEntryReader::ExactStructureFixedArray;
using ParameterEntryReader::FieldForm;
using ParameterEntryReader::FieldRead;
using ParameterEntryReader::HasFlag;
using ParameterEntryReader::HasLiveStructure;
using ParameterEntryReader::IsText;

constexpr unsigned int LogLineLength = 4096;

bool IsFixedArray(ParameterDefinitionElementInfo const& info)
{
    return HasFlag(info, ElementFixedCount) && !HasFlag(info, ElementVariableCount);
}

constexpr FieldForm StructurePointerForm{8, true, false, true};

// The element kind of a shared array of structures: its type's array loader is unique per type.
uintptr_t ElementIdentity(ParameterFileSymbolTableEntry::LoadArrayFunction loadArray)
{
    return reinterpret_cast<uintptr_t>(loadArray);
}

// The pointed-to entries whose structures this thread is reading, innermost first: a load runs
// to its end on the thread that started it, so the chain from the module down lives here rather
// than in every field's parameters.
struct Ancestor
{
    uint32_t id;
    Ancestor const* parent;
    uint32_t depth;
};
thread_local Ancestor const* t_ancestors = nullptr;

// Enters entry id for the reads of its elements and leaves it again at the end of the scope.
class AncestorScope
{
public:
    explicit AncestorScope(uint32_t id)
        : m_self{id, t_ancestors, t_ancestors != nullptr ? t_ancestors->depth + 1 : 1}
    {
        t_ancestors = &m_self;
    }
    ~AncestorScope() { t_ancestors = m_self.parent; }
    AncestorScope(AncestorScope const&) = delete;
    AncestorScope& operator=(AncestorScope const&) = delete;

private:
    Ancestor m_self;
};

// Whether the structures of the pointed-to entry id may be read now: not when the entry is
// already being read further up (a pointer back into its own tree would recurse without end),
// nor below ParameterEntryReader::MaxPointerDepth entries.
bool MayDescendInto(ParameterFileSymbolTableEntry& entry, unsigned long nameHash, uint32_t id)
{
    if (t_ancestors != nullptr && t_ancestors->depth >= ParameterEntryReader::MaxPointerDepth) {
        entry.LogMessage(true,
                         "Error Reading 0x%llx: data entry %u nested deeper than %u entries, "
                         "left empty\n",
                         static_cast<unsigned long long>(nameHash), id,
                         ParameterEntryReader::MaxPointerDepth);
        return false;
    }
    for (Ancestor const* above = t_ancestors; above != nullptr; above = above->parent) {
        if (above->id == id) {
            entry.LogMessage(true,
                             "Error Reading 0x%llx: data entry %u points back into itself, left "
                             "empty\n",
                             static_cast<unsigned long long>(nameHash), id);
            return false;
        }
    }
    return true;
}

// The parameters with which the elements of a structure field are loaded from target.
ParameterLoadParameters ElementParameters(ParameterFileSymbolTableEntry& entry,
                                          ParameterLoadParameters const& parameters,
                                          FieldRead const& field, bool countAhead)
{
    ParameterLoadParameters local = parameters;
    local.entry = field.target;
    local.useParent = true;
    local.addElementOffset = field.target == &entry;
    local.parentElement = field.element;
    local.arrayIndex = 0;
    local.loadLimit = NoLoadLimit;
    if (field.target == &entry)
        local.basePosition =
            parameters.basePosition + (countAhead && entry.IsFixedCountVersion() ? 4u : 0u);
    else
        local.basePosition = field.target->Position;
    return local;
}

} // namespace

bool ParameterEntryReader::ReadCount(ParameterFileSymbolTableEntry& entry, unsigned int limit,
                                     uint32_t& value)
{
    ParameterByteReader reader = EntryBytes(entry, limit);
    bool const read = reader.ReadU32(value);
    entry.Position = reader.Position();
    if (read)
        return true;
    value = 0;
    entry.LogMessage(false, "Insufficient data to read variable from symbol table entry\n");
    return false;
}

// ---- Positions -------------------------------------------------------------------------------

void ParameterFileSymbolTableEntry::LogMessage(bool error, char const* format, ...)
{
    char line[LogLineLength];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    ParameterLogging::Write(ParameterEntryReader::EntryLogger(*this),
                            error ? ParameterLogging::LogError : ParameterLogging::LogWarning, "%s",
                            line);
}

bool ParameterFileSymbolTableEntry::IsFixedCountVersion()
{
    return Table != nullptr && Table->GetLayout().fixedArrayCounts;
}

ParameterDefinitionElement*
ParameterFileSymbolTableEntry::AdjustPositionAndGetElement(ParameterLoadParameters& parameters,
                                                           bool verify, bool& modified)
{
    modified = false;
    ParameterDefinitionElement* parent = parameters.parentElement;
    if (!HasLiveStructure(parent))
        return nullptr;

    ParameterDefinitionElement* element = parent;
    if (parameters.useParent) {
        if (parent->NameHash != parameters.nameHash)
            LogMessage(false,
                       "%s: Use Parent requested, but parent name hash (0x%llx) does not match "
                       "variable name hash (0x%llx)\n",
                       "AdjustPositionAndGetElement",
                       static_cast<unsigned long long>(parent->NameHash),
                       static_cast<unsigned long long>(parameters.nameHash));
    } else {
        element = parent->Info->Structure->FindChild(parameters.nameHash);
        if (element == nullptr)
            return nullptr;
    }
    if (element->Info == nullptr)
        return element;

    // 64-bit arithmetic: a damaged size or index must not wrap round to a place inside the entry.
    uint64_t expected =
        static_cast<uint64_t>(parameters.basePosition) +
        static_cast<uint64_t>(parent->Info->Structure->Size) * parameters.arrayIndex;
    if (parameters.addElementOffset)
        expected += element->Info->Offset;
    if (expected == Position) {
        if (verify)
            element->Verified = 1;
        return element;
    }

    modified = true;
    bool const loud = ParameterEntryReader::NoteDifference(parent);
    auto const shown = static_cast<unsigned int>(expected > UINT32_MAX ? UINT32_MAX : expected);
    if (loud)
        LogMessage(false,
                   "Binary file position (%u) differs from expected (%u), XSD structure modified\n",
                   shown, Position);
    // The field is read where the file's own layout puts it, forwards or backwards, so that a
    // member the compiled schema does not know, or another order, moves nothing else. That place
    // must lie within the structure and the entry; beyond them stand bytes of something else,
    // and the field is not there. The base stays the structure's start: the caller's later
    // fields and array elements are measured from it too.
    unsigned int const bound = parameters.loadLimit < Size ? parameters.loadLimit : Size;
    if (expected >= bound) {
        if (loud)
            LogMessage(true,
                       "Error Reading 0x%llx: Adjusted position (%u) exceeds load limit (%u)\n",
                       static_cast<unsigned long long>(parameters.nameHash), shown, bound);
        return nullptr;
    }
    Position = static_cast<uint32_t>(expected);
    return element;
}

void ParameterFileSymbolTableEntry::UpdatePosition(unsigned int position)
{
    if (position == NoLoadLimit || position == Position)
        return;
    LogMessage(false,
               "Binary file structure bytes (%u) does not match expected bytes (%u). XSD structure "
               "modified\n",
               position, Position);
    Position = position;
}

unsigned int ParameterFileSymbolTableEntry::ReadLoadDataLimit(unsigned int limit)
{
    if (Table == nullptr || !Table->GetLayout().structureLengthWord)
        return NoLoadLimit;
    uint32_t stored = 0;
    // Without its length word the structure is bounded by what bounds its parent.
    if (!ParameterEntryReader::ReadCount(*this, limit, stored))
        return limit;
    // 64-bit: a damaged length must not wrap round to a limit behind the cursor.
    uint64_t const result = static_cast<uint64_t>(stored) + Position;
    if (result > limit) {
        LogMessage(true, "Load limit (%u) exceeds available size (%u). XSD structure modified\n",
                   static_cast<unsigned int>(result > UINT32_MAX ? UINT32_MAX : result), limit);
        return limit;
    }
    return static_cast<unsigned int>(result);
}

// ---- Counts and pointers ---------------------------------------------------------------------

bool ParameterFileSymbolTableEntry::GetCountAndPointerEntry(
    unsigned int& count, ParameterFileSymbolTableEntry*& target,
    ParameterFileSymbolTableEntry& storage, unsigned long minimumSize, unsigned int minimumCount,
    unsigned long nameHash, bool isPointer, bool isFixedArray, bool isArray,
    ParameterDefinitionElement* element, bool& countChanged, unsigned int limit)
{
    enum class Form
    {
        Plain,
        Counted,
        Pointer,
    };
    target = this;
    ParameterDefinitionElementInfo const* info = element != nullptr ? element->Info : nullptr;
    bool const fixedCountVersion = IsFixedCountVersion();
    Form form = Form::Counted;
    if (info != nullptr) {
        if (HasFlag(*info, ElementVariableCount) ||
            (IsText(*info) && !IsFixedArray(*info) && !isFixedArray && !isArray)) {
            form = Form::Pointer;
        } else if (!fixedCountVersion || !HasFlag(*info, ElementFixedCount)) {
            // Inline without a count word: as many as the file's element holds, whatever the
            // compiled count, or the read would run into the members behind it.
            count = info->Count;
            countChanged = false;
            return true;
        }
    } else if (isPointer) {
        form = Form::Pointer;
    } else if (!fixedCountVersion || !isFixedArray || count <= 1) {
        form = Form::Plain;
    }

    if (form == Form::Plain)
        return true;

    uint32_t stored = 0;
    ParameterEntryReader::ReadCount(*this, limit, stored);
    count = stored;
    if (form == Form::Counted) {
        countChanged = info != nullptr && info->Count != count;
        // The values follow the count in this entry: a count the entry cannot hold is cut before
        // anything is allocated or read for it.
        unsigned int const end = ParameterEntryReader::ReadLength(*this, limit);
        unsigned long const size = info != nullptr ? element->GetSize() : minimumSize;
        if (FitCountToData(count, size, end > Position ? end - Position : 0, minimumCount,
                           nameHash))
            countChanged = true;
        return true;
    }

    target = &storage;
    if (!ReadPointerEntry(storage))
        return false;

    // The count comes from the file: before anything is allocated for it, it must fit in the
    // data that the entry really holds.
    unsigned long size = minimumSize;
    if (info != nullptr)
        size = element->GetSize();
    else if (Table == nullptr || !Table->GetLayout().structureLengthWord)
        size = minimumSize > 4 ? minimumSize - 4 : 0; // no load limit ahead of each structure
    if (FitCountToData(count, size, storage.Size, minimumCount, nameHash))
        countChanged = true;
    return true;
}

bool ParameterFileSymbolTableEntry::FitCountToData(unsigned int& count, unsigned long size,
                                                   unsigned int available,
                                                   unsigned int minimumCount,
                                                   unsigned long nameHash)
{
    // Every element takes at least a byte of the entry: where the schema gives no size (a
    // structure known by no definition, or one without members), a count still must not run
    // past the data, or a damaged count sizes an allocation of gigabytes.
    if (size == 0)
        size = 1;
    if (static_cast<unsigned long>(count) * size <= available)
        return false;
    unsigned long fitting = available / size;
    if (fitting < minimumCount)
        fitting = minimumCount;
    auto const newCount = static_cast<unsigned int>(fitting);
    LogMessage(true,
               "Minimun %ld size (%u) * count (%u) exceeds avaialable data (%u), setting "
               "count to %u to prevent allocation errors\n",
               static_cast<long>(nameHash), static_cast<unsigned int>(size), count, available,
               newCount);
    count = newCount;
    return true;
}

// ---- Allocating float read -------------------------------------------------------------------

float* ParameterFileSymbolTableEntry::ReadArray(ParameterDefinitionElement* element,
                                                unsigned int count, unsigned int limit)
{
    auto* values = static_cast<float*>(
        VornCalloc(sizeof(float) * static_cast<size_t>(count), VornTagAllocData));
    if (values == nullptr)
        return nullptr;
    if (ParameterEntryReader::ReadValues(*this, values, element, count, limit, false))
        return values;
    VornFree(values, VornTagRelease);
    LogMessage(false, "Insufficient data to read array from symbol table entry\n");
    return nullptr;
}

// ---- Structures ------------------------------------------------------------------------------

void ParameterFileSymbolTableEntry::ReadStructureFixedArray(LoadArrayFunction loadArray,
                                                            void* values, unsigned int count,
                                                            ParameterLoadParameters& parameters)
{
    FieldRead field;
    FieldForm const form{8, false, count >= 2, false};
    if (!ParameterEntryReader::BeginField(*this, parameters, form, count, &ExactStructureFixedArray,
                                          field)) {
        ParameterEntryReader::LogMissingField(*this, parameters, field, "ReadStructureFixedArray",
                                              false);
        return;
    }
    ParameterDefinitionElementInfo const* info =
        field.element != nullptr ? field.element->Info : nullptr;
    // Without an element's record the elements' structures are read from the cursor, so only a
    // recorded fixed count moves their base.
    bool const countAhead = info != nullptr && HasFlag(*info, ElementFixedCount);
    ParameterLoadParameters local = ElementParameters(*this, parameters, field, countAhead);
    // Elements the file does not hold stay as Load zeroed them: behind the file's last element
    // stand the bytes of other members.
    loadArray(local, values, field.count < count ? field.count : count);
    if (field.count != count)
        ParameterEntryReader::LogCountDifference(*this, parameters, count, field.count);
}

void* ParameterFileSymbolTableEntry::ReadStructureArray(
    LoadArrayFunction loadArray, AllocArrayFunction allocArray, unsigned int& count,
    unsigned int& id, unsigned int minimumCount, ParameterLoadParameters& parameters, int loc)
{
    FieldRead field;
    if (!ParameterEntryReader::BeginField(*this, parameters, StructurePointerForm, minimumCount,
                                          &ExactStructureArray, field)) {
        ParameterEntryReader::LogMissingField(*this, parameters, field, "ReadStructureArray",
                                              false);
        count = 0;
        return nullptr;
    }
    count = field.count;
    ParameterFileSymbolTableEntry& target = *field.target;
    id = target.ID;
    bool const pointed = &target != this;
    if (pointed && !MayDescendInto(*this, parameters.nameHash, target.ID)) {
        count = 0;
        return nullptr;
    }
    bool const shared = ParameterEntryReader::IsSharedField(field.element);
    if (shared) {
        if (void* object = target.TakeDupObject(loc, count, ElementIdentity(loadArray)))
            return object;
    }
    // A block loaded once more for one more holder is decode work like any other.
    if (count != 0 && !ParameterEntryReader::SpendElements(target, count)) {
        count = 0;
        return nullptr;
    }
    void* array = nullptr;
    if (count != 0) {
        array = allocArray(count);
        if (array == nullptr) {
            LogMessage(true, "Failed to allocate 0x%llx\n",
                       static_cast<unsigned long long>(parameters.nameHash));
            count = 0;
        }
    }
    ParameterDefinitionElementInfo const* info =
        field.element != nullptr ? field.element->Info : nullptr;
    bool const countAhead = info != nullptr && HasFlag(*info, ElementFixedCount);
    ParameterLoadParameters local = ElementParameters(*this, parameters, field, countAhead);
    {
        std::optional<AncestorScope> scope;
        if (pointed)
            scope.emplace(target.ID);
        loadArray(local, array, count);
    }
    if (array != nullptr && shared)
        target.SetDupObject(array, loc, count, ElementIdentity(loadArray));
    return array;
}

void ParameterFileSymbolTableEntry::ReadOptionalStructure(LoadArrayFunction loadArray, void* value,
                                                          unsigned int& count, unsigned int& id,
                                                          ParameterLoadParameters& parameters)
{
    FieldRead field;
    if (!ParameterEntryReader::BeginField(*this, parameters, StructurePointerForm, 1,
                                          &ExactOptionalStructure, field)) {
        ParameterEntryReader::LogMissingField(*this, parameters, field, "ReadOptionalStructure",
                                              false);
        count = 0;
        return;
    }
    count = field.count;
    id = field.target->ID;
    if (count == 0)
        return;
    // Inline in the entry, the structure is measured from the enclosing one like any field.
    ParameterLoadParameters local = ElementParameters(*this, parameters, field, false);
    loadArray(local, value, 1);
}
