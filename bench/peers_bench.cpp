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

#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <simdjson.h>
#include <yaml.h>

#include "paramgen/fdSetManager.h"

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

void BM_Peers_OursOpen(benchmark::State& state)
{
    Content const* content = Usable(state);
    if (content == nullptr)
        return;
    for (auto _ : state) {
        state.PauseTiming();
        auto manager = std::make_unique<fdSetManager>("peers");
        state.ResumeTiming();
        if (!manager->LoadBinaryParameters(content->binaryPath.c_str())) {
            state.SkipWithError("the file did not load");
            break;
        }
        state.PauseTiming();
        manager.reset();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * content->binary.size()));
}

void BM_Peers_OursMaterialise(benchmark::State& state)
{
    Content const* content = Usable(state);
    if (content == nullptr)
        return;
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<uint8_t> bytes = content->binary;
        auto manager = std::make_unique<fdSetManager>("peers");
        state.ResumeTiming();
        if (!manager->LoadBinaryParameters(bytes.data(), bytes.size())) {
            state.SkipWithError("the file did not load");
            break;
        }
        state.PauseTiming();
        manager.reset();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * content->binary.size()));
}

void BM_Peers_RapidJsonDom(benchmark::State& state)
{
    Content const* content = Usable(state);
    if (content == nullptr)
        return;
    for (auto _ : state) {
        state.PauseTiming();
        auto document = std::make_unique<rapidjson::Document>();
        state.ResumeTiming();
        document->Parse(content->json.data(), content->json.size());
        if (document->HasParseError()) {
            state.SkipWithError("RapidJSON refused the JSON");
            break;
        }
        state.PauseTiming();
        document.reset();
        state.ResumeTiming();
    }
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
    for (auto _ : state) {
        yaml_parser_t parser;
        yaml_document_t document;
        yaml_parser_initialize(&parser);
        yaml_parser_set_input_string(
            &parser, reinterpret_cast<unsigned char const*>(content->yaml.data()),
            content->yaml.size());
        bool const loaded = yaml_parser_load(&parser, &document) != 0;
        state.PauseTiming();
        if (loaded)
            yaml_document_delete(&document);
        yaml_parser_delete(&parser);
        state.ResumeTiming();
        if (!loaded) {
            state.SkipWithError("libyaml refused the YAML");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * content->yaml.size()));
}

} // namespace

BENCHMARK(BM_Peers_OursOpen)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Peers_OursMaterialise)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Peers_RapidJsonDom)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Peers_SimdjsonDom)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Peers_LibyamlNodeTree)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
