// SPDX-License-Identifier: Apache-2.0
// EntryEncoder: the data of module entries, laid out from the file's schema.
#include "tools/writer/entryencoder.h"

#include <cstring>

#include "tools/writer/bytesink.h"
#include "tools/writer/symboltablebuilder.h"

namespace TuningWriter {

namespace {

// A structure nested in itself has no finite layout; beyond this depth it is written as zeros.
constexpr unsigned int MaxDepth = 32;

int64_t AsSigned(EntryValue const& value)
{
    switch (value.form) {
    case EntryValue::NumberForm::Unsigned:
        return static_cast<int64_t>(value.unsignedValue);
    case EntryValue::NumberForm::Real:
        return static_cast<int64_t>(value.realValue);
    default:
        return value.signedValue;
    }
}

double AsReal(EntryValue const& value)
{
    switch (value.form) {
    case EntryValue::NumberForm::Unsigned:
        return static_cast<double>(value.unsignedValue);
    case EntryValue::NumberForm::Signed:
        return static_cast<double>(value.signedValue);
    default:
        return value.realValue;
    }
}

// The bits of one number as the element stores it, and their width.
uint64_t NumberBits(DefinitionElement const& element, EntryValue const* value, unsigned int& width)
{
    bool const fourByte = (element.flags & ElementFourByte) != 0;
    width = fourByte ? 4 : NumberWidth(element.type);
    if (value == nullptr || value->kind != EntryValue::Kind::Number)
        return 0;
    if (fourByte || element.type == ElementType::Float) {
        auto const single = static_cast<float>(AsReal(*value));
        uint32_t bits = 0;
        std::memcpy(&bits, &single, sizeof(bits));
        return bits;
    }
    if (element.type == ElementType::Double) {
        double const real = AsReal(*value);
        uint64_t bits = 0;
        std::memcpy(&bits, &real, sizeof(bits));
        return bits;
    }
    if (value->form == EntryValue::NumberForm::Unsigned)
        return value->unsignedValue;
    return static_cast<uint64_t>(AsSigned(*value));
}

// The values a field holds: a list's items, or a lone value as one item.
std::vector<EntryValue const*> ItemsOf(EntryValue const* value)
{
    std::vector<EntryValue const*> items;
    if (value == nullptr)
        return items;
    if (value->kind != EntryValue::Kind::List) {
        items.push_back(value);
        return items;
    }
    for (EntryValue const& item : value->items)
        items.push_back(&item);
    return items;
}

// Exactly count values: the given ones, then nulls (written as zeros).
std::vector<EntryValue const*> Padded(std::vector<EntryValue const*> items, size_t count)
{
    items.resize(count, nullptr);
    return items;
}

} // namespace

// ---- EntryValue ----------------------------------------------------------------------------

EntryValue EntryValue::Int(int64_t value)
{
    EntryValue result;
    result.form = NumberForm::Signed;
    result.signedValue = value;
    return result;
}

EntryValue EntryValue::UInt(uint64_t value)
{
    EntryValue result;
    result.form = NumberForm::Unsigned;
    result.unsignedValue = value;
    return result;
}

EntryValue EntryValue::Real(double value)
{
    EntryValue result;
    result.form = NumberForm::Real;
    result.realValue = value;
    return result;
}

EntryValue EntryValue::Text(std::string value)
{
    EntryValue result;
    result.kind = Kind::Text;
    result.text = std::move(value);
    return result;
}

EntryValue EntryValue::List(std::vector<EntryValue> values)
{
    EntryValue result;
    result.kind = Kind::List;
    result.items = std::move(values);
    return result;
}

EntryValue EntryValue::Struct(std::vector<std::pair<std::string, EntryValue>> fields)
{
    EntryValue result;
    result.kind = Kind::Structure;
    for (auto& field : fields) {
        result.fieldNames.push_back(field.first);
        result.items.push_back(std::move(field.second));
    }
    return result;
}

EntryValue const* EntryValue::Find(std::string const& name) const
{
    if (kind != Kind::Structure)
        return nullptr;
    for (size_t i = 0; i < fieldNames.size() && i < items.size(); ++i) {
        if (fieldNames[i] == name)
            return &items[i];
    }
    return nullptr;
}

EntryValue& EntryValue::Set(std::string const& name, EntryValue value)
{
    kind = Kind::Structure;
    for (size_t i = 0; i < fieldNames.size() && i < items.size(); ++i) {
        if (fieldNames[i] == name) {
            items[i] = std::move(value);
            return *this;
        }
    }
    fieldNames.push_back(name);
    items.push_back(std::move(value));
    return *this;
}

// ---- EntryEncoder --------------------------------------------------------------------------

EntryEncoder::EntryEncoder(FileVersion version, std::vector<DefinitionStructure> structures,
                           SymbolTableBuilder& symbols)
    : m_version(version), m_alignment(AlignmentFor(version)), m_structures(std::move(structures)),
      m_symbols(symbols)
{
}

std::vector<uint8_t> EntryEncoder::Encode(uint32_t structureId, EntryValue const* value)
{
    ByteSink sink(m_alignment);
    if (DefinitionStructure const* structure = FindStructure(structureId))
        PutStructure(sink, *structure, value, 0);
    return sink.Take();
}

uint32_t EntryEncoder::BlockId(std::string const& name) const
{
    auto const found = m_blocks.find(name);
    return found != m_blocks.end() ? found->second : 0;
}

DefinitionStructure const* EntryEncoder::FindStructure(uint32_t id) const
{
    for (DefinitionStructure const& structure : m_structures) {
        if (structure.id == id)
            return &structure;
    }
    return nullptr;
}

void EntryEncoder::PutStructure(ByteSink& sink, DefinitionStructure const& structure,
                                EntryValue const* value, unsigned int depth)
{
    if (depth > MaxDepth)
        return;
    if (value != nullptr && value->kind != EntryValue::Kind::Structure)
        value = nullptr;
    // The length word counts the bytes behind itself, so the reader's limit is its own cursor
    // plus the stored value.
    size_t lengthAt = 0;
    bool const hasLength = AtLeast(m_version, 6);
    if (hasLength) {
        lengthAt = sink.Size();
        sink.PutU32(0);
    }
    size_t const start = sink.Size();
    for (DefinitionElement const& element : structure.elements)
        PutElement(sink, element, value != nullptr ? value->Find(element.name) : nullptr, depth);
    if (hasLength) {
        auto length = static_cast<uint32_t>(sink.Size() - start);
        if (value != nullptr && value->loadLimitOverride)
            length = *value->loadLimitOverride;
        sink.PatchU32(lengthAt, length);
    }
}

void EntryEncoder::PutElement(ByteSink& sink, DefinitionElement const& element,
                              EntryValue const* value, unsigned int depth)
{
    ElementForm const form = FormOf(element);
    if (form == ElementForm::Counted) {
        std::vector<EntryValue const*> const items = ItemsOf(value);
        uint32_t count = static_cast<uint32_t>(items.size());
        if (value != nullptr && value->countOverride)
            count = *value->countOverride;
        uint32_t id = 0;
        if (value != nullptr && value->idOverride)
            id = *value->idOverride;
        else
            id = AddBlock(BlockOf(element, items, depth), value);
        sink.PutU32(count);
        sink.PutU32(id);
        return;
    }

    size_t const count = form == ElementForm::Fixed ? element.maxCount : 1;
    if (form == ElementForm::Fixed && AtLeast(m_version, 7)) {
        uint32_t stored = element.maxCount;
        if (value != nullptr && value->countOverride)
            stored = *value->countOverride;
        sink.PutU32(stored);
    }
    // A single field takes the value itself; a fixed array takes a list's items.
    std::vector<EntryValue const*> const items = Padded(
        form == ElementForm::Fixed ? ItemsOf(value) : std::vector<EntryValue const*>{value}, count);
    if (IsText(element.type)) {
        for (EntryValue const* item : items)
            PutTextReference(sink, item);
    } else if (element.type == ElementType::Structure) {
        DefinitionStructure const* structure = FindStructure(element.id);
        for (EntryValue const* item : items) {
            if (structure != nullptr)
                PutStructure(sink, *structure, item, depth + 1);
        }
    } else if (form == ElementForm::Single) {
        unsigned int width = 0;
        uint64_t const bits = NumberBits(element, value, width);
        sink.PutNumber(bits, width);
    } else {
        PutNumbers(sink, element, items);
    }
}

void EntryEncoder::PutNumbers(ByteSink& sink, DefinitionElement const& element,
                              std::vector<EntryValue const*> const& values)
{
    // Arrays are one block: packed at the element's width, padded once at the end.
    std::vector<uint8_t> block;
    for (EntryValue const* value : values) {
        unsigned int width = 0;
        uint64_t const bits = NumberBits(element, value, width);
        for (unsigned int i = 0; i < width; ++i)
            block.push_back(static_cast<uint8_t>(bits >> (8 * i)));
    }
    sink.PutBytes(block);
}

void EntryEncoder::PutTextReference(ByteSink& sink, EntryValue const* value)
{
    std::string const text =
        value != nullptr && value->kind == EntryValue::Kind::Text ? value->text : std::string();
    std::vector<uint8_t> characters(text.begin(), text.end());
    characters.push_back(0);
    uint32_t length = static_cast<uint32_t>(text.size());
    if (value != nullptr && value->countOverride)
        length = *value->countOverride;
    uint32_t id = 0;
    if (value != nullptr && value->idOverride)
        id = *value->idOverride;
    else
        id = AddBlock(std::move(characters), value);
    sink.PutU32(length);
    sink.PutU32(id);
}

std::vector<uint8_t> EntryEncoder::BlockOf(DefinitionElement const& element,
                                           std::vector<EntryValue const*> const& values,
                                           unsigned int depth)
{
    ByteSink block(m_alignment);
    if (IsText(element.type)) {
        for (EntryValue const* value : values)
            PutTextReference(block, value);
    } else if (element.type == ElementType::Structure) {
        if (DefinitionStructure const* structure = FindStructure(element.id)) {
            for (EntryValue const* value : values)
                PutStructure(block, *structure, value, depth + 1);
        }
    } else {
        PutNumbers(block, element, values);
    }
    return block.Take();
}

uint32_t EntryEncoder::AddBlock(std::vector<uint8_t> bytes, EntryValue const* value)
{
    uint32_t duplicateOf = 0;
    if (value != nullptr && !value->duplicateOf.empty())
        duplicateOf = BlockId(value->duplicateOf);
    uint32_t const id = m_symbols.AddData(std::move(bytes), duplicateOf);
    if (value != nullptr && !value->blockName.empty())
        m_blocks[value->blockName] = id;
    return id;
}

} // namespace TuningWriter
