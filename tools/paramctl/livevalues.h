// SPDX-License-Identifier: Apache-2.0
// Live values: a running camera's mode tree and module members, read through the live tuning
// protocol alone, for a tool that has no copy of the camera's tuning file.
#pragma once

#include <string>
#include <vector>

#include "tools/paramctl/liveconnection.h"
#include "tools/paramctl/valueaccess.h"

namespace ParamCtl {

/// The records of an Info answer, "name=value,Type;name,Type,count;...", as members. A value
/// text that holds ";" cannot be told from the next record: the protocol's text has no quoting.
std::vector<MemberInfo> InfoMembers(std::string const& text);

/// The members of one module instance as a live tuning server reads them through a named mode
/// branch ("Default|Sensor.0"): Info for each level, GetValues for each array of numbers.
class LiveValueSource final : public ValueSource
{
public:
    /// exchange is borrowed and must outlive this.
    LiveValueSource(LiveExchange& exchange, std::string branch, std::string instance);

    bool Describe(std::string const& path, bool arrays, std::vector<MemberInfo>& members) override;

    /// The value text of the member at path, as GetValues answers it. False with error when the
    /// server does not answer, with error empty when it has no such value.
    bool Read(std::string const& path, std::string& text, std::string& error);

    /// The reason of the last request the server did not answer; empty when all were answered.
    std::string const& Error() const { return m_error; }

private:
    std::string Variable(std::string const& path) const;

    LiveExchange& m_exchange;
    std::string m_branch;
    std::string m_instance;
    std::string m_error;
};

/// One node of a live mode tree: its step as the server names it ("Usecase.Preview") and its
/// children.
struct LiveModeNode
{
    std::string step;
    unsigned int mode = 0;
    unsigned int subMode = 0;
    std::vector<LiveModeNode> children;
};

/// The children of the node at the named branch, through the Modes command, in the server's
/// order. False with error when the server does not answer.
bool LiveChildren(LiveExchange& exchange, std::string const& branch,
                  std::vector<LiveModeNode>& children, std::string& error);

/// The whole tree of the mode table exchange has selected, from Default down. False with error
/// when the server stops answering.
bool ReadLiveModeTree(LiveExchange& exchange, LiveModeNode& root, std::string& error);

/// The names of the live server's mode tables as Device Info gives them; empty when it has only
/// one, which Device Info does not name.
std::vector<std::string> LiveTableNames(std::string const& device, unsigned int tableCount);

} // namespace ParamCtl
