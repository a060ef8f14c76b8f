// SPDX-License-Identifier: Apache-2.0
// The string readers of ParameterFileSymbolTableEntry that generated code calls: single strings,
// fixed arrays of strings, counted arrays of strings and optional strings.
#include "platform/vornalloc.h"

#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterentryreader.h"
#include "parameterparser/parameterfilesymboltable.h"

namespace {

using ParameterEntryReader::ExactOptionalString;
using ParameterEntryReader::ExactString;
using ParameterEntryReader::ExactStringArray;
using ParameterEntryReader::ExactStringFixedArray;
using ParameterEntryReader::FieldForm;
using ParameterEntryReader::FieldRead;
using ParameterEntryReader::HasFlag;
using ParameterEntryReader::HasLiveStructure;

constexpr FieldForm StringPointerForm{8, true, false, true};

} // namespace

// ---- Strings ---------------------------------------------------------------------------------

void ParameterFileSymbolTableEntry::ReadString(char** value, unsigned int length, int loc,
                                               unsigned int limit)
{
    *value = nullptr;
    // The record comes back counted when it holds an object: this reader is one more holder.
    DupObjInfo* shared = GetDupObject(loc);
    void* object = shared != nullptr ? shared->Object : nullptr;
    if (object != nullptr) {
        *value = static_cast<char*>(object);
        // Past the characters, never past the entry: a damaged length must not wrap the cursor.
        uint64_t const step = GetAlignment() > 1 ? GetAlignment() : 1;
        uint64_t const end = Position + (length + step - 1) / step * step;
        Position = end < Size ? static_cast<uint32_t>(end) : Size;
    } else if (Data != nullptr) {
        ParameterByteReader characters = ParameterEntryReader::EntryBytes(*this, limit);
        // The characters the entry can give, not what a damaged length claims, are the work.
        unsigned int const available = characters.Remaining();
        if (!ParameterEntryReader::SpendElements(*this, length < available ? length : available))
            return; // told once a load
        *value = characters.ReadTextField(length);
        Position = characters.Position();
        if (*value != nullptr)
            SetDupObject(*value, loc);
    }
    if (*value == nullptr)
        LogMessage(false, "Failed to read string entry\n");
}

void ParameterFileSymbolTableEntry::ReadString(char*& value, int loc, unsigned int limit)
{
    uint32_t length = 0;
    ParameterEntryReader::ReadCount(*this, limit, length);
    ParameterFileSymbolTableEntry characters;
    if (ReadPointerEntry(characters))
        characters.ReadString(&value, length, loc, NoLoadLimit);
}

void ParameterFileSymbolTableEntry::ReadString(char*& value, ParameterLoadParameters& parameters,
                                               int loc)
{
    FieldRead field;
    FieldForm const form{1, true, false, false};
    if (!ParameterEntryReader::BeginField(*this, parameters, form, 1, &ExactString, field)) {
        bool const lacking = field.element == nullptr && HasLiveStructure(parameters.parentElement);
        if (!lacking || ParameterEntryReader::NoteDifference(parameters.parentElement))
            LogMessage(true,
                       "0x%llx: %s entry not found in the binary file, all values will be 0\n",
                       static_cast<unsigned long long>(parameters.nameHash), "ReadString");
        return;
    }
    field.target->ReadString(&value, field.count, loc, NoLoadLimit);
}

void ParameterFileSymbolTableEntry::ReadStringFixedArray(char** values, unsigned int count,
                                                         ParameterLoadParameters& parameters,
                                                         int loc)
{
    FieldRead field;
    FieldForm const form{8, false, true, false};
    if (!ParameterEntryReader::BeginField(*this, parameters, form, count, &ExactStringFixedArray,
                                          field)) {
        ParameterEntryReader::LogMissingField(*this, parameters, field, "ReadStringFixedArray",
                                              true);
        return;
    }
    for (unsigned int i = 0; i < count; ++i) {
        values[i] = nullptr;
        if (i < field.count)
            field.target->ReadString(values[i], loc, NoLoadLimit);
    }
    if (field.count != count)
        ParameterEntryReader::LogCountDifference(*this, parameters, count, field.count);
}

void ParameterFileSymbolTableEntry::ReadStringArray(char**& values, unsigned int& count,
                                                    unsigned int& id, unsigned int minimumCount,
                                                    ParameterLoadParameters& parameters, int loc)
{
    FieldRead field;
    if (!ParameterEntryReader::BeginField(*this, parameters, StringPointerForm, minimumCount,
                                          &ExactStringArray, field)) {
        ParameterEntryReader::LogMissingField(*this, parameters, field, "ReadStringArray", true);
        count = 0;
        return;
    }
    count = field.count;
    ParameterFileSymbolTableEntry& target = *field.target;
    id = target.ID;
    ParameterDefinitionElementInfo const* info =
        field.element != nullptr ? field.element->Info : nullptr;
    bool const shared = info == nullptr || HasFlag(*info, ElementVariableCount);
    if (shared) {
        if (void* object =
                target.TakeDupObject(loc, count, ParameterEntryReader::StringArrayIdentity)) {
            values = static_cast<char**>(object);
            return;
        }
    }
    if (count == 0)
        return;
    if (!ParameterEntryReader::SpendElements(target, count)) {
        count = 0;
        return;
    }
    auto** array = static_cast<char**>(
        VornCalloc(sizeof(char*) * static_cast<size_t>(count), VornTagAllocData));
    if (array == nullptr) {
        LogMessage(true, "Failed to allocate 0x%llx\n",
                   static_cast<unsigned long long>(parameters.nameHash));
        count = 0;
        return;
    }
    for (unsigned int i = 0; i < count; ++i)
        target.ReadString(array[i], loc, NoLoadLimit);
    values = array;
    if (shared)
        target.SetDupObject(array, loc, count, ParameterEntryReader::StringArrayIdentity);
}

void ParameterFileSymbolTableEntry::ReadOptionalString(char*& value, unsigned int& count,
                                                       unsigned int& id,
                                                       ParameterLoadParameters& parameters, int loc)
{
    FieldRead field;
    if (!ParameterEntryReader::BeginField(*this, parameters, StringPointerForm, 1,
                                          &ExactOptionalString, field)) {
        ParameterEntryReader::LogMissingField(*this, parameters, field, "ReadOptionalString", true);
        count = 0;
        return;
    }
    count = field.count;
    id = field.target->ID;
    if (count != 0)
        field.target->ReadString(value, loc, NoLoadLimit);
}
