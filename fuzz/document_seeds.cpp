// SPDX-License-Identifier: Apache-2.0
// Writes the seed corpus of the document fuzz target: the bundled sample and the schema export
// description written by the writer at several file versions, each as the binary file and as its
// compact JSON document.
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tools/paramctl/document/tuningdocument.h"
#include "tools/writer/tuningdescription.h"

#include "fuzz/seedwriter.h"
#include "paramgen/ImageSensorModuleSetManager.writer.h"
#include "paramgen/TuningSetManager.writer.h"
#include "paramgen/bitmlSetManager.writer.h"
#include "paramgen/fdSetManager.writer.h"

namespace {

// The description's text with its version line replaced.
std::string AtVersion(std::string const& text, std::string const& version)
{
    std::istringstream lines(text);
    std::string result = "version " + version + "\n";
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("version ", 0) != 0)
            result += line + "\n";
    }
    return result;
}

bool WriteSeeds(std::string const& folder, std::string const& name, std::string const& text,
                std::string const& version)
{
    TuningWriter::TuningDescription description(
        {&ParamSchema::TuningSetManager::Instances(),
         &ParamSchema::ImageSensorModuleSetManager::Instances(),
         &ParamSchema::fdSetManager::Instances(), &ParamSchema::bitmlSetManager::Instances()});
    if (!description.Parse(AtVersion(text, version))) {
        std::fprintf(stderr, "%s: %s\n", name.c_str(), description.Error().c_str());
        return false;
    }
    std::vector<unsigned char> const bytes = description.MakeWriter().Build();
    ParamCtl::Json document;
    std::string error;
    if (!ParamCtl::ReadTuningDocument(bytes, document, error)) {
        std::fprintf(stderr, "%s %s: %s\n", name.c_str(), version.c_str(), error.c_str());
        return false;
    }
    std::string const stem = name + "-" + version;
    return FuzzSeeds::Write(folder, stem + ".bin", bytes) &&
           FuzzSeeds::Write(folder, stem + ".json", document.dump());
}

bool WriteAll(std::string const& folder)
{
    char const* const descriptions[][2] = {
        {"sample", PARAM_SOURCE_DIR "/examples/sample.tuning"},
        {"schemaexport", PARAM_SOURCE_DIR "/tests/tools/schemaexport.tuning"}};
    // Both alignments, both checksum widths, with and without the definition section.
    char const* const versions[] = {"7.0.0", "6.0.0", "4.0.0", "1.0.1"};
    for (auto const& [name, path] : descriptions) {
        std::ifstream stream(path);
        std::stringstream text;
        text << stream.rdbuf();
        if (!stream) {
            std::perror(path);
            return false;
        }
        for (char const* version : versions) {
            if (!WriteSeeds(folder, name, text.str(), version))
                return false;
        }
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    return FuzzSeeds::Main(argc, argv, WriteAll);
}
