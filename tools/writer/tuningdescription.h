// SPDX-License-Identifier: Apache-2.0
// TuningDescription: the text form of a tuning file that `paramctl pack` turns into a binary file.
#pragma once

#include <string>
#include <vector>

#include "tools/generator/instancecatalogue.h"
#include "tools/generator/schemaset.h"
#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/entryencoder.h"
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
///
/// Module data is given per instance of a set manager's module list, in a mode of the last mode
/// table (the path's missing steps are added to it). The schema comes from the catalogue of the
/// manager that lists the instance: its structures and a module record per instance go to the
/// definition section, so such a description has no structure or module lines of its own.
///
///     instance t2tconfigdata T2TCtrlType mode Default|Sensor.0   # name, top type, mode
///       value operationMode 2               # a number or a text
///       value indices 1,2,3                 # an array: its elements, "," between them
///       value GazeFocus.enable 1            # a member of a nested structure
///
/// Members without a value line are written as zeros, empty texts and empty arrays.
class TuningDescription
{
public:
    /// catalogues: the set managers whose instances "instance" lines may name, searched in
    /// order.
    explicit TuningDescription(std::vector<InstanceCatalogue const*> catalogues = {});
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
    bool ParseInstance(unsigned int line, std::vector<std::string> const& words);
    bool ParseValue(unsigned int line, std::string const& path, std::string const& text);

    /// One module instance with the values given for it.
    struct Instance
    {
        InstanceSchema const* schema;
        uint32_t modeId;
        EntryValue value;
    };

    std::vector<InstanceCatalogue const*> m_catalogues;
    std::vector<Instance> m_instances;
    SchemaSet m_schema;
    bool m_handWrittenSchema = false;
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
