// SPDX-License-Identifier: Apache-2.0
// EntryEncoder: lays out the data of a module entry from a schema description and a value tree.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/tuningfilewriter.h"

namespace TuningWriter {

class ByteSink;
class SymbolTableBuilder;

/// A value to write: a number, a text, a list (the elements of an array, or zero or one item of
/// an optional field) or a structure (field values by name). Whatever a value leaves out is
/// written as zeros, an empty text or a count of 0. The options let a test write what a sound
/// writer would not.
struct EntryValue
{
    enum class Kind : uint8_t
    {
        Number,
        Text,
        List,
        Structure,
    };
    /// Numbers keep the form they were given in, so that 64-bit integers survive exactly.
    enum class NumberForm : uint8_t
    {
        Signed,
        Unsigned,
        Real,
    };

    Kind kind = Kind::Number;
    NumberForm form = NumberForm::Signed;
    int64_t signedValue = 0;
    uint64_t unsignedValue = 0;
    double realValue = 0.0;
    std::string text;
    std::vector<EntryValue> items;       ///< list elements, or a structure's field values
    std::vector<std::string> fieldNames; ///< a structure's field names, parallel to items

    std::optional<uint32_t> countOverride;     ///< count written in place of the real one
    std::optional<uint32_t> idOverride;        ///< data identifier written instead (no block)
    std::optional<uint32_t> loadLimitOverride; ///< a structure's stored length word
    std::string blockName;   ///< names the data block written for this value (see BlockId)
    std::string duplicateOf; ///< a named earlier block whose duplicate group this block joins

    static EntryValue Int(int64_t value);
    static EntryValue UInt(uint64_t value);
    static EntryValue Real(double value);
    static EntryValue Text(std::string value);
    static EntryValue List(std::vector<EntryValue> values);
    /// A structure from (name, value) pairs.
    static EntryValue Struct(std::vector<std::pair<std::string, EntryValue>> fields);

    /// The value of a structure's field; null if it is not given.
    EntryValue const* Find(std::string const& name) const;
    /// Sets (or adds) a structure's field and returns this value for chaining.
    EntryValue& Set(std::string const& name, EntryValue value);
};

/// Lays out structures the way a reader of the given file version steps through them:
///
/// | Part                      | Form                                                          |
/// |---------------------------|---------------------------------------------------------------|
/// | structure                 | from 6.0.0 a u32 length of what follows it; then its fields   |
/// | single number             | the value at its width (four-byte float if ElementFourByte)   |
/// | fixed array (min = max>1) | from 7.0.0 a u32 count; then the elements packed, or inline   |
/// |                           | structures, or a length and data identifier per text          |
/// | counted or optional field | u32 count, u32 identifier of a data block holding the values  |
/// | text                      | u32 length, u32 identifier of a data block holding the chars  |
///
/// Counted and optional texts point at a block of (length, identifier) pairs. Data blocks go to
/// the symbol table builder as data entries. The layout follows the description handed in, which
/// is the file's schema and need not match any reader's.
class EntryEncoder
{
public:
    /// structures: every structure the layout may reach (the file's definition records).
    EntryEncoder(FileVersion version, std::vector<DefinitionStructure> structures,
                 SymbolTableBuilder& symbols);

    /// The bytes of one instance of structure structureId holding value (a Structure value; null
    /// or another kind writes zeros). Unknown structure IDs write nothing.
    std::vector<uint8_t> Encode(uint32_t structureId, EntryValue const* value);

    /// The identifier of the data block written for a value with this blockName; 0 if none.
    uint32_t BlockId(std::string const& name) const;

private:
    DefinitionStructure const* FindStructure(uint32_t id) const;
    void PutStructure(ByteSink& sink, DefinitionStructure const& structure, EntryValue const* value,
                      unsigned int depth);
    void PutElement(ByteSink& sink, DefinitionElement const& element, EntryValue const* value,
                    unsigned int depth);
    /// count numbers packed as one block at the element's width.
    void PutNumbers(ByteSink& sink, DefinitionElement const& element,
                    std::vector<EntryValue const*> const& values);
    /// A text's length and the identifier of a block with its characters.
    void PutTextReference(ByteSink& sink, EntryValue const* value);
    /// The elements of an out-of-line field, laid out in a data block of their own.
    std::vector<uint8_t> BlockOf(DefinitionElement const& element,
                                 std::vector<EntryValue const*> const& values, unsigned int depth);
    /// Adds a data block for value (honouring its naming and duplicate options).
    uint32_t AddBlock(std::vector<uint8_t> bytes, EntryValue const* value);

    FileVersion m_version;
    unsigned char m_alignment;
    std::vector<DefinitionStructure> m_structures;
    SymbolTableBuilder& m_symbols;
    std::map<std::string, uint32_t> m_blocks;
};

} // namespace TuningWriter
