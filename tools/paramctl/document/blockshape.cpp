// SPDX-License-Identifier: Apache-2.0
// BlockShape: the family rules of the generator read backwards, from a file's structures to the
// few facts a family version states.
#include "tools/paramctl/document/blockshape.h"

#include <sstream>

#include "paramctl/triggerdimensiontext.h"

namespace ParamCtl {

namespace {

// A nest deeper than this is no block of the catalogue (the deepest has eight levels).
constexpr size_t MaxLevels = 32;

// A member record of the file, as the rules look at it.
struct Member
{
    std::string name;
    std::string type;
    uint32_t structure = 0;
    uint32_t min = 1;
    uint32_t max = 1;
    uint16_t flags = 0;

    bool Single() const { return min == 1 && max == 1; }
    bool Optional() const { return min == 0 && max == 1; }
    bool Counted(uint32_t minimum) const { return min == minimum && max >= 2; }
    bool Fixed(uint32_t count) const { return min == count && max == count; }
    bool IsStructure() const { return type == "Structure"; }
};

Member View(Json const& record)
{
    Member member;
    member.name = StringField(record, "name");
    member.type = StringField(record, "type");
    member.structure = record.value("structure", 0u);
    member.min = record.value("min", 1u);
    member.max = record.value("max", 1u);
    member.flags = record.value("flags", uint16_t{0});
    return member;
}

// A compiled storage's name in a schema table, by ParameterStorage.
constexpr char const* StorageNames[] = {"int8",   "uint8", "int16",  "uint16", "int32",
                                        "uint32", "int64", "uint64", "float",  "double"};

// The file's number types that a member of this storage reads without conversion.
bool Stores(std::string const& storage, Member const& member)
{
    static std::map<std::string, std::set<std::string>> const direct = {
        {"int8", {"Int8"}},
        {"uint8", {"UInt8", "ByteLike"}},
        {"int16", {"Int16"}},
        {"uint16", {"UInt16", "ShortLike"}},
        {"int32", {"Int32", "IntLike"}},
        {"uint32", {"UInt32", "UIntLike", "UIntLike2"}},
        {"int64", {"Int64"}},
        {"uint64", {"UInt64", "LongLike"}},
        {"float", {"Float"}},
        {"double", {"Double"}},
    };
    if ((member.flags & 1) != 0)
        return storage == "float";
    // An enumeration is four bytes, held as an unsigned number.
    auto const found = direct.find(storage.find("::") != std::string::npos ? "uint32" : storage);
    return found != direct.end() && found->second.count(member.type) != 0;
}

class Recogniser
{
public:
    Recogniser(std::map<uint32_t, FileStructure> const& structures, BlockShape& shape)
        : m_structures(structures), m_shape(shape)
    {
    }

    bool Run(uint32_t top, std::string const& version)
    {
        unsigned int numbers[3] = {};
        char end = 0;
        std::istringstream text(version);
        char dot1 = 0;
        char dot2 = 0;
        if (!(text >> numbers[0] >> dot1 >> numbers[1] >> dot2 >> numbers[2]) || dot1 != '.' ||
            dot2 != '.' || (text >> end))
            return false;
        std::vector<Member> members;
        if (!Members(top, members) || members.empty())
            return false;
        // The block's prefix (<block><major><minor>) is in the name of its core or reserve.
        std::string const vv = std::to_string(numbers[0]) + std::to_string(numbers[1]);
        for (Member const& member : members) {
            for (char const* suffix : {"_core", "_reserve"}) {
                std::string const tail(suffix);
                if (member.name.size() > 10 + tail.size() + vv.size() &&
                    member.name.compare(0, 10, "varitonal_") == 0 &&
                    member.name.compare(member.name.size() - tail.size(), tail.size(), tail) == 0)
                    m_prefix = member.name.substr(10, member.name.size() - 10 - tail.size());
            }
        }
        if (m_prefix.size() <= vv.size() ||
            m_prefix.compare(m_prefix.size() - vv.size(), vv.size(), vv) != 0)
            return false;
        m_shape.block = m_prefix.substr(0, m_prefix.size() - vv.size());
        m_shape.version = version;
        if (!IsIdentifier(m_shape.block) ||
            !Name("varitonal_" + m_prefix + "Type", m_structures.at(top).name))
            return false;
        bool const hasCore = members.back().name == "varitonal_" + m_prefix + "_core";
        m_shape.kind = !hasCore          ? BlockShape::Kind::Flat
                       : numbers[2] == 0 ? BlockShape::Kind::Nest
                                         : BlockShape::Kind::Tree;
        return Top(members);
    }

private:
    FileStructure const* Structure(uint32_t id) const
    {
        auto const found = m_structures.find(id);
        return found != m_structures.end() && found->second.members != nullptr &&
                       found->second.members->is_array()
                   ? &found->second
                   : nullptr;
    }

    bool Members(uint32_t id, std::vector<Member>& members) const
    {
        FileStructure const* structure = Structure(id);
        if (structure == nullptr)
            return false;
        for (Json const& record : *structure->members) {
            if (!record.is_object())
                return false;
            members.push_back(View(record));
        }
        return true;
    }

    // The name the rules make for something, against the file's: a differing one becomes an
    // override, unless the same generated name stands for two of the file's names.
    bool Name(std::string const& generated, std::string const& actual)
    {
        if (!IsIdentifier(actual))
            return false;
        auto const [found, added] = m_names.emplace(generated, actual);
        if (!added && found->second != actual)
            return false;
        if (generated != actual)
            m_shape.names[generated] = actual;
        return true;
    }

    bool StructureNamed(Member const& member, std::string const& generated)
    {
        FileStructure const* structure = Structure(member.structure);
        if (!member.IsStructure() || structure == nullptr || !Name(generated, structure->name))
            return false;
        m_shape.typeNames.insert(structure->name);
        return true;
    }

    // A structure of number members named as given, each read without conversion.
    bool NumbersAre(uint32_t id, std::vector<std::pair<char const*, char const*>> const& wanted)
    {
        std::vector<Member> members;
        if (!Members(id, members) || members.size() != wanted.size())
            return false;
        for (size_t i = 0; i < wanted.size(); ++i) {
            if (members[i].name != wanted[i].first || !members[i].Single() ||
                !Stores(wanted[i].second, members[i]))
                return false;
        }
        return true;
    }

    // A member of the type words of a dimension or of a shared type: a number of that storage,
    // or a structure of that type's name and its compiled members (a structure that only takes
    // the name would be read as the shared type, with members skipped or misread).
    bool OfType(Member const& member, std::vector<std::string> const& words)
    {
        if (!member.Single())
            return false;
        if (words.size() == 2)
            return !member.IsStructure() && Stores(words[1], member);
        FileStructure const* structure = Structure(member.structure);
        if (words.size() != 1 || !member.IsStructure() || structure == nullptr)
            return false;
        std::string const& qualified = words[0];
        size_t const colon = qualified.rfind("::");
        for (CompiledTriggerType const& shared : CompiledTriggerTypes) {
            if (qualified == shared.name)
                return structure->name == qualified.substr(colon + 2) &&
                       HasMembersOf(member.structure, *shared.type, 0);
        }
        return false;
    }

    // The structure holds the compiled type's members, in its order, each read as it is.
    bool HasMembersOf(uint32_t id, ParameterTypeDescriptor const& type, size_t depth)
    {
        std::vector<Member> members;
        if (depth > MaxLevels || !Members(id, members))
            return false;
        size_t at = 0;
        for (uint32_t i = 0; i < type.memberCount; ++i) {
            ParameterMemberDescriptor const& compiled = type.members[i];
            if (compiled.hidden)
                continue;
            if (at == members.size() || members[at].name != compiled.name)
                return false;
            Member const& member = members[at++];
            bool const same =
                compiled.kind == ParameterMemberKind::Scalar
                    ? member.Single() &&
                          Stores(StorageNames[static_cast<int>(compiled.storage)], member)
                    : compiled.kind == ParameterMemberKind::Structure && member.Single() &&
                          member.IsStructure() &&
                          HasMembersOf(member.structure, *compiled.type, depth + 1);
            if (!same)
                return false;
        }
        return at == members.size();
    }

    // The top type's members in the order the rules give them.
    bool Top(std::vector<Member> const& members)
    {
        size_t at = 0;
        auto next = [&](char const* name) {
            return at < members.size() && members[at].name == name && members[at].Single() &&
                   members[at].IsStructure();
        };
        if (next("enable_section"))
            m_shape.enable = members[at++].structure;
        if (!next("module_version") ||
            !NumbersAre(members[at++].structure, {{"major_revision", "int32"},
                                                  {"minor_revision", "int32"},
                                                  {"incr_revision", "int32"}}))
            return false;
        std::vector<Member> parameterVersion;
        if (!next("parameter_version") || !Members(members[at++].structure, parameterVersion) ||
            parameterVersion.size() != 1 || parameterVersion[0].name != "revision" ||
            parameterVersion[0].type != "String" || !parameterVersion[0].Single())
            return false;
        Member controlVariables;
        if (m_shape.kind != BlockShape::Kind::Flat) {
            if (!next("control_variables"))
                return false;
            controlVariables = members[at++];
            if (m_shape.kind == BlockShape::Kind::Nest && next("control_method")) {
                if (!NumbersAre(members[at++].structure,
                                {{"aec_exp_control", "uint32"}, {"aec_hdr_control", "uint32"}}))
                    return false;
                m_shape.controlMethod = true;
            }
        }
        if (next("private_information"))
            m_shape.privateInformation = members[at++].structure;
        if (next("dynamic_enable_triggers") && !DynamicEnableTriggers(members[at++].structure))
            return false;
        if (at < members.size() && members[at].name == "varitonal_" + m_prefix + "_reserve") {
            Member const& reserve = members[at++];
            if (!reserve.Single() ||
                !StructureNamed(reserve, "varitonal_" + m_prefix + "_reserveType"))
                return false;
            m_shape.reserve = reserve.structure;
        }
        if (m_shape.kind == BlockShape::Kind::Flat)
            return at == members.size() && m_shape.reserve != 0;
        if (at + 1 != members.size())
            return false;
        Member const& core = members[at];
        if (!core.Single() || !StructureNamed(core, "varitonal_" + m_prefix + "_coreType"))
            return false;
        std::vector<Member> coreMembers;
        std::vector<Member> control;
        if (!Members(core.structure, coreMembers) || !Members(controlVariables.structure, control))
            return false;
        // A file written from a nest whose levels its schema did not know holds neither levels
        // nor control variables: the family states it as a nest of unknown levels.
        if (m_shape.kind == BlockShape::Kind::Nest && coreMembers.empty() && control.empty()) {
            m_shape.dims = {"?"};
            return true;
        }
        if (coreMembers.size() != 1)
            return false;
        return m_shape.kind == BlockShape::Kind::Nest ? Nest(coreMembers[0], controlVariables)
                                                      : Tree(coreMembers[0], controlVariables);
    }

    bool DynamicEnableTriggers(uint32_t id)
    {
        std::vector<Member> switches;
        if (!Members(id, switches) || switches.empty())
            return false;
        for (Member const& feature : switches) {
            std::vector<Member> members;
            if (!feature.Single() || !StructureNamed(feature, feature.name + "Struct") ||
                !Members(feature.structure, members) || members.size() != 4 ||
                members[0].name != "enable" || !OfType(members[0], {"Int32", "int32"}) ||
                members[1].name != "hyst_control_var" || !OfType(members[1], {"Enum", "uint32"}) ||
                members[2].name != "hyst_mode" || !OfType(members[2], {"Enum", "uint32"}) ||
                members[3].name != "hyst_trigger" ||
                !OfType(members[3], {"ispglobalelements::trigger_pt_couplet_type"}))
                return false;
            m_shape.dynamicSwitches.push_back(feature.name);
        }
        return true;
    }

    // control_var_type: a fixed array of one entry per control level (a nest) or a counted
    // array (a tree), of four-byte unsigned numbers.
    static bool ControlVariables(std::vector<Member> const& members, bool nest, uint32_t levels)
    {
        if (members.size() != 1 || members[0].name != "control_var_type" ||
            !Stores("uint32", members[0]))
            return false;
        return nest ? levels > 0 && members[0].Fixed(levels) : members[0].Counted(0);
    }

    bool Nest(Member array, Member const& controlVariables)
    {
        std::vector<std::string> outermostFirst;
        uint32_t controlLevels = 0;
        while (outermostFirst.size() < MaxLevels) {
            std::vector<Member> level;
            if (!array.Counted(1) || !Members(array.structure, level) || level.size() != 2)
                return false;
            auto const dimension = DimensionsByTrigger().find(level[0].name);
            if (dimension == DimensionsByTrigger().end() ||
                !OfType(level[0], dimension->second.type))
                return false;
            std::string const& dim = dimension->second.name;
            outermostFirst.push_back(dim);
            controlLevels += dimension->second.control ? 1 : 0;
            if (!Name("mod_" + m_prefix + "_" + dim + "_data", array.name) ||
                !StructureNamed(array, "mod_" + m_prefix + "_" + dim + "_dataType"))
                return false;
            Member const& data = level[1];
            std::vector<Member> holder;
            FileStructure const* held = Structure(data.structure);
            bool const isHolder = data.IsStructure() && held != nullptr &&
                                  (data.name == dim + "_data" || held->name == dim + "_dataStruct");
            if (!data.Single() || !data.IsStructure())
                return false;
            if (!isHolder) {
                if (!Name(m_prefix + "_rgn_data", data.name) ||
                    !StructureNamed(data, m_prefix + "_rgn_dataType"))
                    return false;
                m_shape.region = data.structure;
                break;
            }
            if (!Name(dim + "_data", data.name) || !StructureNamed(data, dim + "_dataStruct") ||
                !Members(data.structure, holder) || holder.size() != 1)
                return false;
            array = holder[0];
        }
        std::vector<Member> control;
        if (m_shape.region == 0 || !Members(controlVariables.structure, control) ||
            !ControlVariables(control, true, controlLevels))
            return false;
        m_shape.dims.assign(outermostFirst.rbegin(), outermostFirst.rend());
        return true;
    }

    bool Tree(Member const& roots, Member const& controlVariables)
    {
        std::vector<Member> control;
        if (!Members(controlVariables.structure, control) || !ControlVariables(control, false, 0))
            return false;
        std::vector<Member> node;
        if (!roots.Counted(0) || !Name("mod_" + m_prefix + "_trigger_data", roots.name) ||
            !StructureNamed(roots, "triggerType") || !Members(roots.structure, node) ||
            node.size() != 4 || node[0].name != "start" || !OfType(node[0], {"Float", "float"}) ||
            node[1].name != "end" || !OfType(node[1], {"Float", "float"}) ||
            node[2].name != "trigger" || !node[2].IsStructure() || !node[2].Counted(0) ||
            node[2].structure != roots.structure || node[3].name != "region" ||
            !node[3].IsStructure() || !(node[3].Counted(0) || node[3].Optional()))
            return false;
        m_shape.optionalRegion = node[3].Optional();
        // Passes below the leaf: one structure holding a fixed array of (pass_trigger, region).
        std::vector<Member> leaf;
        std::vector<Member> pass;
        if (!Members(node[3].structure, leaf))
            return false;
        bool const passes = leaf.size() == 1 && leaf[0].IsStructure() && leaf[0].min >= 1 &&
                            leaf[0].max == leaf[0].min && Members(leaf[0].structure, pass) &&
                            pass.size() == 2 && pass[0].name == "pass_trigger";
        if (!passes) {
            m_shape.region = node[3].structure;
            return StructureNamed(node[3], m_prefix + "_rgn_dataType");
        }
        m_shape.passes = leaf[0].max;
        m_shape.region = pass[1].structure;
        return StructureNamed(node[3], "mod_" + m_prefix + "_rgn_array_dataType") &&
               Name("mod_" + m_prefix + "_pass_data", leaf[0].name) &&
               StructureNamed(leaf[0], "mod_" + m_prefix + "_pass_dataType") &&
               OfType(pass[0], {"Enum", "uint32"}) && pass[1].Single() &&
               Name(m_prefix + "_rgn_data", pass[1].name) &&
               StructureNamed(pass[1], m_prefix + "_rgn_dataType");
    }

    std::map<uint32_t, FileStructure> const& m_structures;
    BlockShape& m_shape;
    std::string m_prefix;
    std::map<std::string, std::string> m_names;
};

} // namespace

std::map<std::string, TriggerDimension> const& DimensionsByTrigger()
{
    static std::map<std::string, TriggerDimension> const table = [] {
        std::map<std::string, TriggerDimension> rows;
        std::istringstream text(TriggerDimensionText);
        for (std::string line; std::getline(text, line);) {
            std::istringstream words(line.substr(0, line.find('#')));
            std::vector<std::string> row;
            for (std::string word; words >> word;)
                row.push_back(word);
            if (row.size() < 4 || (row[1] != "control" && row[1] != "selector"))
                continue;
            rows.emplace(row[2],
                         TriggerDimension{row[0], row[1] == "control",
                                          std::vector<std::string>(row.begin() + 3, row.end())});
        }
        return rows;
    }();
    return table;
}

bool RecogniseBlock(std::map<uint32_t, FileStructure> const& structures, uint32_t top,
                    std::string const& version, BlockShape& shape)
{
    shape = BlockShape();
    if (structures.count(top) == 0)
        return false;
    return Recogniser(structures, shape).Run(top, version);
}

} // namespace ParamCtl
