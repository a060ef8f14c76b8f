// SPDX-License-Identifier: Apache-2.0
// ConsoleSession: what the tuning console shows and changes, a file's or a live camera's, as the
// JSON answers of its HTTP API (tools/paramctl/console/API.md).
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tools/paramctl/document/documentjson.h"
#include "tools/paramctl/liveconnection.h"
#include "tools/paramctl/loadedfile.h"
#include "tools/paramctl/triggertree.h"

namespace ParamCtl {

/// An HTTP status and the JSON body that goes with it.
struct ApiAnswer
{
    int status = 200;
    Json body;
};

/// The status-400/404/409 answer {"error": reason}.
ApiAnswer ApiError(int status, std::string const& reason);

/// What the console was started on.
struct ConsoleOptions
{
    std::string file;    ///< FILE: the values, or in a live session the structure of the values;
                         ///< empty for a live session without FILE
    std::string live;    ///< HOST:PORT of a live tuning server; empty for a file session
    std::string saveTo;  ///< --save-to; empty when not given
    std::string compare; ///< --compare; empty when not given
};

/// A file loaded once, its values changed in memory by the edits of the console's users; in a
/// live session every read and change goes through the live tuning server, and the file only
/// says which instances there are and how their values are laid out. A live session without
/// FILE learns all of that from the server: the mode tree from Modes, the instances a branch
/// reads by asking Info for each instance of the tuning set, their members from Info. It cannot
/// save or compare, and does not know which mode supplies a module. Every call holds one lock:
/// the manager is not shared between threads, nor the live server, which serves one client at a
/// time.
class ConsoleSession
{
public:
    /// False when FILE cannot be loaded (the reason printed) or, with error, when the live
    /// tuning server does not answer.
    [[nodiscard]] bool Open(ConsoleOptions const& options, std::string& error);

    ApiAnswer Session();
    ApiAnswer Tree();
    ApiAnswer Modules(std::string const& table, std::string const& branch);
    ApiAnswer Module(std::string const& table, std::string const& branch,
                     std::string const& instance);
    /// body: the JSON text of a PUT /api/value.
    ApiAnswer SetValue(std::string const& body);
    ApiAnswer Save();
    ApiAnswer Diff(std::string const& table, std::string const* branch);

private:
    struct Branch
    {
        unsigned char table = 0;
        std::string numeric;
        std::string named;
    };
    /// False with the answer to give when table or branch names nothing in the file.
    bool ResolveBranch(std::string const& table, std::string const& branch, Branch& resolved,
                       ApiAnswer& failure);
    /// The named mode of the branch that supplies instance (the deepest holding it); empty when
    /// none does.
    std::string SourceOf(Branch const& branch, std::string const& instance);
    /// Live session without FILE: the answers, read through the live tuning server alone.
    ApiAnswer LiveTree();
    /// Opens exchange on table and resolves branch against the live mode tree; false with the
    /// answer to give otherwise.
    bool OpenLiveBranch(std::string const& table, std::string const& branch, LiveExchange& exchange,
                        Branch& resolved, ApiAnswer& failure);
    ApiAnswer LiveModules(std::string const& table, std::string const& branch);
    ApiAnswer LiveModule(std::string const& table, std::string const& branch,
                         std::string const& instance);
    ApiAnswer SetLiveValue(std::string const& table, std::string const& branch,
                           std::string const& instance, std::string const& path,
                           std::string const& text);
    /// Why feature ("save", "diff", "source") cannot work in this session; empty when it can.
    std::string Unavailable(std::string const& feature) const;

    /// Live session: copies the live values of instance, read through branch, into the manager.
    bool Pull(Branch const& branch, std::string const& instance, std::string& error);
    /// Live session: copies the live values of every instance of the file into the manager.
    bool PullAll(std::string& error);
    /// The file's bytes with the manager's values written in (values: how many numbers differ
    /// from the file); false with the answer otherwise.
    bool TunedBytes(std::vector<unsigned char>& bytes, unsigned int& values, ApiAnswer& failure);

    ConsoleOptions m_options;
    LiveTarget m_live;
    std::unique_ptr<LoadedFile> m_loaded;
    /// The file's module records, read once: a large file has thousands.
    std::vector<ModuleRecord> m_records;
    /// The names the file gives its control variables.
    ControlNames m_controlNames;
    std::mutex m_lock;
};

} // namespace ParamCtl
