// SPDX-License-Identifier: Apache-2.0
// TuningDescription: the text form of a tuning file that `paramctl pack` turns into a binary file.
#pragma once

#include <string>
#include <vector>

#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/modesectionbuilder.h"
#include "tools/writer/tuningfilewriter.h"

namespace TuningWriter {

/// A parsed tuning description. The text is line based; "#" starts a comment, indentation is free:
///
///     version 7.0.0                  # file version, default 7.0.0
///     binary-tag demo-rear-camera    # label kept by the loader
///     created-by paramctl            # producing tool, logged only
///     flags 0                        # header flags word
///
///     structure 2 module_versionStruct
///       member major_revision UInt32
///       member minor_revision UInt32
///     structure 1 FLIndicesType
///       member module_version struct:2
///       member numPoints      UInt32
///       member indices        UInt32[300]      # fixed array
///       member limits         Float[] four-byte # counted array, elements four bytes wide
///       member name           String?          # optional
///     module FLIndicesType 1          # module name and its top structure ID
///
///     modetable rear                  # a mode table (index in order of appearance) and its name
///       path Default|Sensor.0|Usecase.Preview          # each step gets a node below the last
///       path Default|Sensor.0|Usecase.Video resident    # the last node stays loaded
///
/// A member type is a type code name (Int8 ... Double, ByteLike, ShortLike, UIntLike, LongLike,
/// IntLike, UIntLike2, String) or struct:<ID>, followed by nothing (one value), [N] (fixed array
/// of N), [] (counted, 0 to 65535) or ? (optional); "four-byte" sets the element flag.
class TuningDescription
{
public:
    /// Parses text. On failure returns false and Error() says where and why.
    [[nodiscard]] bool Parse(std::string const& text);

    /// Reads and parses a file.
    [[nodiscard]] bool ParseFile(std::string const& path);

    std::string const& Error() const { return m_error; }

    /// A writer holding the described header, definition section and the minimal symbol and data
    /// sections.
    TuningFileWriter MakeWriter() const;

private:
    bool Fail(unsigned int line, std::string const& message);
    bool ParseMember(unsigned int line, std::string const& name, std::string const& type,
                     std::string const& option);
    bool ParsePath(unsigned int line, std::vector<std::string> const& words);

    FileVersion m_version;
    std::string m_binaryTag = "sample";
    std::string m_createdBy = "paramctl pack";
    uint64_t m_flags = 0;
    DefinitionTableBuilder m_definitions;
    std::vector<ModeSectionBuilder> m_modeTables;
    bool m_inStructure = false;
    DefinitionStructure m_structure;
    std::string m_error;
};

} // namespace TuningWriter
