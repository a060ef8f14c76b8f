// SPDX-License-Identifier: Apache-2.0
// paramctl console: the tuning console, a page and a JSON API served over HTTP.
#include <csignal>
#include <cstdio>
#include <string>
#include <thread>

#include <httplib.h>
#include <pthread.h>

#include "tools/paramctl/commandline.h"
#include "tools/paramctl/commands.h"
#include "tools/paramctl/consoleassets.h"
#include "tools/paramctl/consolesession.h"
#include "tools/paramctl/printable.h"

namespace ParamCtl {

namespace {

constexpr char ConsoleUsage[] =
    "usage: paramctl console [--port N] [--bind ADDR] [--save-to OUT] [--compare FILE2]\n"
    "                        [--web DIR] FILE\n"
    "       paramctl console --live HOST:PORT [options] [FILE]\n"
    "\n"
    "Serves the tuning console, a page and the JSON API it uses, on http://ADDR:N/ (127.0.0.1\n"
    "and 8080 unless told; --port 0 takes a free port) and prints one line with the address.\n"
    "The page shows the mode tree of FILE, the modules a branch reads with the mode that\n"
    "supplies each, and their values, editable in place by the rules of 'paramctl set'. Edits\n"
    "stay in memory; --save-to OUT lets the page write FILE with them to OUT, as 'set -o'\n"
    "does. --compare FILE2 lets it show what differs from FILE2, as 'paramctl diff'.\n"
    "--live attaches to the live tuning server of a running camera process instead: values\n"
    "are read and changed through it, where every other client sees them, and FILE gives the\n"
    "mode tree and the layout of the values; --save-to then saves the live values.\n"
    "Without FILE the server alone gives the mode tree and the values; such a session cannot\n"
    "save or compare, and does not know which mode supplies a module.\n"
    "--web serves the page from DIR instead of the one installed with paramctl.\n"
    "SIGINT or SIGTERM stops the server. The API: tools/paramctl/console/API.md.\n";

// A request body above this is refused with 413: an edit is a few hundred bytes.
constexpr size_t MaxBody = 64 * 1024;
// Connections served at once. A silent or slow client holds one of them until a time-out ends
// it; the rest serve everyone else meanwhile.
constexpr size_t Workers = 32;
constexpr time_t ReadTimeoutSeconds = 5;
constexpr time_t WriteTimeoutSeconds = 5;
constexpr time_t KeepAliveSeconds = 5;

void Reply(httplib::Response& response, ApiAnswer const& answer)
{
    response.status = answer.status;
    response.set_content(answer.body.dump(-1, ' ', false, Json::error_handler_t::replace),
                         "application/json");
}

std::string Parameter(httplib::Request const& request, char const* name, char const* fallback)
{
    return request.has_param(name) ? request.get_param_value(name) : fallback;
}

void Route(httplib::Server& server, ConsoleSession& session, ConsoleAssets const& assets)
{
    server.Get("/api/session", [&](httplib::Request const&, httplib::Response& response) {
        Reply(response, session.Session());
    });
    server.Get("/api/tree", [&](httplib::Request const&, httplib::Response& response) {
        Reply(response, session.Tree());
    });
    server.Get("/api/modules", [&](httplib::Request const& request, httplib::Response& response) {
        Reply(response,
              session.Modules(Parameter(request, "table", "0"), Parameter(request, "branch", "")));
    });
    server.Get("/api/module", [&](httplib::Request const& request, httplib::Response& response) {
        Reply(response,
              session.Module(Parameter(request, "table", "0"), Parameter(request, "branch", ""),
                             Parameter(request, "instance", "")));
    });
    server.Put("/api/value", [&](httplib::Request const& request, httplib::Response& response) {
        Reply(response, session.SetValue(request.body));
    });
    server.Post("/api/save", [&](httplib::Request const&, httplib::Response& response) {
        Reply(response, session.Save());
    });
    server.Get("/api/diff", [&](httplib::Request const& request, httplib::Response& response) {
        std::string const branch = Parameter(request, "branch", "");
        Reply(response, session.Diff(Parameter(request, "table", "0"),
                                     request.has_param("branch") ? &branch : nullptr));
    });
    server.Get("/api/.*", [](httplib::Request const&, httplib::Response& response) {
        Reply(response, ApiError(404, "no such endpoint"));
    });
    server.Get("/.*", [&](httplib::Request const& request, httplib::Response& response) {
        std::string body;
        std::string type;
        if (!assets.Read(request.path, body, type)) {
            Reply(response, ApiError(404, "no such file"));
            return;
        }
        response.set_content(body, type.c_str());
    });
    // Whatever the library answers on its own (413 for a body over the limit, 404 for an
    // unknown route or method) gets the same JSON error body as the API's answers.
    server.set_error_handler([](httplib::Request const&, httplib::Response& response) {
        if (!response.body.empty())
            return;
        std::string const reason = response.status == 413   ? "the request body is too large"
                                   : response.status == 404 ? "no such endpoint"
                                                            : "the request cannot be served";
        Reply(response, ApiError(response.status, reason));
    });
    server.set_exception_handler(
        [](httplib::Request const&, httplib::Response& response, std::exception_ptr) {
            Reply(response, ApiError(500, "the request failed"));
        });
}

int Usage(std::string const& problem)
{
    if (!problem.empty())
        std::fprintf(stderr, "paramctl console: %s\n", problem.c_str());
    std::fputs(ConsoleUsage, stderr);
    return ExitUsage;
}

} // namespace

int RunConsole(int argc, char** argv)
{
    CommandLine line({}, {"--port", "--bind", "--save-to", "--compare", "--live", "--web"});
    if (!line.Parse(argc, argv))
        return Usage(line.Error());
    if (line.Has("--help")) {
        std::fputs(ConsoleUsage, stdout);
        return ExitSuccess;
    }
    // A live session may go without FILE; everything else needs it.
    if (line.Operands().size() > 1 || (line.Operands().empty() && !line.Has("--live")))
        return Usage("");
    for (char const* option : {"--save-to", "--compare"}) {
        if (line.Operands().empty() && line.Has(option))
            return Usage(std::string(option) + " needs FILE: a live session without FILE cannot "
                                               "save or compare");
    }
    unsigned short port = 8080;
    std::string const portText = line.Value("--port", "8080");
    if (portText != "0" && !ParsePortNumber(portText, port))
        return Usage("--port needs a number from 0 to 65535");
    if (portText == "0")
        port = 0;
    ConsoleOptions options{line.Operands().empty() ? "" : line.Operands()[0], line.Value("--live"),
                           line.Value("--save-to"), line.Value("--compare")};
    if (line.Has("--live") && options.live.empty())
        return Usage("--live needs HOST:PORT");
    ConsoleAssets assets;
    std::string error;
    if (!assets.Open(line.Value("--web"), error)) {
        std::fprintf(stderr, "paramctl console: %s\n", Printable(error).c_str());
        return ExitFailure;
    }
    ConsoleSession session;
    error.clear();
    if (!session.Open(options, error)) {
        if (!error.empty())
            std::fprintf(stderr, "paramctl console: %s\n", Printable(error).c_str());
        return ExitFailure;
    }

    // SIGINT and SIGTERM are taken by a thread of their own, which stops the server: the
    // server's threads, started after this, inherit the blocked mask.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    httplib::Server server;
    server.new_task_queue = [] { return new httplib::ThreadPool(Workers); };
    server.set_payload_max_length(MaxBody);
    server.set_read_timeout(ReadTimeoutSeconds);
    server.set_write_timeout(WriteTimeoutSeconds);
    server.set_keep_alive_timeout(KeepAliveSeconds);
    Route(server, session, assets);
    std::string const bind = line.Value("--bind", "127.0.0.1");
    int const bound =
        port == 0 ? server.bind_to_any_port(bind) : (server.bind_to_port(bind, port) ? port : -1);
    if (bound <= 0) {
        std::fprintf(stderr, "paramctl console: cannot listen on %s port %u\n",
                     Printable(bind).c_str(), port);
        return ExitFailure;
    }
    bool const v6 = bind.find(':') != std::string::npos;
    std::printf("paramctl console: listening on http://%s%s%s:%d/\n", v6 ? "[" : "",
                Printable(bind).c_str(), v6 ? "]" : "", bound);
    std::fflush(stdout);

    std::thread stopper([&] {
        int signal = 0;
        sigwait(&stopSignals, &signal);
        server.stop();
    });
    bool const served = server.listen_after_bind();
    // A listen that ended on its own leaves the stopper waiting: wake it.
    if (!served)
        pthread_kill(stopper.native_handle(), SIGTERM);
    stopper.join();
    return served ? ExitSuccess : ExitFailure;
}

} // namespace ParamCtl
