// SPDX-License-Identifier: Apache-2.0
// ValueCodec: module data as value trees, read by the structure records and written back.
#include "tools/paramctl/document/valuecodec.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterutilsread.h"
#include "tools/paramctl/printable.h"
#include "tools/writer/bytesink.h"

namespace ParamCtl {

using TuningWriter::AtLeast;
using TuningWriter::DefinitionElement;
using TuningWriter::DefinitionStructure;
using TuningWriter::ElementForm;
using TuningWriter::ElementType;

namespace {

// A structure nested in itself has no finite layout; deeper trees are refused.
constexpr unsigned int MaxDepth = 32;
bool IsStructure(DefinitionElement const& element)
{
    return element.type == ElementType::Structure;
}

bool IsFloat(DefinitionElement const& element)
{
    return (element.flags & TuningWriter::ElementFourByte) != 0 ||
           element.type == ElementType::Float;
}

bool IsSigned(ElementType type)
{
    switch (type) {
    case ElementType::Int8:
    case ElementType::Int16:
    case ElementType::Int32:
    case ElementType::Int64:
    case ElementType::IntLike:
        return true;
    default:
        return false;
    }
}

// Codes that name a number the file can hold; others have no layout a reader agrees on.
bool IsNumber(ElementType type)
{
    auto const code = static_cast<uint8_t>(type);
    return code >= 8 && code <= 23;
}

unsigned int WidthOf(DefinitionElement const& element)
{
    return (element.flags & TuningWriter::ElementFourByte) != 0
               ? 4
               : TuningWriter::NumberWidth(element.type);
}

// Floats are written as the shortest decimal that reads back as the same float, so 0.1f shows
// as 0.1, not as the double nearest to it.
Json RealOf(double value, bool single)
{
    char text[64];
    std::to_chars_result const written =
        single ? std::to_chars(text, text + sizeof(text), static_cast<float>(value))
               : std::to_chars(text, text + sizeof(text), value);
    double shortest = value;
    std::from_chars(text, written.ptr, shortest);
    return shortest;
}

Json NumberOf(DefinitionElement const& element, uint64_t bits)
{
    unsigned int const width = WidthOf(element);
    if (IsFloat(element) && width == 4) {
        auto const raw = static_cast<uint32_t>(bits);
        float value;
        std::memcpy(&value, &raw, sizeof(value));
        if (!std::isfinite(value)) {
            char text[16];
            std::snprintf(text, sizeof(text), "0x%08x", raw);
            return text;
        }
        return RealOf(value, true);
    }
    if (element.type == ElementType::Double) {
        double value;
        std::memcpy(&value, &bits, sizeof(value));
        if (!std::isfinite(value))
            return Hex64(bits);
        return RealOf(value, false);
    }
    if (IsSigned(element.type)) {
        unsigned int const shift = 64 - 8 * width;
        return static_cast<int64_t>(bits << shift) >> shift;
    }
    return bits;
}

class Decoder
{
public:
    Decoder(TuningWriter::FileVersion version, StructureSet const& structures,
            EntryLookup const& lookup, std::vector<uint32_t>& referenced, size_t& budget)
        : m_version(version), m_alignment(TuningWriter::AlignmentFor(version)),
          m_structures(structures), m_lookup(lookup), m_referenced(referenced), m_budget(budget)
    {
    }

    bool Structure(uint32_t id, ParameterByteReader& reader, unsigned int depth, Json& out)
    {
        DefinitionStructure const* structure = m_structures.Find(id);
        if (structure == nullptr || depth > MaxDepth || !Spend(1))
            return false;
        uint32_t limit = 0;
        if (AtLeast(m_version, 6) && !reader.ReadU32(limit))
            return false;
        out = Json::object();
        std::vector<std::string> const& keys = m_structures.Keys(id);
        for (size_t i = 0; i < structure->elements.size(); ++i) {
            if (!Element(structure->elements[i], reader, depth, out[keys[i]]))
                return false;
        }
        return true;
    }

private:
    bool Spend(size_t count)
    {
        if (count > m_budget)
            return false;
        m_budget -= count;
        return true;
    }

    bool Element(DefinitionElement const& element, ParameterByteReader& reader, unsigned int depth,
                 Json& out)
    {
        if (!IsStructure(element) && !IsNumber(element.type) && !TuningWriter::IsText(element.type))
            return false;
        ElementForm const form = TuningWriter::FormOf(element);
        if (form == ElementForm::Counted) {
            uint32_t count = 0;
            uint32_t id = 0;
            if (!reader.ReadU32(count) || !reader.ReadU32(id))
                return false;
            out = Json::object();
            out["entry"] = id;
            return Block(element, count, id, depth, out["values"]);
        }
        if (form == ElementForm::Single) {
            if (TuningWriter::IsText(element.type))
                return Text(reader, out);
            if (IsStructure(element))
                return Structure(element.id, reader, depth + 1, out);
            uint64_t bits = 0;
            if (!ParameterReadDetail::ReadWidth(reader, WidthOf(element), bits))
                return false;
            out = NumberOf(element, bits);
            return Spend(1);
        }
        if (AtLeast(m_version, 7)) {
            uint32_t stored = 0;
            if (!reader.ReadU32(stored) || stored != element.maxCount)
                return false;
        }
        return Items(element, element.maxCount, reader, depth, out);
    }

    // count elements standing one behind the other: numbers packed as one block, texts as
    // (length, identifier) pairs, structures inline.
    bool Items(DefinitionElement const& element, uint32_t count, ParameterByteReader& reader,
               unsigned int depth, Json& out)
    {
        out = Json::array();
        if (!Spend(count))
            return false;
        if (TuningWriter::IsText(element.type) || IsStructure(element)) {
            for (uint32_t i = 0; i < count; ++i) {
                Json item;
                bool const read = TuningWriter::IsText(element.type)
                                      ? Text(reader, item)
                                      : Structure(element.id, reader, depth + 1, item);
                if (!read)
                    return false;
                out.push_back(std::move(item));
            }
            return true;
        }
        unsigned int const width = WidthOf(element);
        // The count comes from the file: check it against what is there before taking it.
        if (count > reader.Remaining() / width)
            return false;
        unsigned char const* packed = reader.Peek(count * width);
        if (packed == nullptr && count != 0)
            return false;
        for (uint32_t i = 0; i < count; ++i) {
            uint64_t bits = 0;
            for (unsigned int b = 0; b < width; ++b)
                bits |= static_cast<uint64_t>(packed[i * width + b]) << (8 * b);
            out.push_back(NumberOf(element, bits));
        }
        return reader.Skip(count * width);
    }

    bool Text(ParameterByteReader& reader, Json& out)
    {
        uint32_t length = 0;
        uint32_t id = 0;
        if (!reader.ReadU32(length) || !reader.ReadU32(id) || !Spend(1))
            return false;
        EntryBytes block;
        if (!Entry(id, block) || length > block.size)
            return false;
        out = Json::object();
        out["entry"] = id;
        out["text"] = Printable(std::string(reinterpret_cast<char const*>(block.data), length));
        return true;
    }

    bool Entry(uint32_t id, EntryBytes& block)
    {
        if (id == 0) {
            block = {};
            return true;
        }
        if (!m_lookup(id, block))
            return false;
        m_referenced.push_back(id);
        return true;
    }

    bool Block(DefinitionElement const& element, uint32_t count, uint32_t id, unsigned int depth,
               Json& out)
    {
        EntryBytes block;
        if (!Entry(id, block) || (id == 0 && count != 0))
            return false;
        ParameterByteReader reader(block.data, block.size, m_alignment, nullptr);
        return Items(element, count, reader, depth, out);
    }

    TuningWriter::FileVersion m_version;
    unsigned char m_alignment;
    StructureSet const& m_structures;
    EntryLookup const& m_lookup;
    std::vector<uint32_t>& m_referenced;
    size_t& m_budget;
};

class Encoder
{
public:
    Encoder(TuningWriter::FileVersion version, StructureSet const& structures,
            BlockStore const& blocks, std::string& error)
        : m_version(version), m_alignment(TuningWriter::AlignmentFor(version)),
          m_structures(structures), m_blocks(blocks), m_error(error)
    {
    }

    bool Structure(uint32_t id, Json const& value, TuningWriter::ByteSink& sink,
                   std::string const& path, unsigned int depth)
    {
        DefinitionStructure const* structure = m_structures.Find(id);
        if (structure == nullptr || depth > MaxDepth)
            return Fail(path, "has no structure record " + std::to_string(id));
        if (!value.is_object())
            return Fail(path, "must be an object of members");
        bool const hasLength = AtLeast(m_version, 6);
        size_t const lengthAt = sink.Size();
        if (hasLength)
            sink.PutU32(0);
        size_t const start = sink.Size();
        std::vector<std::string> const& keys = m_structures.Keys(id);
        for (auto const& item : value.items()) {
            bool known = false;
            for (std::string const& key : keys)
                known = known || key == item.key();
            if (!known)
                return Fail(path + "." + item.key(),
                            "is no member of " + Printable(structure->name));
        }
        for (size_t i = 0; i < structure->elements.size(); ++i) {
            std::string const memberPath = path + "." + keys[i];
            auto const found = value.find(keys[i]);
            if (found == value.end())
                return Fail(memberPath, "is missing");
            if (!Element(structure->elements[i], *found, sink, memberPath, depth))
                return false;
        }
        // The length word counts the bytes behind itself.
        if (hasLength)
            sink.PatchU32(lengthAt, static_cast<uint32_t>(sink.Size() - start));
        return true;
    }

private:
    bool Fail(std::string const& path, std::string const& message)
    {
        m_error = path + " " + message;
        return false;
    }

    bool Element(DefinitionElement const& element, Json const& value, TuningWriter::ByteSink& sink,
                 std::string const& path, unsigned int depth)
    {
        ElementForm const form = TuningWriter::FormOf(element);
        if (form == ElementForm::Counted)
            return Counted(element, value, sink, path, depth);
        if (form == ElementForm::Single) {
            if (TuningWriter::IsText(element.type))
                return Text(value, sink, path);
            if (IsStructure(element))
                return Structure(element.id, value, sink, path, depth + 1);
            return Numbers(element, Json::array({value}), sink, path);
        }
        if (!value.is_array() || value.size() != element.maxCount)
            return Fail(path, "must be an array of " + std::to_string(element.maxCount) +
                                  " elements (a fixed-length array)");
        if (AtLeast(m_version, 7))
            sink.PutU32(element.maxCount);
        return Items(element, value, sink, path, depth);
    }

    bool Items(DefinitionElement const& element, Json const& items, TuningWriter::ByteSink& sink,
               std::string const& path, unsigned int depth)
    {
        if (!TuningWriter::IsText(element.type) && !IsStructure(element))
            return Numbers(element, items, sink, path);
        for (size_t i = 0; i < items.size(); ++i) {
            std::string const itemPath = path + "[" + std::to_string(i) + "]";
            bool const written = TuningWriter::IsText(element.type)
                                     ? Text(items[i], sink, itemPath)
                                     : Structure(element.id, items[i], sink, itemPath, depth + 1);
            if (!written)
                return false;
        }
        return true;
    }

    // A counted member: {"entry": id, "values": [...]}, or a bare array for a new entry.
    bool Counted(DefinitionElement const& element, Json const& value, TuningWriter::ByteSink& sink,
                 std::string const& path, unsigned int depth)
    {
        Json const* items = &value;
        uint64_t id = 0;
        bool const named = value.is_object();
        if (named) {
            auto const values = value.find("values");
            auto const entry = value.find("entry");
            if (values == value.end() || entry == value.end() || !UnsignedOf(*entry, id) ||
                id > 0xFFFFFFFFu)
                return Fail(path, "must be {\"entry\": N, \"values\": [...]} or an array");
            items = &*values;
        }
        if (!items->is_array())
            return Fail(path, "values must be an array");
        TuningWriter::ByteSink block(m_alignment);
        if (!Items(element, *items, block, path, depth))
            return false;
        if (named && id == 0 && !items->empty())
            return Fail(path, "has values but entry 0 (no data)");
        uint32_t const written = Place(named, static_cast<uint32_t>(id), block, path);
        if (written == 0 && !(named && id == 0))
            return false;
        sink.PutU32(static_cast<uint32_t>(items->size()));
        sink.PutU32(written);
        return true;
    }

    // A text: {"entry": id, "text": "..."}, or a bare string for a new entry. The entry holds the
    // characters and a NUL; the length counts the characters.
    bool Text(Json const& value, TuningWriter::ByteSink& sink, std::string const& path)
    {
        Json const* text = &value;
        uint64_t id = 0;
        bool const named = value.is_object();
        if (named) {
            auto const found = value.find("text");
            auto const entry = value.find("entry");
            if (found == value.end() || entry == value.end() || !UnsignedOf(*entry, id) ||
                id > 0xFFFFFFFFu)
                return Fail(path, "must be {\"entry\": N, \"text\": \"...\"} or a string");
            text = &*found;
        }
        std::string bytes;
        if (!text->is_string() || !FromPrintable(text->get_ref<std::string const&>(), bytes))
            return Fail(path, "must be a text (bytes that are no text as \\xNN)");
        TuningWriter::ByteSink block(m_alignment);
        block.PutUnaligned(bytes.data(), bytes.size());
        uint8_t const nul = 0;
        block.PutUnaligned(&nul, 1);
        uint32_t const written = Place(named, static_cast<uint32_t>(id), block, path);
        if (written == 0 && !(named && id == 0))
            return false;
        sink.PutU32(static_cast<uint32_t>(bytes.size()));
        sink.PutU32(written);
        return true;
    }

    uint32_t Place(bool named, uint32_t id, TuningWriter::ByteSink& block, std::string const& path)
    {
        if (!named)
            return m_blocks.add(block.Take());
        if (id == 0)
            return 0;
        std::string reason;
        uint32_t const written = m_blocks.store(id, block.Take(), reason);
        if (written == 0)
            Fail(path, reason);
        return written;
    }

    bool Numbers(DefinitionElement const& element, Json const& values, TuningWriter::ByteSink& sink,
                 std::string const& path)
    {
        if (!IsNumber(element.type))
            return Fail(path, "has a type code with no number layout");
        unsigned int const width = WidthOf(element);
        std::vector<uint8_t> packed;
        packed.reserve(values.size() * width);
        for (size_t i = 0; i < values.size(); ++i) {
            uint64_t bits = 0;
            std::string const itemPath =
                values.size() == 1 ? path : path + "[" + std::to_string(i) + "]";
            if (!Bits(element, values[i], bits, itemPath))
                return false;
            for (unsigned int b = 0; b < width; ++b)
                packed.push_back(static_cast<uint8_t>(bits >> (8 * b)));
        }
        // A single number steps like a field; an array is one block padded once.
        if (values.size() == 1 && !packed.empty() &&
            TuningWriter::FormOf(element) == ElementForm::Single) {
            uint64_t bits = 0;
            for (unsigned int b = 0; b < width; ++b)
                bits |= static_cast<uint64_t>(packed[b]) << (8 * b);
            sink.PutNumber(bits, width);
            return true;
        }
        sink.PutBytes(packed);
        return true;
    }

    bool Bits(DefinitionElement const& element, Json const& value, uint64_t& bits,
              std::string const& path)
    {
        unsigned int const width = WidthOf(element);
        bool const real = IsFloat(element) || element.type == ElementType::Double;
        if (real && value.is_string()) {
            // Non-finite values travel as their bits.
            if (!UnsignedOf(value, bits) || (width == 4 && bits > 0xFFFFFFFFu))
                return Fail(path, "must be a number, or the bits of a non-finite one as 0x...");
            return true;
        }
        if (!value.is_number())
            return Fail(path, "must be a number");
        if (real) {
            double const number = value.get<double>();
            if (width == 4) {
                auto const single = static_cast<float>(number);
                if (std::isfinite(number) && !std::isfinite(single))
                    return Fail(path, "is out of the range of a float");
                uint32_t raw = 0;
                std::memcpy(&raw, &single, sizeof(raw));
                bits = raw;
            } else {
                std::memcpy(&bits, &number, sizeof(bits));
            }
            return true;
        }
        if (value.is_number_float())
            return Fail(path, "must be an integer");
        unsigned int const shift = 64 - 8 * width;
        if (IsSigned(element.type)) {
            if (value.is_number_unsigned() &&
                value.get<uint64_t>() > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
                return Fail(path, "is out of range");
            int64_t const number = value.get<int64_t>();
            int64_t const highest = width < 8 ? (int64_t{1} << (8 * width - 1)) - 1
                                              : std::numeric_limits<int64_t>::max();
            if (number > highest || number < -highest - 1)
                return Fail(path,
                            "is out of range for " + std::to_string(8 * width) + "-bit signed");
            bits = static_cast<uint64_t>(number) & (~0ull >> shift);
            return true;
        }
        if (!value.is_number_unsigned() && value.get<int64_t>() < 0)
            return Fail(path, "must not be negative");
        bits = value.get<uint64_t>();
        if (width < 8 && (bits >> (8 * width)) != 0)
            return Fail(path, "is out of range for " + std::to_string(8 * width) + "-bit unsigned");
        return true;
    }

    TuningWriter::FileVersion m_version;
    unsigned char m_alignment;
    StructureSet const& m_structures;
    BlockStore const& m_blocks;
    std::string& m_error;
};

} // namespace

StructureSet::StructureSet(std::vector<DefinitionStructure> structures)
    : m_structures(std::move(structures))
{
    for (size_t i = 0; i < m_structures.size(); ++i) {
        // The first record of an ID is the one a reader keeps.
        if (!m_index.emplace(m_structures[i].id, i).second)
            continue;
        std::vector<std::string>& keys = m_keys[m_structures[i].id];
        for (size_t e = 0; e < m_structures[i].elements.size(); ++e) {
            std::string key = Printable(m_structures[i].elements[e].name);
            bool taken = key.empty() || key[0] == '#';
            for (std::string const& earlier : keys)
                taken = taken || earlier == key;
            keys.push_back(taken ? "#" + std::to_string(e) : key);
        }
    }
}

DefinitionStructure const* StructureSet::Find(uint32_t id) const
{
    auto const found = m_index.find(id);
    return found != m_index.end() ? &m_structures[found->second] : nullptr;
}

std::vector<std::string> const& StructureSet::Keys(uint32_t id) const
{
    static std::vector<std::string> const none;
    auto const found = m_keys.find(id);
    return found != m_keys.end() ? found->second : none;
}

ValueCodec::ValueCodec(TuningWriter::FileVersion version, StructureSet const& structures)
    : m_version(version), m_structures(structures)
{
}

bool ValueCodec::Decode(uint32_t structureId, EntryBytes data, EntryLookup const& lookup,
                        size_t& budget, Json& values, std::vector<uint32_t>& referenced) const
{
    referenced.clear();
    unsigned char const alignment = TuningWriter::AlignmentFor(m_version);
    ParameterByteReader reader(data.data, data.size, alignment, nullptr);
    Decoder decoder(m_version, m_structures, lookup, referenced, budget);
    if (!decoder.Structure(structureId, reader, 0, values))
        return false;

    // The tree stands for the bytes only if it writes them back exactly: the entry and every
    // block it points at.
    std::map<uint32_t, std::vector<uint8_t>> blocks;
    BlockStore const store{[&blocks](uint32_t id, std::vector<uint8_t> bytes, std::string&) {
                               blocks[id] = std::move(bytes);
                               return id;
                           },
                           [](std::vector<uint8_t>) { return 0u; }};
    std::vector<uint8_t> bytes;
    std::string error;
    if (!Encode(structureId, values, store, bytes, error) || bytes.size() != data.size ||
        (data.size != 0 && std::memcmp(bytes.data(), data.data, data.size) != 0))
        return false;
    for (auto const& [id, block] : blocks) {
        EntryBytes original;
        if (!lookup(id, original) || original.size != block.size() ||
            (original.size != 0 && std::memcmp(original.data, block.data(), block.size()) != 0))
            return false;
    }
    return true;
}

bool ValueCodec::Encode(uint32_t structureId, Json const& values, BlockStore const& blocks,
                        std::vector<uint8_t>& bytes, std::string& error) const
{
    TuningWriter::ByteSink sink(TuningWriter::AlignmentFor(m_version));
    Encoder encoder(m_version, m_structures, blocks, error);
    if (!encoder.Structure(structureId, values, sink, "values", 0))
        return false;
    bytes = sink.Take();
    return true;
}

} // namespace ParamCtl
