// SPDX-License-Identifier: Apache-2.0
// The helpers that generated readers share: logging, the tolerance between the file's schema
// and the compiled-in one, and the begin and end of a field or structure. The field readers of
// ParameterFileSymbolTableEntry are in parameterentryreaderfields.cpp.
#define PARAMETER_ENTRY_READER_DEFINE_INSTANCES
#include "parameterparser/parameterentryreader.h"

#include <type_traits>

#include "platform/vornalloc.h"

#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterloadcontext.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/parametermemberaccess.h"
#include "parameterparser/parameterschemadifference.h"
#include "parameterparser/parameterutils.h"

PARAMETER_ENTRY_READER_INSTANCES()

namespace {

using ParameterEntryReader::FieldForm;
using ParameterEntryReader::FieldRead;
using ParameterEntryReader::HasFlag;
using ParameterEntryReader::HasLiveStructure;
using ParameterEntryReader::IsText;

} // namespace

// ---- Helpers shared with generated code ---------------------------------------------------

IParameterLoggingAPI* ParameterEntryReader::EntryLogger(ParameterFileSymbolTableEntry& entry)
{
    return entry.Table != nullptr ? entry.Table->Logger() : nullptr;
}

void ParameterEntryReader::LogNotFound(ParameterFileSymbolTableEntry& entry, char const* reader,
                                       unsigned long nameHash, bool error)
{
    entry.LogMessage(error, "%s: 0x%llx entry not found in the binary file, all values will be 0\n",
                     reader, static_cast<unsigned long long>(nameHash));
}

void ParameterEntryReader::LogMissingField(ParameterFileSymbolTableEntry& entry,
                                           ParameterLoadParameters const& parameters,
                                           FieldRead const& field, char const* reader, bool error)
{
    // Not found in a structure the file describes: the file's structure lacks the field. Any
    // other way of not finding it (an empty pointer, a damaged count) is told every time.
    bool const lacking = field.element == nullptr && HasLiveStructure(parameters.parentElement);
    if (lacking && !NoteDifference(parameters.parentElement))
        return;
    LogNotFound(entry, reader, parameters.nameHash, error);
}

void ParameterEntryReader::LogCountDifference(ParameterFileSymbolTableEntry& entry,
                                              ParameterLoadParameters const& parameters,
                                              unsigned int expected, unsigned int binary)
{
    if (!NoteDifference(parameters.parentElement))
        return;
    entry.LogMessage(false,
                     "0x%llx expected count (%u) != the binary count (%u), the binary XSD != the "
                     "source XSD\n",
                     static_cast<unsigned long long>(parameters.nameHash), expected, binary);
}

bool ParameterEntryReader::NoteDifference(ParameterDefinitionElement const* element)
{
    ParameterLoadContext* context = ParameterLoadContext::Current();
    if (context == nullptr || !HasLiveStructure(element))
        return true;
    return context->NoteDifference(element->Info->Structure);
}

bool ParameterEntryReader::SpendElements(ParameterFileSymbolTableEntry& entry, uint64_t count)
{
    ParameterLoadContext* context = ParameterLoadContext::Current();
    if (context == nullptr || context->Spend(count))
        return true;
    if (context->FirstRefusal())
        entry.LogMessage(true,
                         "Module load passes %llu decoded elements (%llu for each byte of its "
                         "file): data entry %u left empty\n",
                         static_cast<unsigned long long>(context->Allowance()),
                         static_cast<unsigned long long>(MaxDecodedElementsPerFileByte), entry.ID);
    return false;
}

bool ParameterEntryReader::HasExactForm(ParameterDefinitionElementInfo const& info,
                                        ParameterMemberDescriptor const& member)
{
    using ParameterEntryReader::ExactFixedArray;
    using ParameterEntryReader::ExactOptional;
    using ParameterEntryReader::ExactVariable;
    unsigned int const length = member.length;
    switch (member.kind) {
    case ParameterMemberKind::Scalar:
    case ParameterMemberKind::FixedArray:
        return VisitStorage(member.storage, [&](auto* type) {
            return ExactFixedArray<std::remove_pointer_t<decltype(type)>>(info, length);
        });
    case ParameterMemberKind::OptionalScalar:
        return VisitStorage(member.storage, [&](auto* type) {
            return ExactOptional<std::remove_pointer_t<decltype(type)>>(info, length);
        });
    case ParameterMemberKind::CountedArray:
        return VisitStorage(member.storage, [&](auto* type) {
            return ExactVariable<std::remove_pointer_t<decltype(type)>>(info, length);
        });
    case ParameterMemberKind::Structure:
    case ParameterMemberKind::StructureFixedArray:
        return ExactStructureFixedArray(info, length);
    case ParameterMemberKind::StructureArray:
        return ExactStructureArray(info, length);
    case ParameterMemberKind::OptionalStructure:
        return ExactOptionalStructure(info, length);
    case ParameterMemberKind::String:
    case ParameterMemberKind::StringFixedArray:
        return ExactStringFixedArray(info, length);
    case ParameterMemberKind::OptionalString:
        return ExactOptionalString(info, length);
    case ParameterMemberKind::StringArray:
        return ExactStringArray(info, length);
    }
    return false;
}

bool ParameterEntryReader::IsFieldMissing(ParameterDefinitionElement const* parent,
                                          ParameterDefinitionElement const* element)
{
    if (element != nullptr || parent == nullptr)
        return false;
    // A parent whose definitions are gone was proven before: the compiled-in schema holds. A
    // parent whose structure is still there was searched, and the file does not have the field.
    return parent->Verified == 0 || HasLiveStructure(parent);
}

bool ParameterEntryReader::BeginField(ParameterFileSymbolTableEntry& entry,
                                      ParameterLoadParameters& parameters, FieldForm const& form,
                                      unsigned int count, ExactForm exact, FieldRead& field)
{
    ParameterLoadParameters local = parameters;
    local.useParent = false;
    local.addElementOffset = true;
    local.arrayIndex = 0;
    field.element = entry.AdjustPositionAndGetElement(local, false, field.modified);
    field.count = count;
    field.target = &entry;
    field.countChanged = false;

    ParameterDefinitionElement* parent = parameters.parentElement;
    // Searched and not found: the field takes no bytes of the file, so nothing may be read.
    if (field.element == nullptr && HasLiveStructure(parent))
        return false;

    bool const found = entry.GetCountAndPointerEntry(
        field.count, field.target, field.storage, form.minimumSize, count, parameters.nameHash,
        form.isPointer, form.isFixedArray, form.isArray, field.element, field.countChanged,
        parameters.loadLimit);
    if (parent == nullptr)
        return found;
    if (field.element == nullptr)
        return found && parent->Verified != 0;

    ParameterDefinitionElementInfo const* info = field.element->Info;
    if (info != nullptr && field.element->Verified == 0 && !field.modified && !field.countChanged &&
        exact != nullptr) {
        if (exact(*info, count))
            field.element->Verified = 1;
        else
            (void)NoteDifference(parent); // read with a conversion: said in the summary only
    }
    return found;
}

bool ParameterEntryReader::BeginStructure(ParameterLoadParameters& parameters,
                                          ParameterLoadParameters& local)
{
    ParameterFileSymbolTableEntry& entry = *parameters.entry;
    local = parameters;
    local.useParent = false;
    local.addElementOffset = true;
    local.parentElement = nullptr;
    local.arrayIndex = 0;
    if (parameters.parentElement != nullptr) {
        bool adjusted = false;
        ParameterDefinitionElement* element =
            entry.AdjustPositionAndGetElement(parameters, true, adjusted);
        if (IsFieldMissing(parameters.parentElement, element)) {
            bool const lacking = HasLiveStructure(parameters.parentElement);
            if (!lacking || NoteDifference(parameters.parentElement))
                LogNotFound(entry, "Load", parameters.nameHash, true);
            return false;
        }
        local.parentElement = element;
    }
    local.basePosition = entry.Position;
    local.loadLimit = entry.ReadLoadDataLimit(parameters.loadLimit);
    return true;
}

void ParameterEntryReader::EndStructure(ParameterFileSymbolTableEntry& entry,
                                        ParameterLoadParameters const& local,
                                        ParameterTypeDescriptor const& type)
{
    if (local.loadLimit != NoLoadLimit && entry.Position != local.loadLimit) {
        if (NoteDifference(local.parentElement))
            entry.UpdatePosition(local.loadLimit);
        else
            entry.Position = local.loadLimit;
    }
    // A structure of the file that differs is told once a load, here at the end of its first
    // instance that showed it, with what differs; not once for every element of an array.
    ParameterLoadContext* context = ParameterLoadContext::Current();
    if (context == nullptr || !HasLiveStructure(local.parentElement))
        return;
    ParameterDefinitionStructure const* structure = local.parentElement->Info->Structure;
    if (!context->TakeSummary(structure))
        return;
    ParameterSchemaDifference const difference = CompareStructure(*structure, type);
    entry.LogMessage(false,
                     "Structure %s of the file differs from compiled %s: %u members stepped over, "
                     "%u missing, %u in another form\n",
                     structure->Name != nullptr ? structure->Name : "",
                     type.name != nullptr ? type.name : "", difference.steppedOver,
                     difference.missing, difference.changed);
}
