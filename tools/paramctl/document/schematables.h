// SPDX-License-Identifier: Apache-2.0
// SchemaTables: the schema a tuning file carries, as schema tables in the module generator's
// language.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tools/paramctl/document/documentjson.h"

namespace ParamCtl {

/// The generator's input for a document of ReadTuningDocument: file name to text. Without
/// namespaceName, a module whose structures have a pipeline block's shape (see BlockShape) is
/// written as a version of the family "<block>.family", one family per block; every other module
/// gets a schema table "<namespace>.schema" of its own, named after the module (its instance
/// name made an identifier). With namespaceName, every module goes to that one table (a top
/// structure two modules share is declared once). In a table, each structure a module reaches
/// becomes a plain type in dependency order, members in file order; in a family, the sections'
/// structures do. Structures equal to the built-in version structures are named as such; a
/// member whose name is no identifier is given one and keeps its hash; a structure without
/// members is a frame. notes gets what the tables cannot say as the file does (a counted array
/// of numbers that are not four bytes wide). With managerName, tables also gets
/// "<managerName>.list", the module list of a set manager registering every module of the file
/// as the type the tables declare it as; a module name no list can hold is left out with a note.
/// False with error set when the document has no definition table or no module record, or a
/// name given is no identifier.
[[nodiscard]] bool ExportSchemaTables(Json const& document, std::string const& namespaceName,
                                      std::string const& managerName,
                                      std::map<std::string, std::string>& tables,
                                      std::vector<std::string>& notes, std::string& error);

} // namespace ParamCtl
