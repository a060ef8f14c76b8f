// SPDX-License-Identifier: Apache-2.0
// The same tuning content read by this library and by the parsers a camera stack would pick
// instead: the binary file opened (header, checksum, tables) and fully materialised (every module
// of every mode read into its typed structure, a buffer-mode load), against a DOM parse of its
// JSON dump by RapidJSON and by simdjson and a node-tree parse of the same content as YAML by
// libyaml. scripts/peers writes the inputs (a file of about 150 KB and one of about 16 MB, their
// `paramctl dump --json` and the YAML made from that) and runs this program on them.
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <simdjson.h>
#include <yaml.h>

#include <benchmark/benchmark.h>

#include "paramgen/fdSetManager.h"
#include <rapidjson/document.h>

namespace {

// The inputs of one size: the binary file's path and the bytes of all three forms.
struct Content
{
    std::string binaryPath;
    std::vector<uint8_t> binary;
    std::string json;
    std::string yaml;

    bool Ok() const { return !binary.empty() && !json.empty() && !yaml.empty(); }
};

std::string ReadAll(std::string const& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

Content LoadContent(char const* name)
{
    char const* folder = std::getenv("PEERS_DATA");
    std::string const base = std::string(folder != nullptr ? folder : ".") + "/" + name;
    std::string const binary = ReadAll(base + ".bin");
    return Content{base + ".bin", std::vector<uint8_t>(binary.begin(), binary.end()),
                   ReadAll(base + ".json"), ReadAll(base + ".yaml")};
}

Content const& Inputs(int64_t large)
{
    static Content const small = LoadContent("small");
    static Content const big = LoadContent("large");
    return large != 0 ? big : small;
}

// Skips the benchmark when scripts/peers has not written the inputs.
Content const* Usable(benchmark::State& state)
{
    Content const& content = Inputs(state.range(0));
    if (!content.Ok()) {
        state.SkipWithError("no inputs: run scripts/peers, or set PEERS_DATA to its folder");
        return nullptr;
    }
    state.SetLabel(state.range(0) != 0 ? "large" : "small");
    return &content;
}

// Times work on a fresh subject each iteration; making and destroying the subject are not timed.
template <typename Make, typename Work>
void TimeEach(benchmark::State& state, Make make, Work work, char const* refusal)
{
    for (auto _ : state) {
        state.PauseTiming();
        auto subject = make();
        state.ResumeTiming();
        bool const done = work(*subject);
        state.PauseTiming();
        subject.reset();
        state.ResumeTiming();
        if (!done) {
            state.SkipWithError(refusal);
            break;
        }
    }
}

// A writable copy of the file beside a manager, for a buffer-mode load.
struct BufferLoad
{
    explicit BufferLoad(std::vector<uint8_t> const& file) : bytes(file) {}

    std::vector<uint8_t> bytes;
    fdSetManager manager{"peers"};
};

// A libyaml parser over the YAML and the document it loads.
struct YamlLoad
{
    explicit YamlLoad(std::string const& yaml)
    {
        yaml_parser_initialize(&parser);
        yaml_parser_set_input_string(&parser, reinterpret_cast<unsigned char const*>(yaml.data()),
                                     yaml.size());
    }
    ~YamlLoad()
    {
        if (loaded)
            yaml_document_delete(&document);
        yaml_parser_delete(&parser);
    }
    YamlLoad(YamlLoad const&) = delete;
    YamlLoad& operator=(YamlLoad const&) = delete;

    yaml_parser_t parser;
    yaml_document_t document;
    bool loaded = false;
};

void BM_Peers_OursOpen(benchmark::State& state)
{
    Content const* content = Usable(state);
    if (content == nullptr)
        return;
    TimeEach(
        state, [] { return std::make_unique<fdSetManager>("peers"); },
        [content](fdSetManager& manager) {
            return manager.LoadBinaryParameters(content->binaryPath.c_str());
        },
        "the file did not load");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * content->binary.size()));
}

void BM_Peers_OursMaterialise(benchmark::State& state)
{
    Content const* content = Usable(state);
    if (content == nullptr)
        return;
    TimeEach(
        state, [content] { return std::make_unique<BufferLoad>(content->binary); },
        [](BufferLoad& load) {
            return load.manager.LoadBinaryParameters(load.bytes.data(), load.bytes.size());
        },
        "the file did not load");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * content->binary.size()));
}

void BM_Peers_RapidJsonDom(benchmark::State& state)
{
    Content const* content = Usable(state);
    if (content == nullptr)
        return;
    TimeEach(
        state, [] { return std::make_unique<rapidjson::Document>(); },
        [content](rapidjson::Document& document) {
            return !document.Parse(content->json.data(), content->json.size()).HasParseError();
        },
        "RapidJSON refused the JSON");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * content->json.size()));
}

// The parser is kept between iterations, as simdjson is meant to be used.
void BM_Peers_SimdjsonDom(benchmark::State& state)
{
    Content const* content = Usable(state);
    if (content == nullptr)
        return;
    simdjson::padded_string const json(content->json);
    simdjson::dom::parser parser;
    for (auto _ : state) {
        simdjson::dom::element root;
        if (parser.parse(json).get(root) != simdjson::SUCCESS) {
            state.SkipWithError("simdjson refused the JSON");
            break;
        }
        benchmark::DoNotOptimize(root);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * content->json.size()));
}

void BM_Peers_LibyamlNodeTree(benchmark::State& state)
{
    Content const* content = Usable(state);
    if (content == nullptr)
        return;
    TimeEach(
        state, [content] { return std::make_unique<YamlLoad>(content->yaml); },
        [](YamlLoad& load) {
            load.loaded = yaml_parser_load(&load.parser, &load.document) != 0;
            return load.loaded;
        },
        "libyaml refused the YAML");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * content->yaml.size()));
}

} // namespace

BENCHMARK(BM_Peers_OursOpen)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Peers_OursMaterialise)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Peers_RapidJsonDom)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Peers_SimdjsonDom)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Peers_LibyamlNodeTree)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
