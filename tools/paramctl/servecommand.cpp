// SPDX-License-Identifier: Apache-2.0
// paramctl serve: hosts a tuning file with the live tuning server, as a camera process would.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "parameterparser/iparameterlivetuning.h"
#include "parameterparser/livetuning/knobbyhandler.h"
#include "parameterparser/parametersetmanager.h"
#include "tools/paramctl/commandline.h"
#include "tools/paramctl/commands.h"
#include "tools/paramctl/inputfile.h"
#include "tools/paramctl/printable.h"
#include "tools/paramctl/tunedfile.h"

#include "paramgen/TuningSetManager.h"

namespace ParamCtl {

namespace {

constexpr char ServeUsage[] =
    "usage: paramctl serve [--port N] [--bind ADDRESS] [--save-to OUT] FILE\n"
    "\n"
    "Loads FILE into a TuningSetManager, which knows every module of the tuning set and starts\n"
    "the live tuning server, and serves it until SIGINT or SIGTERM. Prints \"listening on port\n"
    "N\" once the server is up; a file that does not load ends with its error and exit code 1.\n"
    "--port takes port N (1 to 65535) and no other; by default the first free port from 19278\n"
    "up. --bind listens on one numeric IPv4 or IPv6 address (127.0.0.1, ::1) instead of every\n"
    "interface.\n"
    "SIGHUP reloads FILE from disk and prints the outcome. A demo publisher\n"
    "updates control values 1 (frame count), 2 (a slow sine) and 3 (an exposure time) five\n"
    "times a second; trigger requests are answered with sample values for two instances; custom\n"
    "commands are echoed back. Talk to it with 'paramctl client'.\n"
    "--save-to OUT writes FILE with every value changed over the socket to OUT on SIGUSR1 and\n"
    "on exit: each in the file's own encoding of its member, every other byte as it was, the\n"
    "checksum recomputed; OUT is replaced whole or not at all. A change the file cannot hold\n"
    "is named on stderr and left out. After a reload the values are those of the new FILE.\n"
    "OUT must be another file than FILE, which the server reads while it runs.\n";

// Set from the signal handlers; the main loop polls them.
volatile std::sig_atomic_t g_stopRequested = 0;
volatile std::sig_atomic_t g_reloadRequested = 0;
volatile std::sig_atomic_t g_saveRequested = 0;

void RequestStop(int)
{
    g_stopRequested = 1;
}

void RequestReload(int)
{
    g_reloadRequested = 1;
}

void RequestSave(int)
{
    g_saveRequested = 1;
}

/// The tuning set's manager, stopping its live tuning server before anything of it is destroyed:
/// the command thread calls into the object until the server has stopped.
class ServeSetManager final : public TuningSetManager
{
public:
    ServeSetManager() : TuningSetManager("paramctl-serve") {}
    ~ServeSetManager() override { StopKnobbyWorker(); }

    ServeSetManager(ServeSetManager const&) = delete;
    ServeSetManager& operator=(ServeSetManager const&) = delete;

    /// Writes FILE (original, the bytes loaded) with the values live tuning changed to path,
    /// reading the modules while the command thread is held off them. Says what it did.
    void SaveTuned(std::vector<unsigned char> const& original, std::string const& path)
    {
        std::vector<unsigned char> bytes = original;
        TunedChanges changes;
        std::string reason;
        if (m_liveTuning != nullptr)
            m_liveTuning->Pause();
        bool const tuned = TuneFile(bytes, *this, changes, reason);
        if (m_liveTuning != nullptr)
            m_liveTuning->Resume();
        for (std::string const& refused : changes.refused)
            std::fprintf(stderr, "paramctl serve: not saved, the file cannot hold %s\n",
                         Printable(refused).c_str());
        if (!tuned || !WriteFileAtomically(path, bytes, reason))
            std::fprintf(stderr, "paramctl serve: cannot save to %s: %s\n", Printable(path).c_str(),
                         Printable(reason).c_str());
        else
            std::printf("saved %u values of %u module records to %s\n", changes.values,
                        changes.records, Printable(path).c_str());
        std::fflush(stdout);
    }
};

/// Answers trigger requests at once with two instances of sample values, and echoes custom
/// commands. It answers through the manager it is attached to; the manager must be destroyed
/// (and its worker stopped) before this object, since the command thread calls in.
class DemoHandler final : public KnobbyHandler
{
public:
    void Attach(ParameterSetManager* manager) { m_manager = manager; }

    unsigned short Custom(unsigned char const* payload, unsigned int payloadLength,
                          unsigned short answerCapacity, unsigned char* answer,
                          unsigned short& answerLength) override
    {
        unsigned int const count = payloadLength < answerCapacity ? payloadLength : answerCapacity;
        std::memcpy(answer, payload, count);
        answerLength = static_cast<unsigned short>(count);
        return 1;
    }

    void TriggerNotice(char const* modePath, char const* module, unsigned long moduleHash,
                       char const* pipeline) override
    {
        if (m_manager == nullptr)
            return;
        // The identifiers stand for what the tool and the host agreed on; here: 1 a gain,
        // 2 the module's hash folded to a small number, 3 the pipeline's number.
        double const fold = static_cast<double>(moduleHash % 1000);
        ParameterCTValue const first[] = {{1, 1.25}, {2, fold}, {3, std::atof(pipeline)}};
        ParameterCTValue const second[] = {{1, 2.5}, {2, fold}};
        m_manager->SetTriggerValues(modePath, module, pipeline, "instance0", first, 3);
        m_manager->SetTriggerValues(modePath, module, pipeline, "instance1", second, 2);
    }

private:
    ParameterSetManager* m_manager = nullptr;
};

} // namespace

int RunServe(int argc, char** argv)
{
    CommandLine line({}, {"--port", "--bind", "--save-to"});
    if (!line.Parse(argc, argv)) {
        std::fprintf(stderr, "paramctl serve: %s\n%s", line.Error().c_str(), ServeUsage);
        return ExitUsage;
    }
    if (line.Has("--help")) {
        std::fputs(ServeUsage, stdout);
        return ExitSuccess;
    }
    if (line.Operands().size() != 1) {
        std::fputs(ServeUsage, stderr);
        return ExitUsage;
    }
    std::string const& path = line.Operands()[0];
    unsigned short port = 0;
    if (line.Has("--port") && !ParsePortNumber(line.Value("--port"), port)) {
        std::fprintf(stderr, "paramctl serve: --port needs a number from 1 to 65535, not %s\n%s",
                     line.Value("--port").c_str(), ServeUsage);
        return ExitUsage;
    }

    // The server reads FILE from disk while it runs, and a file replaced under it is refused
    // until a reload: the tuned values go to another file.
    struct stat served = {};
    struct stat target = {};
    if (line.Has("--save-to") && stat(path.c_str(), &served) == 0 &&
        stat(line.Value("--save-to").c_str(), &target) == 0 && served.st_dev == target.st_dev &&
        served.st_ino == target.st_ino) {
        std::fprintf(stderr, "paramctl serve: --save-to must name another file than FILE\n%s",
                     ServeUsage);
        return ExitUsage;
    }

    struct sigaction action = {};
    action.sa_handler = RequestStop;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    action.sa_handler = RequestReload;
    sigaction(SIGHUP, &action, nullptr);
    action.sa_handler = RequestSave;
    sigaction(SIGUSR1, &action, nullptr);

    // Declared before the manager so that it is destroyed after it: the manager's destructor
    // stops the command thread, which calls the handler until then.
    DemoHandler handler;
    ServeSetManager manager;
    handler.Attach(&manager);
    if ((line.Has("--port") || line.Has("--bind")) &&
        !manager.SetKnobbyListenAddress(line.Value("--bind").c_str(), port)) {
        std::fprintf(stderr,
                     "paramctl serve: --bind needs a numeric IPv4 or IPv6 address, not %s\n%s",
                     line.Value("--bind").c_str(), ServeUsage);
        return ExitUsage;
    }
    // Installed before the load, so the worker's thread sees it from its first request.
    manager.SetKnobbyHandler(&handler);
    // The library's text for a file that is not there speaks of allocation: say it plainly.
    if (access(path.c_str(), R_OK) != 0) {
        std::fprintf(stderr, "paramctl serve: cannot open %s: %s\n", path.c_str(),
                     std::strerror(errno));
        return ExitFailure;
    }
    // The live tuning server starts at the end of a successful load.
    if (!manager.LoadBinaryParameters(path.c_str())) {
        std::fprintf(stderr, "paramctl serve: %s: %s\n", Printable(path).c_str(),
                     Printable(manager.GetErrorString()).c_str());
        return ExitFailure;
    }
    unsigned short const listening = manager.GetKnobbyPort();
    if (listening == 0) {
        std::fprintf(stderr, "paramctl serve: no port could be bound\n");
        return ExitFailure;
    }
    std::string const saveTo = line.Value("--save-to");
    // What live tuning started from: the values saved are those that differ from it.
    std::vector<unsigned char> original;
    std::string reason;
    if (!saveTo.empty() && !ReadInputFile(path, original, reason)) {
        std::fprintf(stderr, "paramctl serve: %s: %s\n", Printable(path).c_str(), reason.c_str());
        return ExitFailure;
    }
    std::printf("listening on port %u\n", static_cast<unsigned int>(listening));
    std::fflush(stdout);

    // The demo camera: publishes control values until stopped.
    std::atomic<bool> stop{false};
    std::thread publisher([&] {
        unsigned int frame = 0;
        while (!stop) {
            ++frame;
            manager.SetControlValue({1, static_cast<double>(frame)});
            manager.SetControlValue({2, std::sin(frame / 10.0)});
            manager.SetControlValue({3, 0.033 - 0.001 * (frame % 10)});
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
    });
    while (g_stopRequested == 0) {
        if (g_reloadRequested != 0) {
            g_reloadRequested = 0;
            if (manager.ReloadBinaryParameters(false)) {
                std::printf("reloaded %s: tag %s, listening on port %u\n", path.c_str(),
                            manager.GetBinaryTag() != nullptr ? manager.GetBinaryTag() : "",
                            static_cast<unsigned int>(manager.GetKnobbyPort()));
                if (!saveTo.empty() && !ReadInputFile(path, original, reason))
                    std::fprintf(stderr, "paramctl serve: %s: %s\n", Printable(path).c_str(),
                                 reason.c_str());
            } else
                std::fprintf(stderr, "paramctl serve: reload of %s failed: %s\n",
                             Printable(path).c_str(), Printable(manager.GetErrorString()).c_str());
            std::fflush(stdout);
        }
        if (g_saveRequested != 0) {
            g_saveRequested = 0;
            if (!saveTo.empty())
                manager.SaveTuned(original, saveTo);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    stop = true;
    publisher.join();
    if (!saveTo.empty())
        manager.SaveTuned(original, saveTo);
    std::printf("stopping\n");
    std::fflush(stdout);
    return ExitSuccess;
}

} // namespace ParamCtl
