// SPDX-License-Identifier: Apache-2.0
// The schema a tuning file was written with: modules, structures, elements and their layout.
#pragma once

#include <atomic>
#include <cstdint>
#include <unordered_map>

#include "parameterparser/parameterexport.h"
#include "parameterparser/parameterfilelayout.h"
#include "parameterparser/plist.h"

class IParameterLoggingAPI;
class ParameterByteReader;
class ParameterDefinitionStructure;

/// Type codes of the elements of a definition table. Codes 24 to 28 are all text.
enum ParameterDefinitionType : uint32_t
{
    TypeStructure = 5,
    TypeInt8 = 8,
    TypeUInt8 = 9,
    TypeInt16 = 10,
    TypeUInt16 = 11,
    TypeInt32 = 12,
    TypeUInt32 = 13,
    TypeInt64 = 14,
    TypeUInt64 = 15,
    TypeFloat = 16,
    TypeDouble = 17,
    TypeByteLike = 18,  ///< read like TypeUInt8
    TypeShortLike = 19, ///< read like TypeUInt16
    TypeUIntLike = 20,  ///< read like TypeUInt32
    TypeLongLike = 21,  ///< read like TypeUInt64
    TypeIntLike = 22,   ///< like TypeInt32 in arrays and int reads, like TypeUInt32 into floats
    TypeUIntLike2 = 23, ///< a second code read like TypeUInt32
    TypeString = 24,    ///< first of the text codes
    TypeStringLast = 28,
};

/// Bytes in the file of one number of code; 0 for a code that is no number.
inline unsigned int TypeCodeWidth(uint32_t code)
{
    switch (code) {
    case TypeInt8:
    case TypeUInt8:
    case TypeByteLike:
        return 1;
    case TypeInt16:
    case TypeUInt16:
    case TypeShortLike:
        return 2;
    case TypeInt32:
    case TypeUInt32:
    case TypeFloat:
    case TypeUIntLike:
    case TypeIntLike:
    case TypeUIntLike2:
        return 4;
    case TypeInt64:
    case TypeUInt64:
    case TypeDouble:
    case TypeLongLike:
        return 8;
    default:
        return 0;
    }
}

/// Element flags. ElementFourByte comes from the file; the two count bits are derived from the
/// element's minimum and maximum count when it is built.
constexpr uint16_t ElementFourByte = 0x1;      ///< each element takes four bytes, whatever its type
constexpr uint16_t ElementVariableCount = 0x2; ///< optional or counted: stored out of line
constexpr uint16_t ElementFixedCount = 0x80;   ///< an array of fixed length (2 or more)

/// The type of one element: what the file says about it, and where it lies in its structure.
struct PARAMETERPARSER_API ParameterDefinitionElementInfo
{
    /// Info of an element record. Count is maximum; the count flags are added to flags:
    /// ElementFixedCount for minimum >= 2 with maximum == minimum, ElementVariableCount for
    /// minimum 0 with a maximum, or for minimum >= 1 with maximum >= 2 otherwise.
    ParameterDefinitionElementInfo(ParameterDefinitionType type, uint32_t id, uint16_t flags,
                                   uint32_t minimum, uint32_t maximum);

    /// Info of an element that stands for a whole module: type 0, one instance of structure.
    explicit ParameterDefinitionElementInfo(ParameterDefinitionStructure* structure);

    ParameterDefinitionType Type;
    uint32_t ID; ///< the structure's ID for TypeStructure; otherwise unused
    uint16_t Flags;
    uint32_t Count;
    uint32_t Offset;                         ///< set by PopulateOffsetSizeStructure
    ParameterDefinitionStructure* Structure; ///< set by PopulateOffsetSizeStructure; not owned
};

/// One member of a structure, found by the hash of its name.
class PARAMETERPARSER_API ParameterDefinitionElement
{
public:
    /// Reads an element record at the reader's position (type, ID, name, flags, minimum and
    /// maximum count, skipped text). A short read leaves zeros for what was not read; the reader
    /// then stands failed and has logged.
    explicit ParameterDefinitionElement(ParameterByteReader& reader);

    /// An element made outside the file; takes ownership of info (may be null).
    ParameterDefinitionElement(unsigned long nameHash, ParameterDefinitionElementInfo* info);

    ~ParameterDefinitionElement();

    ParameterDefinitionElement(ParameterDefinitionElement const&) = delete;
    ParameterDefinitionElement& operator=(ParameterDefinitionElement const&) = delete;

    /// Width in the file of one element: the structure's Size for TypeStructure, the type's width
    /// for numbers, 1 for text. 0 with no Info, no structure, or a code outside 5 to 28 with no
    /// known width.
    unsigned long GetSize() const;

    /// True when this element was verified and so was everything below it. visited collects the
    /// structure IDs already walked, so that a structure nested in itself ends the walk.
    bool IsStructVerified(PList<unsigned int>& visited) const;

    unsigned long NameHash;
    /// 1 once the element has been read and matched. Loads of two modules that share a structure
    /// may set it at once; the only value ever stored is 1.
    std::atomic<uint16_t> Verified;
    ParameterDefinitionElementInfo* Info; ///< owned; null once cleared after verification
    bool FromFile;                        ///< built from an element record
};

/// A structure of the file's schema with its elements.
class PARAMETERPARSER_API ParameterDefinitionStructure
{
public:
    using StructureMap = std::unordered_map<unsigned int, ParameterDefinitionStructure*>;

    /// Reads a structure record behind its kind byte: ID, name, name hash, child count and the
    /// element records. A child whose hash is taken already logs "Duplicated hash found in
    /// Children (%llu) object %s\n" and is kept in FileOrder only. After a short read the reader
    /// stands failed and the structure holds what was read.
    ParameterDefinitionStructure(ParameterByteReader& reader, IParameterLoggingAPI* log);

    ~ParameterDefinitionStructure();

    ParameterDefinitionStructure(ParameterDefinitionStructure const&) = delete;
    ParameterDefinitionStructure& operator=(ParameterDefinitionStructure const&) = delete;

    /// The element for a name hash; null if none. Borrowed.
    ParameterDefinitionElement* FindChild(unsigned long nameHash) const;

    /// Destroys element and takes it out of Children. Nothing happens if either argument is 0.
    void FreeChild(unsigned long nameHash, ParameterDefinitionElement* element);

    /// True if every child with an Info is verified all the way down. Adds ID to visited; a child
    /// whose ID is in visited already is not walked again.
    bool IsVerified(PList<unsigned int>& visited) const;

    /// Computes Size and each element's Offset from FileOrder as a file of layout lays the
    /// structure out (a length word ahead of the members where the layout has one, also when
    /// there are none; a count ahead of each fixed-length array where the layout has those),
    /// resolving nested structures (depth first, each once), then releases FileOrder. Sizes past 32 bits stay at 0xFFFFFFFF. An
    /// unknown structure ID logs "PopulateOffsetSizeStructure structure not found: ID: %u,
    /// NameHash: %lld\n" at error level and adds nothing. With no map, or a layout done already,
    /// only FileOrder is released.
    void PopulateOffsetSizeStructure(StructureMap* structures, IParameterLoggingAPI* log,
                                     ParameterFileLayout const& layout);

    uint32_t ID;
    char* Name; ///< owned (VornCalloc); never null after construction unless memory ran out
    unsigned long NameHash;
    uint32_t Size; ///< size of one instance in the file; 0 until computed
    std::unordered_map<unsigned long, ParameterDefinitionElement*> Children; ///< owned
    /// The children in file order, duplicates included; exists until Size is computed.
    PList<ParameterDefinitionElement*>* FileOrder;

private:
    void ReleaseFileOrder();
    /// Starts the layout of this structure at start bytes: false (with FileOrder released where
    /// it is of no more use) when there is nothing to lay out or its layout has begun already.
    bool BeginLayout(uint32_t start);

    bool m_layoutBegun = false;
};

/// A module of the file's schema: its name and the ID of its top structure.
class PARAMETERPARSER_API ParameterDefinitionModule
{
public:
    /// Reads a module record behind its kind byte. After a short read the reader stands failed
    /// and the module holds what was read (an empty name if the name was not there).
    explicit ParameterDefinitionModule(ParameterByteReader& reader);
    ~ParameterDefinitionModule();

    ParameterDefinitionModule(ParameterDefinitionModule const&) = delete;
    ParameterDefinitionModule& operator=(ParameterDefinitionModule const&) = delete;

    uint32_t StructureID;
    unsigned long NameHash;
    char* Name; ///< owned (VornCalloc)
};

/// One value of an enumeration record.
class PARAMETERPARSER_API ParameterDefinitionEnumValue
{
public:
    /// Reads a value: u32 Value, u8 flag, the counted name and a second counted text. After a
    /// short read the reader stands failed and the texts are empty.
    explicit ParameterDefinitionEnumValue(ParameterByteReader& reader);
    ~ParameterDefinitionEnumValue();

    ParameterDefinitionEnumValue(ParameterDefinitionEnumValue const&) = delete;
    ParameterDefinitionEnumValue& operator=(ParameterDefinitionEnumValue const&) = delete;

    uint32_t Value;
    bool Flag;
    char* Name; ///< owned (VornCalloc)
    char* Text; ///< owned (VornCalloc)
};

/// An enumeration record. Table reads skip these records, so the class only ever reads one
/// on its own.
class PARAMETERPARSER_API ParameterDefinitionEnum
{
public:
    /// Reads an enumeration behind its kind byte: ID, name, name hash, value count and values.
    /// Reading stops at the first short read; the reader then stands failed.
    explicit ParameterDefinitionEnum(ParameterByteReader& reader);
    ~ParameterDefinitionEnum();

    ParameterDefinitionEnum(ParameterDefinitionEnum const&) = delete;
    ParameterDefinitionEnum& operator=(ParameterDefinitionEnum const&) = delete;

    uint32_t ID;
    char* Name; ///< owned (VornCalloc)
    unsigned long NameHash;
    PList<ParameterDefinitionEnumValue*> Values; ///< owned
};
