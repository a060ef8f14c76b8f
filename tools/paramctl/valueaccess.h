// SPDX-License-Identifier: Apache-2.0
// Value access: a module's values read through a mode branch of a manager, and values checked
// against their member's type before the manager is given them.
#pragma once

#include <string>
#include <utility>
#include <vector>

class ParameterSetManager;

namespace ParamCtl {

/// Room for the text of a whole structure read.
constexpr unsigned int ResultLength = 1 << 20;

using Items = std::vector<std::pair<std::string, std::string>>;

/// "a=1;b=2,3" as (name, value) pairs.
Items SplitItems(std::string const& text);

/// One level of a module's value tree.
struct ValueNode
{
    std::string name;
    std::string value;
    std::string type;       ///< the member's type name as its module describes it
    unsigned int count = 0; ///< elements, for an array
    bool array = false;     ///< an array of numbers: value holds its elements joined by ","
    bool structure = false;
    bool list = false; ///< an array of structures: children are its elements
    std::vector<ValueNode> children;
};

/// One member, one level below a path, as its module describes it.
struct MemberInfo
{
    std::string name;
    std::string type;   ///< the type name the module reports ("Float", "Structure")
    std::string value;  ///< a value's text; an array's elements joined by "," when asked for
    bool array = false; ///< an array: of numbers, or of structures for type "Structure"
    unsigned int count = 0;
};

/// Where a module's members are read from: the module itself, or a live tuning server.
class ValueSource
{
public:
    virtual ~ValueSource() = default;

    /// The members directly below path ("" for the module's top level), with the elements of
    /// every array of numbers when arrays is set. False when path names nothing with members.
    virtual bool Describe(std::string const& path, bool arrays,
                          std::vector<MemberInfo>& members) = 0;
};

/// Reads the members below path ("" for the top level) of the module source reads into node's
/// children, recursing into structures. False when the source cannot describe the path.
bool ReadTree(ValueSource& source, std::string const& path, ValueNode& node);

/// Reads the members below variable ("<module>" or "<module>.<path>") in the branch modePath
/// (numeric) of mode table `table` into node's children, recursing into structures: the module
/// is looked up once and walked. False when the branch reaches no such module or the module
/// cannot describe the path.
bool ReadTree(ParameterSetManager& manager, unsigned char table, std::string const& modePath,
              std::string const& variable, ValueNode& node);

/// The leaves of a tree as "a.b[1].c" = value items.
void Flatten(ValueNode const& node, std::string const& prefix, Items& items);

/// Reads variable in mode: a module or structure member by member (nested members by their
/// dotted paths), anything else as the library's value text. False when nothing was read.
bool ReadVariable(ParameterSetManager& manager, unsigned char table, std::string const& mode,
                  std::string const& variable, char const* subVariables, Items& items);

/// Checks the value text of the member at path (below the module source reads) against the
/// member's type, by the rule 'paramctl pack' applies, and gives the text the library is to be
/// given. False with reason when the value does not suit it; a member that cannot be described
/// is left to the library to refuse.
bool CheckedValue(ValueSource& source, std::string const& path, std::string const& text,
                  std::string& libraryText, std::string& reason);

/// CheckedValue for member name below variable in mode of manager.
bool CheckedValue(ParameterSetManager& manager, unsigned char table, std::string const& mode,
                  std::string const& variable, std::string const& name, std::string const& text,
                  std::string& libraryText, std::string& reason);

} // namespace ParamCtl
