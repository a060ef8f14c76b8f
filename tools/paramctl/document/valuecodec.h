// SPDX-License-Identifier: Apache-2.0
// ValueCodec: the data of a module instance as a JSON value tree and back, by structure records.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tools/paramctl/document/documentjson.h"
#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/tuningfilewriter.h"

namespace ParamCtl {

/// The structure records of one file (its own, or compiled ones), found by ID, with the JSON key
/// of each member: its name, or "#<index>" where the name is empty or taken by an earlier member.
class StructureSet
{
public:
    StructureSet() = default;
    explicit StructureSet(std::vector<TuningWriter::DefinitionStructure> structures);

    /// The record of id; null if none.
    TuningWriter::DefinitionStructure const* Find(uint32_t id) const;
    /// The member keys of the record of id, parallel to its elements.
    std::vector<std::string> const& Keys(uint32_t id) const;

private:
    std::vector<TuningWriter::DefinitionStructure> m_structures;
    std::map<uint32_t, size_t> m_index;
    std::map<uint32_t, std::vector<std::string>> m_keys;
};

/// The bytes of the entries that pointer fields name, by identifier.
struct EntryBytes
{
    unsigned char const* data = nullptr;
    uint32_t size = 0;
};
using EntryLookup = std::function<bool(uint32_t id, EntryBytes& bytes)>;

/// Where the blocks of pointer fields go while a value tree is encoded. Store gives the bytes to
/// the entry named in the tree and returns the identifier to write: that entry's, or a new
/// entry's when another value already gave the named one other bytes (an edit of one of two
/// values that shared an entry); 0 with error set for an entry the table does not have. Add
/// takes the bytes of a field given without an entry and returns the new entry's identifier.
struct BlockStore
{
    std::function<uint32_t(uint32_t id, std::vector<uint8_t> bytes, std::string& error)> store;
    std::function<uint32_t(std::vector<uint8_t> bytes)> add;
};

/// Reads module data into value trees:
///
/// | Member form                  | JSON                                                      |
/// |------------------------------|-----------------------------------------------------------|
/// | structure                    | object, members by key in file order                      |
/// | single number                | number; a non-finite float or double as "0x" + its bits   |
/// | fixed array                  | array of its elements                                     |
/// | text                         | {"entry": id, "text": "..."}                              |
/// | counted or optional member   | {"entry": id, "values": [...]}                            |
///
/// Decode succeeds only if encoding the tree gives back exactly the entry's bytes and those of
/// every entry it points at; anything else (a damaged or foreign layout) is left to the caller to
/// keep as raw bytes. Work is bounded by depth and by a budget of elements.
class ValueCodec
{
public:
    ValueCodec(TuningWriter::FileVersion version, StructureSet const& structures);

    /// The value tree of structureId over data; referenced gets the identifiers of the entries
    /// read through pointers. budget is the count of elements the reading may still produce,
    /// shared by all the reads of one file, as pointers may name one block any number of times;
    /// it is lowered by what this read produced. False when the bytes do not round-trip or the
    /// budget runs out.
    [[nodiscard]] bool Decode(uint32_t structureId, EntryBytes data, EntryLookup const& lookup,
                              size_t& budget, Json& values,
                              std::vector<uint32_t>& referenced) const;

    /// The bytes of structureId holding values; blocks of pointer fields go to blocks. False with
    /// error set (naming the member path) for a value that does not fit its member.
    [[nodiscard]] bool Encode(uint32_t structureId, Json const& values, BlockStore const& blocks,
                              std::vector<uint8_t>& bytes, std::string& error) const;

private:
    TuningWriter::FileVersion m_version;
    StructureSet const& m_structures;
};

} // namespace ParamCtl
