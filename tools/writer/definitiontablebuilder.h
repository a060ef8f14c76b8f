// SPDX-License-Identifier: Apache-2.0
// DefinitionTableBuilder: lays out the schema section of a tuning file from descriptions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace TuningWriter {

/// Element codes of the file's schema (the reader's ParameterDefinitionType values).
enum class ElementType : uint8_t
{
    Structure = 5,
    Int8 = 8,
    UInt8 = 9,
    Int16 = 10,
    UInt16 = 11,
    Int32 = 12,
    UInt32 = 13,
    Int64 = 14,
    UInt64 = 15,
    Float = 16,
    Double = 17,
    ByteLike = 18,
    ShortLike = 19,
    UIntLike = 20,
    LongLike = 21,
    IntLike = 22,
    UIntLike2 = 23,
    String = 24,
};

/// The name of a type code ("Int8" ... "Double", "ByteLike", "ShortLike", "UIntLike",
/// "LongLike", "IntLike", "UIntLike2", "String"); null for Structure and codes without a name.
char const* ElementTypeName(ElementType type);

/// The type code of such a name; false for any other text.
[[nodiscard]] bool ElementTypeOfName(std::string const& name, ElementType& type);

/// Element flag bit 0: each element takes four bytes in the file whatever its type.
constexpr uint16_t ElementFourByte = 0x1;

/// How a member stands in the data: one value, a fixed-length array (minimum = maximum, at least
/// 2) or a counted field (optional or variable: a count and the identifier of a data block).
enum class ElementForm : uint8_t
{
    Single,
    Fixed,
    Counted,
};

/// True for the text codes (24 and above).
bool IsText(ElementType type);

/// Bytes of one number of this type in the file (4 for codes without a width of their own).
unsigned int NumberWidth(ElementType type);

/// One member of a structure record.
struct DefinitionElement
{
    std::string name;
    ElementType type = ElementType::UInt32;
    uint32_t id = 0; ///< the structure's ID for a Structure element
    uint32_t minCount = 1;
    uint32_t maxCount = 1;
    uint16_t flags = 0;
    std::string skipped; ///< the trailing text the reader steps over
    /// Stored name length in place of name.size() + 1 (damage: 0 underflows the reader's hash).
    std::optional<uint32_t> nameLengthOverride;
};

/// The form a reader derives from an element's minimum and maximum counts.
ElementForm FormOf(DefinitionElement const& element);

/// A structure record (kind 5) with its elements.
struct DefinitionStructure
{
    uint32_t id = 0;
    std::string name;
    std::optional<uint64_t> nameHash; ///< default: the name hash of name
    std::vector<DefinitionElement> elements;
};

/// A module record (kind 4).
struct DefinitionModule
{
    uint32_t structureId = 0;
    std::string name;
    std::optional<uint64_t> nameHash; ///< default: the name hash of name
    std::string skipped;
};

/// An opaque record of kind 0, 1 or 2; kind 2 carries two texts, the others one. Any other kind
/// is written in the shape of kind 0.
struct DefinitionOpaque
{
    uint8_t kind = 0;
    std::string text;
    std::string secondText;
};

/// An enumeration record (kind 6); the reader always skips it.
struct DefinitionEnum
{
    struct Value
    {
        uint32_t value = 0;
        bool flag = false;
        std::string name;
        std::string text;
    };
    uint32_t id = 0;
    std::string name;
    std::optional<uint64_t> nameHash;
    std::vector<Value> values;
};

/// A bare record kind byte with nothing behind it (damage: kinds 3 and 7 and above are refused).
struct DefinitionRawKind
{
    uint8_t kind = 3;
};

/// Collects records in order and lays them out at a file's alignment. Names are stored with their
/// NUL, which their length counts; skipped and second texts are stored as they are. The raw bytes
/// of opaque records are written as zeros.
class DefinitionTableBuilder
{
public:
    DefinitionTableBuilder& AddModule(DefinitionModule module);
    DefinitionTableBuilder& AddStructure(DefinitionStructure structure);
    DefinitionTableBuilder& AddOpaque(DefinitionOpaque opaque);
    DefinitionTableBuilder& AddEnum(DefinitionEnum enumeration);
    DefinitionTableBuilder& AddRawKind(DefinitionRawKind raw);

    /// The section's bytes at the given alignment (1 or 8).
    std::vector<uint8_t> Build(unsigned char alignment) const;

    bool Empty() const { return m_records.empty(); }

private:
    using Record = std::variant<DefinitionModule, DefinitionStructure, DefinitionOpaque,
                                DefinitionEnum, DefinitionRawKind>;
    std::vector<Record> m_records;
};

} // namespace TuningWriter
