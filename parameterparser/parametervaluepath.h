// SPDX-License-Identifier: Apache-2.0
// Value access by textual path ("a.b[2].c") inside a generated type, walked over its member
// descriptors: what the generated GetValue, SetValue and GetInfo forward to.
#pragma once

#include "parameterparser/parameterexport.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/plist.h"

struct ParameterTypeDescriptor;

/// The type names value access reports. Callers may compare a record's type pointer with these
/// objects ("Structure", "Module"), so every module hands out these very objects.
namespace ParameterTypeNames {
extern PARAMETERPARSER_API char const Boolean[];
extern PARAMETERPARSER_API char const Enum[];
extern PARAMETERPARSER_API char const Int32[];
extern PARAMETERPARSER_API char const Int64[];
extern PARAMETERPARSER_API char const UInt8[];
extern PARAMETERPARSER_API char const UInt16[];
extern PARAMETERPARSER_API char const UInt32[];
extern PARAMETERPARSER_API char const UInt64[];
extern PARAMETERPARSER_API char const Float[];
extern PARAMETERPARSER_API char const Double[];
extern PARAMETERPARSER_API char const String[];
extern PARAMETERPARSER_API char const Structure[];
extern PARAMETERPARSER_API char const Module[];
} // namespace ParameterTypeNames

/// Each operation takes the first step of path (a member name with an optional "[index]"),
/// finds the member by its exact schema name and goes on into structures with the rest of the
/// path. A step that names nothing gives false. None of them takes a lock or logs.
namespace ParameterValuePath {

/// Writes the value's text into out (at most outSize bytes, terminated): a number with its
/// type's precision, a string as it is, an array of numbers as one element when the index is
/// inside it and otherwise as all elements joined by ",". An array of structures has no text:
/// false unless the index selects an element. A counted array with no elements gives true with
/// out untouched. Text that does not fit is cut; the result stays true. An outSize of 0 gives
/// false and writes nothing.
PARAMETERPARSER_API bool GetValue(void* object, ParameterTypeDescriptor const& type,
                                  char const* path, char* out, unsigned int outSize);

/// Stores value (a decimal number; saturated into integer storage). An array takes one element
/// when the index is inside it, otherwise a ","-separated list from position 0 on in which
/// elements that are no number are skipped (true even then; "" changes nothing). Arrays never
/// grow. Strings cannot be set: false.
PARAMETERPARSER_API bool SetValue(void* object, ParameterTypeDescriptor const& type,
                                  char const* path, char const* value);

/// Appends descriptions to list. The empty path lists every member of the type (numbers and
/// strings with their value, structures by type, arrays with their count). A path to a number,
/// a string or a structure array without a valid index gives one record with a null name; a
/// path into a structure goes on in it. Array of numbers cannot be named here (false).
PARAMETERPARSER_API bool GetInfo(void* object, ParameterTypeDescriptor const& type,
                                 char const* path, PList<ParameterParserInfo>& list);

} // namespace ParameterValuePath
