// SPDX-License-Identifier: Apache-2.0
// Value access by textual path inside a generated type, walked over its member descriptors.
#include "parameterparser/parametervaluepath.h"

#include <cstring>
#include <type_traits>

#include "platform/vornosutils.h"

#include "parameterparser/parametermemberaccess.h"
#include "parameterparser/parameterutils.h"
#include "parameterparser/parameterutilsread.h"

namespace ParameterTypeNames {
char const Boolean[] = "Boolean";
char const Enum[] = "Enum";
char const Int32[] = "Int32";
char const Int64[] = "Int64";
char const UInt8[] = "UInt8";
char const UInt16[] = "UInt16";
char const UInt32[] = "UInt32";
char const UInt64[] = "UInt64";
char const Float[] = "Float";
char const Double[] = "Double";
char const String[] = "String";
char const Structure[] = "Structure";
char const Module[] = "Module";
} // namespace ParameterTypeNames

namespace {

// The bytes one number of storage takes in a structure (and between the elements of an array).
unsigned int StorageSize(ParameterStorage storage)
{
    return VisitStorage(storage,
                        [](auto* type) { return static_cast<unsigned int>(sizeof(*type)); });
}

// A step's name holds 128 characters and its terminator; longer names are cut and so match
// nothing.
constexpr unsigned int StepNameLength = 129;
constexpr unsigned int NoIndex = 0xFFFFFFFF;
// Room for one number's text: the integer digits of the largest double and ten decimals.
constexpr unsigned int NumberTextLength = 400;

struct Step
{
    char name[StepNameLength];
    unsigned int index;
    char const* rest;
};

Step ReadStep(char const* path)
{
    Step step;
    step.index = NoIndex;
    char const* text = path != nullptr ? path : "";
    unsigned int const consumed =
        ParameterUtils::GetVariable(text, step.name, step.index, sizeof(step.name));
    step.rest = text + consumed;
    return step;
}

unsigned char* At(void* object, uint32_t offset)
{
    return static_cast<unsigned char*>(object) + offset;
}

unsigned int Word(void* object, uint32_t offset)
{
    unsigned int value = 0;
    std::memcpy(&value, At(object, offset), sizeof(value));
    return value;
}

void* PointerAt(void* object, uint32_t offset)
{
    void* pointer = nullptr;
    std::memcpy(&pointer, At(object, offset), sizeof(pointer));
    return pointer;
}

template <typename T> double Load(unsigned char const* place)
{
    T value;
    std::memcpy(&value, place, sizeof(value));
    return static_cast<double>(value);
}

template <typename T> void Store(unsigned char* place, double number)
{
    T value;
    if constexpr (std::is_floating_point_v<T>)
        value = static_cast<T>(number);
    else
        value = ParameterReadDetail::SaturateFromReal<T>(number);
    std::memcpy(place, &value, sizeof(value));
}

double NumberAt(unsigned char const* place, ParameterStorage storage)
{
    return VisitStorage(storage, [place](auto* type) {
        return Load<std::remove_pointer_t<decltype(type)>>(place);
    });
}

void StoreNumber(unsigned char* place, ParameterStorage storage, double number)
{
    VisitStorage(storage, [place, number](auto* type) {
        Store<std::remove_pointer_t<decltype(type)>>(place, number);
    });
}

/// Where a member's elements stand and how many there are now.
struct Elements
{
    unsigned char* first;
    unsigned int count;
};

Elements ElementsOf(void* object, ParameterMemberDescriptor const& member)
{
    switch (member.kind) {
    case ParameterMemberKind::CountedArray:
    case ParameterMemberKind::StructureArray:
    case ParameterMemberKind::StringArray: {
        auto* first = static_cast<unsigned char*>(PointerAt(object, member.offset));
        return {first, first != nullptr ? Word(object, member.countOffset) : 0};
    }
    case ParameterMemberKind::OptionalStructure:
        return {At(object, member.offset), Word(object, member.countOffset) != 0 ? 1u : 0u};
    default:
        return {At(object, member.offset), member.length};
    }
}

bool IsNumberArray(ParameterMemberKind kind)
{
    return kind == ParameterMemberKind::FixedArray || kind == ParameterMemberKind::CountedArray;
}

bool IsStringArray(ParameterMemberKind kind)
{
    return kind == ParameterMemberKind::StringFixedArray ||
           kind == ParameterMemberKind::StringArray;
}

bool IsStructureArray(ParameterMemberKind kind)
{
    return kind == ParameterMemberKind::StructureFixedArray ||
           kind == ParameterMemberKind::StructureArray ||
           kind == ParameterMemberKind::OptionalStructure;
}

char const* TextAt(unsigned char const* place)
{
    char const* text = nullptr;
    std::memcpy(&text, place, sizeof(text));
    return text != nullptr ? text : "";
}

ParameterMemberDescriptor const* FindMember(ParameterTypeDescriptor const& type, char const* name,
                                            bool includeArrays)
{
    for (uint32_t i = 0; i < type.memberCount; ++i) {
        ParameterMemberDescriptor const& member = type.members[i];
        if (member.hidden)
            continue;
        if (!includeArrays && (IsNumberArray(member.kind) || IsStringArray(member.kind)))
            continue;
        if (std::strcmp(name, member.name) == 0)
            return &member;
    }
    return nullptr;
}

void WriteNumber(double number, unsigned int precision, char* out, unsigned int outSize)
{
    bool ok = false;
    ParameterUtils::DoubleToString(number, out, outSize, precision, ok);
}

// Joins count elements with ","; each is appended behind what out already holds, so a cut list
// keeps its leading elements.
template <typename Text>
void JoinElements(unsigned int count, char* out, unsigned int outSize, Text textOf)
{
    if (outSize == 0)
        return;
    out[0] = '\0';
    char number[NumberTextLength];
    for (unsigned int i = 0; i < count; ++i) {
        if (i > 0)
            Vorn::OsUtils::StrLCat(out, ",", outSize);
        Vorn::OsUtils::StrLCat(out, textOf(i, number), outSize);
    }
}

bool StoreText(unsigned char* place, ParameterStorage storage, char const* text)
{
    bool ok = false;
    double const number = ParameterUtils::StringToDouble(text, ok);
    if (ok)
        StoreNumber(place, storage, number);
    return ok;
}

// A ","-separated list from position 0 on; elements that are no number keep their old value.
void StoreList(Elements const& elements, ParameterStorage storage, char const* text)
{
    unsigned int const size = StorageSize(storage);
    char const* rest = text;
    for (unsigned int i = 0; i < elements.count && *rest != '\0'; ++i) {
        char item[StepNameLength];
        ParameterUtils::GetSubString(rest, ',', item, sizeof(item));
        StoreText(elements.first + i * size, storage, item);
        // Move on by the item's full length, not the part that fitted the buffer.
        char const* comma = std::strchr(rest, ',');
        if (comma == nullptr)
            break;
        rest = comma + 1;
    }
}

ParameterParserInfo ListRecord(void* object, ParameterMemberDescriptor const& member)
{
    switch (member.kind) {
    case ParameterMemberKind::Scalar:
    case ParameterMemberKind::OptionalScalar:
        return ParameterParserInfo(member.name, member.typeName,
                                   NumberAt(At(object, member.offset), member.storage),
                                   member.precision);
    case ParameterMemberKind::String:
    case ParameterMemberKind::OptionalString:
        return ParameterParserInfo(member.name, ParameterTypeNames::String,
                                   TextAt(At(object, member.offset)));
    case ParameterMemberKind::Structure:
        return ParameterParserInfo(member.name, ParameterTypeNames::Structure);
    default:
        return ParameterParserInfo(member.name,
                                   IsStructureArray(member.kind) ? ParameterTypeNames::Structure
                                                                 : member.typeName,
                                   true, false, ElementsOf(object, member).count);
    }
}

} // namespace

bool ParameterValuePath::GetValue(void* object, ParameterTypeDescriptor const& type,
                                  char const* path, char* out, unsigned int outSize)
{
    // Not even the terminator fits: nothing is written.
    if (object == nullptr || out == nullptr || outSize == 0)
        return false;
    Step const step = ReadStep(path);
    ParameterMemberDescriptor const* member = FindMember(type, step.name, true);
    if (member == nullptr)
        return false;
    Elements const elements = ElementsOf(object, *member);
    switch (member->kind) {
    case ParameterMemberKind::Scalar:
    case ParameterMemberKind::OptionalScalar:
        // The index and any further step are ignored: a number has no parts.
        WriteNumber(NumberAt(elements.first, member->storage), member->precision, out, outSize);
        return true;
    case ParameterMemberKind::FixedArray:
    case ParameterMemberKind::CountedArray: {
        unsigned int const size = StorageSize(member->storage);
        if (step.index < elements.count) {
            WriteNumber(NumberAt(elements.first + step.index * size, member->storage),
                        member->precision, out, outSize);
        } else if (elements.count > 0) {
            JoinElements(elements.count, out, outSize, [&](unsigned int i, char* number) {
                WriteNumber(NumberAt(elements.first + i * size, member->storage), member->precision,
                            number, NumberTextLength);
                return number;
            });
        }
        return true;
    }
    case ParameterMemberKind::String:
    case ParameterMemberKind::OptionalString:
        Vorn::OsUtils::StrLCpy(out, TextAt(elements.first), outSize);
        return true;
    case ParameterMemberKind::StringFixedArray:
    case ParameterMemberKind::StringArray:
        if (step.index < elements.count) {
            Vorn::OsUtils::StrLCpy(out, TextAt(elements.first + step.index * sizeof(char*)),
                                   outSize);
        } else if (elements.count > 0) {
            JoinElements(elements.count, out, outSize, [&](unsigned int i, char*) {
                return TextAt(elements.first + i * sizeof(char*));
            });
        }
        return true;
    case ParameterMemberKind::Structure:
        return GetValue(elements.first, *member->type, step.rest, out, outSize);
    default:
        if (step.index >= elements.count)
            return false;
        return GetValue(elements.first + step.index * member->type->size, *member->type, step.rest,
                        out, outSize);
    }
}

bool ParameterValuePath::SetValue(void* object, ParameterTypeDescriptor const& type,
                                  char const* path, char const* value)
{
    if (object == nullptr || value == nullptr)
        return false;
    Step const step = ReadStep(path);
    ParameterMemberDescriptor const* member = FindMember(type, step.name, true);
    if (member == nullptr)
        return false;
    Elements const elements = ElementsOf(object, *member);
    switch (member->kind) {
    case ParameterMemberKind::Scalar:
    case ParameterMemberKind::OptionalScalar:
        return StoreText(elements.first, member->storage, value);
    case ParameterMemberKind::FixedArray:
    case ParameterMemberKind::CountedArray:
        if (step.index < elements.count)
            return StoreText(elements.first + step.index * StorageSize(member->storage),
                             member->storage, value);
        StoreList(elements, member->storage, value);
        return true;
    case ParameterMemberKind::Structure:
        return SetValue(elements.first, *member->type, step.rest, value);
    case ParameterMemberKind::StructureFixedArray:
    case ParameterMemberKind::StructureArray:
    case ParameterMemberKind::OptionalStructure:
        if (step.index >= elements.count)
            return false;
        return SetValue(elements.first + step.index * member->type->size, *member->type, step.rest,
                        value);
    default:
        // Strings are owned by their load (and may be shared with other modules): never set.
        return false;
    }
}

bool ParameterValuePath::GetInfo(void* object, ParameterTypeDescriptor const& type,
                                 char const* path, PList<ParameterParserInfo>& list)
{
    if (object == nullptr)
        return false;
    Step const step = ReadStep(path);
    if (step.name[0] == '\0') {
        for (uint32_t i = 0; i < type.memberCount; ++i) {
            if (!type.members[i].hidden)
                list.Add(ListRecord(object, type.members[i]));
        }
        return true;
    }
    ParameterMemberDescriptor const* member = FindMember(type, step.name, false);
    if (member == nullptr)
        return false;
    Elements const elements = ElementsOf(object, *member);
    switch (member->kind) {
    case ParameterMemberKind::Scalar:
    case ParameterMemberKind::OptionalScalar:
        // The caller knows the name it asked for.
        list.Add(ParameterParserInfo(nullptr, member->typeName,
                                     NumberAt(elements.first, member->storage), member->precision));
        return true;
    case ParameterMemberKind::String:
    case ParameterMemberKind::OptionalString:
        list.Add(ParameterParserInfo(nullptr, ParameterTypeNames::String, TextAt(elements.first)));
        return true;
    case ParameterMemberKind::Structure:
        return GetInfo(elements.first, *member->type, step.rest, list);
    default:
        if (step.index < elements.count)
            return GetInfo(elements.first + step.index * member->type->size, *member->type,
                           step.rest, list);
        list.Add(ParameterParserInfo(nullptr, ParameterTypeNames::Structure, true, false,
                                     elements.count));
        return true;
    }
}
