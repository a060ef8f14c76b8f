// SPDX-License-Identifier: Apache-2.0
// paramctl schema: the schema a tuning file carries, as the module generator's schema tables.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "tools/paramctl/commandline.h"
#include "tools/paramctl/commands.h"
#include "tools/paramctl/document/schematables.h"
#include "tools/paramctl/document/tuningdocument.h"
#include "tools/paramctl/inputfile.h"
#include "tools/paramctl/printable.h"

namespace ParamCtl {

namespace {

constexpr char SchemaUsage[] =
    "usage: paramctl schema FILE [--namespace NS] [--manager NAME] -o DIR\n"
    "\n"
    "Writes the schema FILE carries in its definition table as input of the module generator\n"
    "(tools/generator/README.md) into DIR, and prints the names of the files written. A module\n"
    "of a pipeline block's shape (a nest of trigger levels, a trigger tree, or a flat block)\n"
    "becomes a version of its block's family, <block>.family; any other module a schema table\n"
    "<namespace>.schema of plain types, named after the module. --namespace NS puts every\n"
    "module into the one table NS.schema, as plain types. Module versions come from the file's\n"
    "instances. --manager NAME also writes NAME.list, the module list of a set manager NAME\n"
    "that registers every module of FILE. The generator turns the files into modules that read\n"
    "every member of FILE. A member the tables cannot state as the file holds it is named on\n"
    "stderr.\n";

bool WriteText(std::string const& path, std::string const& text)
{
    FILE* stream = std::fopen(path.c_str(), "wb");
    if (stream == nullptr)
        return false;
    bool const written = std::fwrite(text.data(), 1, text.size(), stream) == text.size();
    return std::fclose(stream) == 0 && written;
}

} // namespace

int RunSchema(int argc, char** argv)
{
    CommandLine line({}, {"-o", "--output", "--namespace", "--manager"});
    if (!line.Parse(argc, argv)) {
        std::fprintf(stderr, "paramctl schema: %s\n%s", line.Error().c_str(), SchemaUsage);
        return ExitUsage;
    }
    if (line.Has("--help")) {
        std::fputs(SchemaUsage, stdout);
        return ExitSuccess;
    }
    std::string const output = line.Value("-o", line.Value("--output"));
    if (line.Operands().size() != 1 || output.empty()) {
        std::fputs(SchemaUsage, stderr);
        return ExitUsage;
    }
    std::string const& path = line.Operands()[0];
    std::vector<unsigned char> bytes;
    std::string reason;
    Json document;
    if (!ReadInputFile(path, bytes, reason) || !ReadTuningDocument(bytes, document, reason)) {
        std::fprintf(stderr, "paramctl schema: %s: %s\n", Printable(path).c_str(),
                     Printable(reason).c_str());
        return ExitFailure;
    }
    std::map<std::string, std::string> tables;
    std::vector<std::string> notes;
    if (!ExportSchemaTables(document, line.Value("--namespace"), line.Value("--manager"), tables,
                            notes, reason)) {
        std::fprintf(stderr, "paramctl schema: %s: %s\n", Printable(path).c_str(),
                     Printable(reason).c_str());
        return ExitFailure;
    }
    if (mkdir(output.c_str(), 0777) != 0 && errno != EEXIST) {
        std::fprintf(stderr, "paramctl schema: cannot make %s: %s\n", Printable(output).c_str(),
                     std::strerror(errno));
        return ExitFailure;
    }
    for (auto const& [name, text] : tables) {
        std::string const target = output + "/" + name;
        if (!WriteText(target, text)) {
            std::fprintf(stderr, "paramctl schema: cannot write %s: %s\n",
                         Printable(target).c_str(), std::strerror(errno));
            return ExitFailure;
        }
        std::printf("%s\n", Printable(target).c_str());
    }
    for (std::string const& note : notes)
        std::fprintf(stderr, "paramctl schema: %s: %s\n", Printable(path).c_str(), note.c_str());
    return ExitSuccess;
}

} // namespace ParamCtl
