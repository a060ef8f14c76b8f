// SPDX-License-Identifier: Apache-2.0
// TuningDocument: a whole tuning file as one JSON document, read by the schema the file carries,
// and the way back to the binary file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/paramctl/document/documentjson.h"

namespace ParamCtl {

/// The format name every document carries in "format", and its revision in "formatVersion".
constexpr char DocumentFormat[] = "paramctl-tuning-file";
constexpr unsigned int DocumentFormatVersion = 1;

/// Reads a tuning file of any version into a document (shape: tools/paramctl/tuningfile.schema.json):
/// header, sections, definition records, mode tables with their trees, symbol and data tables,
/// and the value tree of every module instance under its mode path. Values are read by the
/// file's own definition table; a file without one is read by the compiled schemas of the
/// shipped set managers, and "schemas" says which were used. Whatever cannot be read as values
/// (no schema, a damaged or foreign layout) is kept as hex, and what is odd about the file is
/// listed in "problems", so the document always stands for every byte that pack writes back.
/// False with error set only when bytes has no readable header or a version above 7.0.0.
[[nodiscard]] bool ReadTuningDocument(std::vector<unsigned char> const& bytes, Json& document,
                                      std::string& error);

/// Reads only the header, the sections and the definition table of a tuning file: the
/// "definitions" of its document (an empty array for a file without a definition table). False
/// with error set as ReadTuningDocument.
[[nodiscard]] bool ReadTuningDefinitions(std::vector<unsigned char> const& bytes, Json& definitions,
                                         std::string& error);

/// Writes the file a document describes. For a document made by ReadTuningDocument from a
/// writer-made file the bytes are those of the file; edited values, array lengths and mode
/// entries give a sound file, with offsets, sizes, counts, load limits and the checksum
/// recomputed. False with error set (naming the field) for a document that does not describe a
/// file.
[[nodiscard]] bool PackTuningDocument(Json const& document, std::vector<uint8_t>& bytes,
                                      std::string& error);

} // namespace ParamCtl
