// SPDX-License-Identifier: Apache-2.0
// paramctl: inspects, queries and packs binary tuning files.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>

#include "platform/vornlog.h"

#include "parameterparser/parameterparserversion.h"
#include "tools/paramctl/commandline.h"
#include "tools/paramctl/commands.h"
#include "tools/paramctl/printable.h"

namespace {

struct Command
{
    char const* name;
    int (*run)(int argc, char** argv);
    char const* summary;
};

constexpr Command Commands[] = {
    {"client", ParamCtl::RunClient, "talk to a live tuning server (info, modes, get, set ...)"},
    {"console", ParamCtl::RunConsole, "the tuning console in a browser: a file or a live camera"},
    {"diff", ParamCtl::RunDiff, "what differs between two tuning files: header, modes, values"},
    {"dump", ParamCtl::RunDump, "module values; --json: the whole file by its own schema"},
    {"entries", ParamCtl::RunEntries, "the symbol table: module instances, modes, sizes, groups"},
    {"get", ParamCtl::RunGet, "read a module's values through a mode branch"},
    {"info", ParamCtl::RunInfo, "header, sections, checksum and schema of a tuning file"},
    {"modes", ParamCtl::RunModes, "the mode tables as trees (--dot for Graphviz)"},
    {"pack", ParamCtl::RunPack, "write a tuning file from a description or a --json document"},
    {"schema", ParamCtl::RunSchema, "the file's own schema as the generator's schema tables"},
    {"serve", ParamCtl::RunServe, "host a tuning file with the live tuning server"},
    {"set", ParamCtl::RunSet, "change a module's values in memory and read them back"},
    {"verify", ParamCtl::RunVerify, "checksum, structure and schema tolerance of a tuning file"},
};

// The library's own log lines stay quiet unless PARAMCTL_LOG is set: paramctl reports failures
// with the manager's error text, and a second copy of it would only be noise.
void QuietLog(uint32_t, char severity, uint32_t, char const* line, void*)
{
    static bool const enabled = std::getenv("PARAMCTL_LOG") != nullptr;
    if (enabled)
        std::fprintf(stderr, "%c %s", severity, line);
}

void PrintUsage(FILE* out)
{
    std::fprintf(out, "usage: paramctl <command> [options] FILE...\n\ncommands:\n");
    for (Command const& command : Commands)
        std::fprintf(out, "  %-8s %s\n", command.name, command.summary);
    std::fprintf(out, "\n'paramctl <command> --help' describes a command; 'paramctl --version'\n"
                      "prints the version.\n");
}

// Runs one command. Whatever the input makes go wrong ends as a message and exit 1: no input
// may abort the tool.
int Run(Command const& command, int argc, char** argv)
{
    try {
        return command.run(argc, argv);
    } catch (std::bad_alloc const&) {
        std::fprintf(stderr, "paramctl %s: out of memory\n", command.name);
    } catch (std::exception const& error) {
        std::fprintf(stderr, "paramctl %s: %s\n", command.name, error.what());
    }
    return ParamCtl::ExitFailure;
}

} // namespace

int main(int argc, char** argv)
{
    Vorn::Log::SetSink(QuietLog, nullptr);
    if (argc < 2) {
        PrintUsage(stderr);
        return ParamCtl::ExitUsage;
    }
    if (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
        PrintUsage(stdout);
        return ParamCtl::ExitSuccess;
    }
    if (std::strcmp(argv[1], "--version") == 0) {
        std::printf("paramctl %s (library %s)\n", PARAMETERPARSER_VERSION_STRING,
                    GetParameterParserVersion());
        return ParamCtl::ExitSuccess;
    }
    for (Command const& command : Commands) {
        if (std::strcmp(argv[1], command.name) == 0)
            return Run(command, argc - 2, argv + 2);
    }
    std::fprintf(stderr, "paramctl: unknown command '%s'\n", ParamCtl::Printable(argv[1]).c_str());
    PrintUsage(stderr);
    return ParamCtl::ExitUsage;
}
