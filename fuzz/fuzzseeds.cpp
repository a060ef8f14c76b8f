// SPDX-License-Identifier: Apache-2.0
// Writes the seed corpus of one fuzz target, all of it made by the writer or the packet writer:
//
//     fuzz_seeds CORPUS FOLDER
//
// tuningfile (also the checksum, buffer load and module targets' corpus): the repository's
// descriptions at every layout; document: the same files and their JSON documents; livetuning:
// request streams; paths: mode and value paths of the path target's modules; algosettings:
// override settings files.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "parameterparser/livetuning/parameterknobbypacket.h"
#include "tools/paramctl/document/tuningdocument.h"
#include "tools/writer/tuningdescription.h"

#include "paramgen/ImageSensorModuleSetManager.writer.h"
#include "paramgen/TuningSetManager.writer.h"
#include "paramgen/bitmlSetManager.writer.h"
#include "paramgen/fdSetManager.writer.h"
#include "tests/common/loopbackclient.h"

namespace {

using ParamTest::Bytes;

std::string g_folder;
unsigned int g_written = 0;

/// Writes bytes to the corpus folder as the next numbered seed; false, after saying why, when it
/// cannot.
template <typename Data> bool Write(Data const& bytes)
{
    std::string const path = g_folder + "/seed-" + std::to_string(g_written++);
    FILE* file = std::fopen(path.c_str(), "wb");
    bool written =
        file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (file != nullptr)
        written = std::fclose(file) == 0 && written;
    if (!written)
        std::perror(path.c_str());
    return written;
}

// tuningfile and document: the bundled sample and the tests' descriptions (every member kind,
// structure records of a schema, a module of another set manager) at every layout the loader
// reads (both alignments, both checksums, each header size); the document corpus adds each
// file's JSON document.
bool Descriptions(bool documents)
{
    for (char const* name :
         {"examples/sample.tuning", "tests/tools/schemaexport.tuning",
          "tests/tools/triggerlookalike.tuning", "tests/tools/otherkinds.tuning"}) {
        std::ifstream stream(std::string(PARAM_SOURCE_DIR "/") + name);
        std::stringstream text;
        text << stream.rdbuf();
        for (char const* version : {"7.0.0", "6.0.0", "5.0.0", "4.0.0", "3.0.1", "3.0.0", "2.0.0",
                                    "1.1.0", "1.0.2", "1.0.1"}) {
            TuningWriter::TuningDescription description(
                {&ParamSchema::TuningSetManager::Instances(),
                 &ParamSchema::ImageSensorModuleSetManager::Instances(),
                 &ParamSchema::fdSetManager::Instances(),
                 &ParamSchema::bitmlSetManager::Instances()});
            if (!stream || !description.Parse(text.str() + "\nversion " + version + "\n")) {
                std::fprintf(stderr, "%s %s: %s\n", name, version, description.Error().c_str());
                return false;
            }
            Bytes const bytes = description.MakeWriter().Build();
            ParamCtl::Json document;
            std::string error;
            if (documents && !ParamCtl::ReadTuningDocument(bytes, document, error)) {
                std::fprintf(stderr, "%s %s: %s\n", name, version, error.c_str());
                return false;
            }
            if (!Write(bytes) || (documents && !Write(document.dump())))
                return false;
        }
    }
    return true;
}

// livetuning: streams of the commands without and with a module, and one of heads the reader
// must throw away (lengths too short and too long to complete, a command past the last) followed
// by good requests; each stream under two splits.
bool LiveTuning()
{
    namespace Wire = ParameterKnobbyPacket;
    using ParamTest::Request;
    // The mode of the served file that the requests ask about.
    std::string const preview = "Default|Sensor.0|Usecase.Preview:";
    // A head with one field written over.
    auto damaged = [](unsigned int offset, uint16_t value) {
        Bytes packet = Request(Wire::ActiveModes);
        Wire::PutU16(packet.data() + offset, value);
        return packet;
    };
    std::vector<Bytes> const streams[] = {
        {Request(Wire::DeviceInfo), Request(Wire::ControlValues),
         Request(Wire::Modes, "Default|Sensor.0"), Request(Wire::ModeIndex, "1"),
         Request(Wire::Custom, "ping"),
         Request(Wire::TriggerValues, preview + "t2tconfigdata:ipe")},
        {Request(Wire::Info, preview + "t2tconfigdata.module_version"),
         Request(Wire::GetValues, preview + "t2tconfigdata:confidenceThreshold,downscaleRatio"),
         Request(Wire::GetValues, preview + "t2tconfigdata.operationMode"),
         Request(Wire::SetValues,
                 preview + "t2tconfigdata:confidenceThreshold=90;downscaleRatio=0.125"),
         Request(Wire::SetValues, preview + "t2tconfigdata:nothing=1;operationMode=")},
        {damaged(Wire::LengthOffset, 0), Request(Wire::ActiveModes),
         damaged(Wire::LengthOffset, 65535), damaged(Wire::CommandOffset, Wire::CommandCount),
         Request(Wire::GetValues, preview + "t2tconfigdata.precisionMode")},
    };
    for (std::vector<Bytes> const& stream : streams) {
        for (uint16_t split : {1, 4242}) {
            // The split seed frames the stream.
            Bytes framed = {static_cast<uint8_t>(split), static_cast<uint8_t>(split >> 8)};
            for (Bytes const& packet : stream)
                framed.insert(framed.end(), packet.begin(), packet.end());
            if (!Write(framed))
                return false;
        }
    }
    return true;
}

// paths: numeric and named mode paths of the bundled sample with a module, a member, an array
// element and sub-variables of the path target's modules read through them.
bool Paths()
{
    for (char const* seed :
         {"0.0|1.0|2.0\nt2tconfigdata.operationMode",
          "Default|Sensor.0|Usecase.Preview\nt2tconfigdata",
          "0.0|1.0\nvaritonalTOF.SceneChange.scene_change_distance_thres[1]",
          "Default|Sensor.0\nvaritonalTOF.SceneChange\npanning_stable_cnt,distance_region",
          "0.0\nvaritonalTrackerROIMixer.GazeFocus.YawThresholdLow",
          "Default|Sensor.1|Usecase.Snapshot|Scene.Night\nversionsA_sw.parameter_version."
          "revision"}) {
        if (!Write(std::string(seed)))
            return false;
    }
    return true;
}

// algosettings: a value of each kind and spelling after a first line (the one the target reads
// back) of each number form; then a string longer than the store keeps and a line longer than
// the reader's buffer, which is read in pieces.
bool AlgoSettings()
{
    std::string const body = "# tuning overrides\n; a comment of the other kind\ngain=1.5\n"
                             "ratio = 0.25\noffset=-12\nmask=0x1F\noctal=010\nlarge=1e10\n"
                             "enable=true\ndisable=FALSE\nMixed=True\nname=rear camera\nGAIN=2\n"
                             "a==5\n=5\nnovalue=\ncrlf=7\r\n";
    for (char const* first :
         {"42",  "-7",         "0",           "3.25", "-0.5", "1e3",    "1.000000005e1", "0x10",
          "010", "2147483648", "-2147483649", "inf",  "nan",  "true",   "FALSE",         "text",
          "1,5", "0x1p-3",     "4294967295",  ".5",   "5.",   "1e-320", "-1e308",        "+9"}) {
        if (!Write(std::string(first) + "\n" + body))
            return false;
    }
    std::string const longText(80, 's');
    return Write(longText + "\nkey=" + longText + "\nlong=" + std::string(300, '7') + "=x\n");
}

} // namespace

int main(int argc, char** argv)
{
    struct
    {
        char const* name;
        bool (*write)();
    } const corpora[] = {{"tuningfile", [] { return Descriptions(false); }},
                         {"document", [] { return Descriptions(true); }},
                         {"livetuning", LiveTuning},
                         {"paths", Paths},
                         {"algosettings", AlgoSettings}};
    for (auto const& corpus : corpora) {
        if (argc == 3 && std::strcmp(argv[1], corpus.name) == 0) {
            g_folder = argv[2];
            return corpus.write() ? 0 : 1;
        }
    }
    std::fprintf(stderr, "usage: %s CORPUS FOLDER\n", argv[0]);
    return 2;
}
