// SPDX-License-Identifier: Apache-2.0
// Live values: module members and the mode tree read through the live tuning protocol.
#include "tools/paramctl/livevalues.h"

#include <utility>

#include "parameterparser/livetuning/parameterknobbypacket.h"
#include "parameterparser/parametervaluepath.h"
#include "tools/paramctl/modepath.h"

namespace ParamCtl {

namespace {

namespace Wire = ParameterKnobbyPacket;

// Mode trees are a few levels deep (Default, Sensor, Usecase, two features, Scene, Effect); a
// deeper walk means a server that answers a path it does not hold with another node's children.
constexpr unsigned int MaxModeDepth = 16;

std::vector<std::string> Split(std::string const& text, char separator)
{
    std::vector<std::string> pieces;
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find(separator, start);
        if (end == std::string::npos)
            end = text.size();
        pieces.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return pieces;
}

bool AllDigits(std::string const& text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

/// The value of a one-item answer, "name=value": everything behind the first "=".
std::string ItemValue(std::string const& answer)
{
    size_t const equals = answer.find('=');
    return equals == std::string::npos ? "" : answer.substr(equals + 1);
}

bool ReadLevel(LiveExchange& exchange, std::string const& branch, LiveModeNode& node,
               unsigned int depth, std::string& error)
{
    if (depth >= MaxModeDepth)
        return true;
    if (!LiveChildren(exchange, branch, node.children, error))
        return false;
    for (LiveModeNode& child : node.children) {
        if (!ReadLevel(exchange, branch + "|" + child.step, child, depth + 1, error))
            return false;
    }
    return true;
}

} // namespace

std::vector<MemberInfo> InfoMembers(std::string const& text)
{
    std::vector<MemberInfo> members;
    for (std::string const& record : Split(text, ';')) {
        // name[=value],Type[,count]: the type and the count stand last, and a value may hold
        // a ",".
        size_t typeComma = record.rfind(',');
        if (typeComma == std::string::npos)
            continue;
        MemberInfo member;
        if (AllDigits(record.substr(typeComma + 1))) {
            size_t const countComma = typeComma > 0 ? record.rfind(',', typeComma - 1) : 0;
            if (countComma != std::string::npos && countComma < typeComma) {
                member.array = true;
                member.count = static_cast<unsigned int>(
                    std::stoul(record.substr(typeComma + 1).substr(0, 9)));
                member.type = record.substr(countComma + 1, typeComma - countComma - 1);
                typeComma = countComma;
            }
        }
        if (!member.array)
            member.type = record.substr(typeComma + 1);
        std::string const named = record.substr(0, typeComma);
        size_t const equals = named.find('=');
        member.name = named.substr(0, equals);
        if (equals != std::string::npos)
            member.value = named.substr(equals + 1);
        if (!member.name.empty())
            members.push_back(std::move(member));
    }
    return members;
}

LiveValueSource::LiveValueSource(LiveExchange& exchange, std::string branch, std::string instance)
    : m_exchange(exchange), m_branch(std::move(branch)), m_instance(std::move(instance))
{
}

std::string LiveValueSource::Variable(std::string const& path) const
{
    return path.empty() ? m_instance : m_instance + "." + path;
}

bool LiveValueSource::Describe(std::string const& path, bool arrays,
                               std::vector<MemberInfo>& members)
{
    // The server reads a path of one character as none and describes the module's top level:
    // such a member cannot be told apart from it.
    if (path.size() == 1)
        return false;
    std::string answer;
    if (!m_exchange.Request(Wire::Info, m_branch + ":" + Variable(path), answer, m_error))
        return false;
    members = InfoMembers(answer);
    if (members.empty())
        return false;
    // The arrays of numbers of this level, each read whole, in one run of requests.
    std::vector<MemberInfo*> read;
    std::vector<std::string> questions;
    for (MemberInfo& member : members) {
        if (!arrays || !member.array || member.type == ParameterTypeNames::Structure)
            continue;
        read.push_back(&member);
        questions.push_back(m_branch + ":" +
                            Variable(path.empty() ? member.name : path + "." + member.name));
    }
    std::vector<std::string> answers;
    if (!m_exchange.RequestEach(Wire::GetValues, questions, answers, m_error))
        return false;
    for (size_t i = 0; i < read.size(); ++i)
        read[i]->value = ItemValue(answers[i]);
    return true;
}

bool LiveValueSource::Read(std::string const& path, std::string& text, std::string& error)
{
    std::string answer;
    if (!m_exchange.Request(Wire::GetValues, m_branch + ":" + Variable(path), answer, error))
        return false;
    error.clear();
    text = ItemValue(answer);
    return answer.find('=') != std::string::npos;
}

bool LiveChildren(LiveExchange& exchange, std::string const& branch,
                  std::vector<LiveModeNode>& children, std::string& error)
{
    std::string answer;
    if (!exchange.Request(Wire::Modes, branch, answer, error))
        return false;
    for (std::string const& step : Split(answer, ',')) {
        LiveModeNode child;
        child.step = step;
        if (ParseModeStep(step, child.mode, child.subMode))
            children.push_back(std::move(child));
    }
    return true;
}

bool ReadLiveModeTree(LiveExchange& exchange, LiveModeNode& root, std::string& error)
{
    root = LiveModeNode{"Default", 0, 0, {}};
    return ReadLevel(exchange, root.step, root, 1, error);
}

std::vector<std::string> LiveTableNames(std::string const& device, unsigned int tableCount)
{
    size_t const colon = device.rfind(':');
    if (tableCount < 2 || colon == std::string::npos)
        return {};
    return Split(device.substr(colon + 1), ',');
}

} // namespace ParamCtl
