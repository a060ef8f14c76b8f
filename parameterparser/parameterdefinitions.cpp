// SPDX-License-Identifier: Apache-2.0
// The schema a tuning file was written with: record readers, layout computation, verification.
#include "parameterparser/parameterdefinitions.h"

#include <new>
#include <unordered_set>
#include <vector>

#include "platform/vornalloc.h"

#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/parsercrc.h"

namespace {

// A counted name: the text, or "" when it is not there, so that a record read short still has a
// printable name. Null only when memory runs out.
char* ReadName(ParameterByteReader& reader, uint32_t length)
{
    char* name = reader.ReadCountedString(length);
    if (name == nullptr)
        name = static_cast<char*>(VornCalloc(1, VornTagAllocData));
    return name;
}

bool IsFixedArray(uint16_t flags)
{
    return (flags & ElementFixedCount) != 0 && (flags & ElementVariableCount) == 0;
}

// Bytes one element adds to its structure's layout, in 64 bits: counts and sizes come from the
// file, and their products must not wrap round to a small size.
uint64_t LayoutSize(ParameterDefinitionElementInfo const& info)
{
    uint32_t const type = info.Type;
    uint64_t const count = info.Count;
    // Text and anything counted live out of line: the structure holds a count and an entry ID
    // for each, or for a fixed array of text one pair per element.
    if (type > TypeUIntLike2 && IsFixedArray(info.Flags))
        return count * 8;
    if ((info.Flags & ElementVariableCount) != 0 || type > TypeUIntLike2)
        return 8;
    if ((info.Flags & ElementFourByte) != 0)
        return count * 4;
    if (type == TypeStructure && info.Structure != nullptr)
        return static_cast<uint64_t>(info.Structure->Size) * count;
    return TypeCodeWidth(type) * count;
}

// A structure too large for 32-bit positions stays at the largest: every member behind that
// point then lies beyond any entry, and the reader takes it for not there.
uint32_t Saturated(uint64_t size)
{
    return size > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(size);
}

} // namespace

ParameterDefinitionElementInfo::ParameterDefinitionElementInfo(ParameterDefinitionType type,
                                                               uint32_t id, uint16_t flags,
                                                               uint32_t minimum, uint32_t maximum)
    : Type(type), ID(id), Flags(flags), Count(maximum), Offset(0), Structure(nullptr)
{
    if (minimum >= 2 && maximum == minimum)
        Flags |= ElementFixedCount;
    else if ((minimum == 0 && maximum != 0) || (minimum >= 1 && maximum >= 2))
        Flags |= ElementVariableCount;
}

ParameterDefinitionElementInfo::ParameterDefinitionElementInfo(
    ParameterDefinitionStructure* structure)
    : Type(static_cast<ParameterDefinitionType>(0)), ID(0), Flags(0), Count(1), Offset(0),
      Structure(structure)
{
}

ParameterDefinitionElement::ParameterDefinitionElement(ParameterByteReader& reader)
    : NameHash(0), Verified(0), Info(nullptr), FromFile(true)
{
    uint8_t type = 0;
    uint32_t id = 0;
    uint32_t nameLength = 0;
    uint16_t flags = 0;
    uint32_t minimum = 0;
    uint32_t maximum = 0;
    uint32_t skipLength = 0;

    (void)reader.ReadU8(type);
    (void)reader.ReadU32(id);
    (void)reader.ReadU32(nameLength);
    // Only the hash of the name is kept. The stored length counts the NUL; a length of 0 would
    // make the hashed length wrap, so it hashes as the empty name.
    unsigned char const* name = reader.Peek(nameLength);
    if (name != nullptr)
        NameHash = ParserCRC64::GetCRC(name, nameLength > 0 ? nameLength - 1 : 0, true, 0);
    (void)reader.Skip(nameLength);
    (void)reader.ReadU16(flags);
    (void)reader.ReadU32(minimum);
    (void)reader.ReadU32(maximum);
    (void)reader.ReadU32(skipLength);
    (void)reader.Skip(skipLength);

    Info = new (std::nothrow) ParameterDefinitionElementInfo(
        static_cast<ParameterDefinitionType>(type), id, flags, minimum, maximum);
}

ParameterDefinitionElement::ParameterDefinitionElement(unsigned long nameHash,
                                                       ParameterDefinitionElementInfo* info)
    : NameHash(nameHash), Verified(0), Info(info), FromFile(false)
{
}

ParameterDefinitionElement::~ParameterDefinitionElement()
{
    delete Info;
}

unsigned long ParameterDefinitionElement::GetSize() const
{
    if (Info == nullptr)
        return 0;
    uint32_t const type = Info->Type;
    if (type == TypeStructure)
        return Info->Structure != nullptr ? Info->Structure->Size : 0;
    if (type >= TypeString && type <= TypeStringLast)
        return 1;
    return TypeCodeWidth(type);
}

bool ParameterDefinitionElement::IsStructVerified(PList<unsigned int>& visited) const
{
    if (Verified == 0)
        return false;
    if (Info == nullptr || Info->Structure == nullptr)
        return true;
    return Info->Structure->IsVerified(visited);
}

ParameterDefinitionStructure::ParameterDefinitionStructure(ParameterByteReader& reader,
                                                           IParameterLoggingAPI* log)
    : ID(0), Name(nullptr), NameHash(0), Size(0),
      FileOrder(new (std::nothrow) PList<ParameterDefinitionElement*>())
{
    uint32_t nameLength = 0;
    uint32_t childCount = 0;
    (void)reader.ReadU32(ID);
    (void)reader.ReadU32(nameLength);
    Name = ReadName(reader, nameLength);
    (void)reader.ReadU64(NameHash);
    (void)reader.ReadU32(childCount);

    // The count comes from the file: stop at the first short read rather than build thousands of
    // empty elements.
    for (uint32_t i = 0; i < childCount && !reader.Failed(); ++i) {
        auto* element = new (std::nothrow) ParameterDefinitionElement(reader);
        if (element == nullptr)
            break;
        bool inFileOrder = false;
        if (FileOrder != nullptr) {
            unsigned int const before = FileOrder->Count();
            FileOrder->Add(element);
            inFileOrder = FileOrder->Count() > before;
        }
        if (!Children.emplace(element->NameHash, element).second) {
            // The second element of a name still takes room in the layout, so it stays in
            // FileOrder (which then owns it) but can never be found by name.
            ParameterLogging::Write(log, ParameterLogging::LogError,
                                    "Duplicated hash found in Children (%llu) object %s\n",
                                    static_cast<unsigned long long>(element->NameHash),
                                    Name != nullptr ? Name : "");
            if (!inFileOrder)
                delete element;
        }
    }
}

ParameterDefinitionStructure::~ParameterDefinitionStructure()
{
    ReleaseFileOrder();
    for (auto& child : Children)
        delete child.second;
    VornFree(Name, VornTagRelease);
}

void ParameterDefinitionStructure::ReleaseFileOrder()
{
    if (FileOrder == nullptr)
        return;
    // Elements that lost their name to an earlier one live in FileOrder alone.
    for (unsigned int i = 0; i < FileOrder->Count(); ++i) {
        ParameterDefinitionElement* element = (*FileOrder)[i];
        if (FindChild(element->NameHash) != element)
            delete element;
    }
    delete FileOrder;
    FileOrder = nullptr;
}

ParameterDefinitionElement* ParameterDefinitionStructure::FindChild(unsigned long nameHash) const
{
    auto const found = Children.find(nameHash);
    return found != Children.end() ? found->second : nullptr;
}

void ParameterDefinitionStructure::FreeChild(unsigned long nameHash,
                                             ParameterDefinitionElement* element)
{
    if (nameHash == 0 || element == nullptr)
        return;
    auto const found = Children.find(nameHash);
    if (found != Children.end() && found->second == element)
        Children.erase(found);
    if (FileOrder != nullptr) {
        int const index = FileOrder->Find(element);
        if (index >= 0)
            FileOrder->Remove(static_cast<unsigned int>(index));
    }
    delete element;
}

bool ParameterDefinitionStructure::IsVerified(PList<unsigned int>& visited) const
{
    // A depth-first walk on a stack of its own: a damaged file can chain structures deeper than
    // any thread's stack would take by recursion.
    struct Frame
    {
        ParameterDefinitionStructure const* structure;
        std::unordered_map<unsigned long, ParameterDefinitionElement*>::const_iterator next;
    };
    std::vector<Frame> stack;
    // The caller's list may be long: membership is kept in a set beside it.
    std::unordered_set<unsigned int> seen;
    for (unsigned int i = 0; i < visited.Count(); ++i)
        seen.insert(visited[i]);
    visited.Add(ID);
    seen.insert(ID);
    stack.push_back({this, Children.begin()});
    while (!stack.empty()) {
        Frame& frame = stack.back();
        if (frame.next == frame.structure->Children.end()) {
            stack.pop_back();
            continue;
        }
        ParameterDefinitionElement const* element = (frame.next++)->second;
        if (element->Info == nullptr || seen.count(element->Info->ID) != 0)
            continue;
        if (element->Verified == 0)
            return false;
        ParameterDefinitionStructure const* inner = element->Info->Structure;
        if (inner == nullptr)
            continue;
        visited.Add(inner->ID);
        seen.insert(inner->ID);
        stack.push_back({inner, inner->Children.begin()});
    }
    return true;
}

bool ParameterDefinitionStructure::BeginLayout(uint32_t start)
{
    if (m_layoutBegun) {
        ReleaseFileOrder();
        return false;
    }
    if (FileOrder == nullptr)
        return false;
    // Marked before the children are walked: this ends the walk of a structure nested in itself.
    m_layoutBegun = true;
    // A structure without members still stands in the file with its length word.
    Size = start;
    if (FileOrder->Count() == 0) {
        ReleaseFileOrder();
        return false;
    }
    return true;
}

void ParameterDefinitionStructure::PopulateOffsetSizeStructure(StructureMap* structures,
                                                               IParameterLoggingAPI* log,
                                                               ParameterFileLayout const& layout)
{
    if (structures == nullptr) {
        ReleaseFileOrder();
        return;
    }
    // What a file of this version writes besides the members: a structure's length word from
    // 6.0.0 on, a fixed-length array's count from 7.0.0 on. Positions computed with a word the
    // file does not hold would drift by it at every such place.
    uint32_t const start = layout.structureLengthWord ? 4 : 0;
    bool const countsAhead = layout.fixedArrayCounts;
    // Nested structures are laid out before the element that holds them is sized. The walk keeps
    // its own stack: a damaged file can nest deeper than a thread's stack would take.
    struct Frame
    {
        ParameterDefinitionStructure* structure;
        unsigned int index;
        bool nestedDone; ///< the nested structure of the element at index is laid out
    };
    std::vector<Frame> stack;
    if (BeginLayout(start))
        stack.push_back({this, 0, false});
    while (!stack.empty()) {
        Frame& frame = stack.back();
        ParameterDefinitionStructure* structure = frame.structure;
        if (frame.index >= structure->FileOrder->Count()) {
            structure->ReleaseFileOrder();
            stack.pop_back();
            continue;
        }
        ParameterDefinitionElementInfo* info = (*structure->FileOrder)[frame.index]->Info;
        if (info == nullptr) {
            ++frame.index;
            continue;
        }
        if (!frame.nestedDone) {
            frame.nestedDone = true;
            info->Offset = structure->Size;
            if (info->Type == TypeStructure) {
                auto const found = structures->find(info->ID);
                if (found == structures->end()) {
                    ParameterLogging::Write(
                        log, ParameterLogging::LogError,
                        "PopulateOffsetSizeStructure structure not found: ID: %u, NameHash: "
                        "%lld\n",
                        info->ID,
                        static_cast<long long>((*structure->FileOrder)[frame.index]->NameHash));
                    info->Structure = nullptr;
                } else {
                    info->Structure = found->second;
                    // The frame reference goes stale with the push: nothing uses it after.
                    if (!info->Structure->m_layoutBegun && info->Structure->BeginLayout(start)) {
                        stack.push_back({info->Structure, 0, false});
                        continue;
                    }
                }
            }
        }
        uint64_t size = static_cast<uint64_t>(structure->Size) + LayoutSize(*info);
        if (countsAhead && IsFixedArray(info->Flags))
            size += 4;
        structure->Size = Saturated(size);
        ++frame.index;
        frame.nestedDone = false;
    }
}

ParameterDefinitionModule::ParameterDefinitionModule(ParameterByteReader& reader)
    : StructureID(0), NameHash(0), Name(nullptr)
{
    uint32_t nameLength = 0;
    uint32_t skipLength = 0;
    (void)reader.ReadU32(StructureID);
    (void)reader.ReadU64(NameHash);
    (void)reader.ReadU32(nameLength);
    Name = ReadName(reader, nameLength);
    (void)reader.ReadU32(skipLength);
    (void)reader.Skip(skipLength);
}

ParameterDefinitionModule::~ParameterDefinitionModule()
{
    VornFree(Name, VornTagRelease);
}

ParameterDefinitionEnumValue::ParameterDefinitionEnumValue(ParameterByteReader& reader)
    : Value(0), Flag(false), Name(nullptr), Text(nullptr)
{
    uint8_t flag = 0;
    uint32_t nameLength = 0;
    uint32_t textLength = 0;
    (void)reader.ReadU32(Value);
    (void)reader.ReadU8(flag);
    Flag = flag != 0;
    (void)reader.ReadU32(nameLength);
    Name = ReadName(reader, nameLength);
    (void)reader.ReadU32(textLength);
    Text = ReadName(reader, textLength);
}

ParameterDefinitionEnumValue::~ParameterDefinitionEnumValue()
{
    VornFree(Name, VornTagRelease);
    VornFree(Text, VornTagRelease);
}

ParameterDefinitionEnum::ParameterDefinitionEnum(ParameterByteReader& reader)
    : ID(0), Name(nullptr), NameHash(0)
{
    uint32_t nameLength = 0;
    uint32_t valueCount = 0;
    (void)reader.ReadU32(ID);
    (void)reader.ReadU32(nameLength);
    Name = ReadName(reader, nameLength);
    (void)reader.ReadU64(NameHash);
    (void)reader.ReadU32(valueCount);
    for (uint32_t i = 0; i < valueCount && !reader.Failed(); ++i) {
        auto* value = new (std::nothrow) ParameterDefinitionEnumValue(reader);
        if (value == nullptr)
            break;
        Values.Add(value);
        // PList drops an element it cannot store; the value is then ours to free.
        if (Values.Count() == 0 || Values[Values.Count() - 1] != value)
            delete value;
    }
}

ParameterDefinitionEnum::~ParameterDefinitionEnum()
{
    for (unsigned int i = 0; i < Values.Count(); ++i)
        delete Values[i];
    VornFree(Name, VornTagRelease);
}
