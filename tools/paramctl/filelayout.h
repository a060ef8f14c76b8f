// SPDX-License-Identifier: Apache-2.0
// FileLayout: where a module's numbers stand in the bytes of a tuning file, by the file's schema.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "parameterparser/parameterfilesymboltable.h"

class ParameterSetManager;
struct ParameterDefinitionElementInfo;
struct ParameterTypeDescriptor;

namespace ParamCtl {

/// One step of a value path: a member name and, for an array of structures, the element.
struct PathStep
{
    std::string name;
    unsigned int index = 0;
};

/// Splits "a.b[2].c" into steps; false for an empty step or a bad index.
[[nodiscard]] bool SplitValuePath(std::string const& path, std::vector<PathStep>& steps);

/// One number of the file: its offset in the file and the file's element it belongs to.
struct NumberPlace
{
    size_t offset = 0;
    ParameterDefinitionElementInfo const* info = nullptr;
};

/// The tables and the schema of a file of version 6.0.0 or later, read from bytes (which must
/// outlive it and keep their size), walked the way the entry reader lays members out: a member
/// at its structure's start plus the offset the schema gives it, a fixed array behind its count
/// from 7.0.0 on, counted and optional members in the data entry they point at.
class FileLayout
{
public:
    /// Reads the tables of bytes, whose sections manager (which loaded them) knows. False with
    /// reason when they cannot be read or the file carries no schema.
    [[nodiscard]] bool Open(std::vector<unsigned char>& bytes, ParameterSetManager& manager,
                            std::string& reason);

    /// The place of element index of the number member at steps (member names of type, the
    /// compiled type of the module) in the data of symbol entry recordId, whose module has name
    /// hash moduleHash. False with reason ("not in the file's schema", "the file holds 3
    /// elements", ...) when the file has no such number.
    [[nodiscard]] bool Locate(unsigned int recordId, unsigned long moduleHash,
                              ParameterTypeDescriptor const& type,
                              std::vector<PathStep> const& steps, unsigned int index,
                              NumberPlace& place, std::string& reason);

private:
    /// Where a block of entry data stands in the file.
    struct Block
    {
        size_t start = 0;
        size_t size = 0;
    };

    bool EntryBlock(unsigned int id, bool symbol, Block& block);
    bool ReadWord(Block const& block, size_t at, uint32_t& value) const;

    std::vector<unsigned char>* m_bytes = nullptr;
    bool m_fixedCounts = false;
    std::unique_ptr<ParameterFileSymbolTable> m_table;
};

} // namespace ParamCtl
