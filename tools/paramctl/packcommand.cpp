// SPDX-License-Identifier: Apache-2.0
// paramctl pack: text description to binary tuning file.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tools/paramctl/commandline.h"
#include "tools/paramctl/commands.h"
#include "tools/paramctl/inputfile.h"
#include "tools/paramctl/printable.h"
#include "tools/writer/tuningdescription.h"

#include "paramgen/ImageSensorModuleSetManager.writer.h"
#include "paramgen/TuningSetManager.writer.h"
#include "paramgen/bitmlSetManager.writer.h"
#include "paramgen/fdSetManager.writer.h"

namespace ParamCtl {

namespace {

constexpr char PackUsage[] =
    "usage: paramctl pack DESCRIPTION -o OUTPUT\n"
    "       paramctl pack --json DOCUMENT -o OUTPUT\n"
    "\n"
    "Writes the binary tuning file described by the text file DESCRIPTION (version, tags,\n"
    "structures, members and modules, or module instances of the set managers with their\n"
    "values; see examples/sample.tuning) to OUTPUT. Every value is checked against its\n"
    "member's type: integers in decimal or 0x hexadecimal within the type's range, floating\n"
    "point values finite and within range; nothing is wrapped or cut. Versions above 7.0.0,\n"
    "an instance given twice in one mode and texts longer than their field are refused.\n"
    "\n"
    "--json writes the file that DOCUMENT, a document of 'paramctl dump --json', describes:\n"
    "the very bytes of the file dumped, or, after edits of values, array lengths or mode\n"
    "entries, a file with its sizes, counts and checksum recomputed. A value that does not\n"
    "fit its member is refused with the member's path.\n";

} // namespace

int RunPack(int argc, char** argv)
{
    CommandLine line({"--json"}, {"-o", "--output"});
    if (!line.Parse(argc, argv)) {
        std::fprintf(stderr, "paramctl pack: %s\n%s", line.Error().c_str(), PackUsage);
        return ExitUsage;
    }
    if (line.Has("--help")) {
        std::fputs(PackUsage, stdout);
        return ExitSuccess;
    }
    std::string const output = line.Value("-o", line.Value("--output"));
    if (line.Operands().size() != 1 || output.empty()) {
        std::fputs(PackUsage, stderr);
        return ExitUsage;
    }

    if (line.Has("--json"))
        return PackDocument(line.Operands()[0], output);

    // Instances may be of any of the shipped set managers.
    TuningWriter::TuningDescription description(
        {&ParamSchema::TuningSetManager::Instances(),
         &ParamSchema::ImageSensorModuleSetManager::Instances(),
         &ParamSchema::fdSetManager::Instances(), &ParamSchema::bitmlSetManager::Instances()});
    std::string const& input = line.Operands()[0];
    std::vector<unsigned char> text;
    std::string reason;
    if (!ReadInputFile(input, text, reason)) {
        std::fprintf(stderr, "paramctl pack: %s: %s\n", Printable(input).c_str(), reason.c_str());
        return ExitFailure;
    }
    if (!description.Parse(std::string(text.begin(), text.end()))) {
        std::fprintf(stderr, "paramctl pack: %s: %s\n", Printable(input).c_str(),
                     Printable(description.Error()).c_str());
        return ExitFailure;
    }
    if (!description.MakeWriter().WriteFile(output)) {
        std::fprintf(stderr, "paramctl pack: cannot write %s: %s\n", Printable(output).c_str(),
                     std::strerror(errno));
        return ExitFailure;
    }
    return ExitSuccess;
}

} // namespace ParamCtl
