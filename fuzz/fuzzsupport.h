// SPDX-License-Identifier: Apache-2.0
// What the fuzz targets share: a log that formats every line and prints none, set at start-up,
// the abort that reports a broken invariant, a manager that reads every table of a file but
// knows no module kind, the checksum written over mutated bytes, and the bundled sample loaded
// into a tuning manager.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/vornlog.h"

#include "parameterparser/parametersetmanager.h"
#include "parameterparser/parsercrc.h"
#include "tools/writer/tuningdescription.h"

#include "paramgen/TuningSetManager.h"
#include "paramgen/TuningSetManager.writer.h"

namespace FuzzSupport {

// Every line is still formatted, so format faults show; printing them would only slow the run.
inline void DropLine(uint32_t, char, uint32_t, char const*, void*)
{
}

inline void SilenceLog()
{
    Vorn::Log::SetSink(DropLine, nullptr);
}

/// Set before the fuzzer's own start-up, so that no target logs its first input either.
inline bool const g_silenced = (SilenceLog(), true);

/// Aborts, naming the broken invariant and the text it broke on, unless holds.
inline void Require(bool holds, char const* what, std::string const& text = "")
{
    if (holds)
        return;
    std::fprintf(stderr, "broken: %s (\"%s\")\n", what, text.c_str());
    std::abort();
}

/// Every table is read; module records end in the registry lookup, which finds nothing.
class FuzzSetManager final : public ParameterSetManager
{
public:
    FuzzSetManager() : ParameterSetManager(nullptr, 0, "fuzz", false) {}
    DefaultModule* GetDefaultModule(unsigned long) override { return nullptr; }
    void SaveAndClearModules() override {}
};

// Header bytes ahead of the version: the 28-byte tag and the u32 file size.
constexpr size_t VersionOffset = 32;
constexpr unsigned int Crc64Major = 6;

// Writes a matching checksum over the mutated bytes, 64-bit from version 6 on, so that a mutation
// reaches the mode, symbol and data tables instead of stopping at the checksum every time.
inline void RestampChecksum(std::vector<unsigned char>& file)
{
    if (file.size() < VersionOffset + 2 + 8 + 1)
        return;
    unsigned int const major = file[VersionOffset] | (file[VersionOffset + 1] << 8);
    size_t const width = major >= Crc64Major ? 8 : 4;
    auto const covered = static_cast<unsigned int>(file.size() - width);
    uint64_t const checksum = width == 8 ? ParserCRC64::GetCRC(file.data(), covered, true, 0)
                                         : ParserCRC32::GetCRC(file.data(), covered, 0);
    for (size_t i = 0; i < width; ++i)
        file[covered + i] = static_cast<unsigned char>(checksum >> (8 * i));
}

/// A tuning manager that knows every module kind of the tuning set, with live tuning off: no
/// socket is opened, and a target that serves requests drives a worker of its own.
class QuietTuningSetManager final : public TuningSetManager
{
public:
    QuietTuningSetManager() : TuningSetManager("fuzz") { m_knobbyEnabled = false; }
};

/// The bundled sample with extra description lines behind it, loaded in buffer mode; aborts when
/// it does not load, since every input would then end in its first lookup. Values that inputs
/// set stay for later ones, as in a long tuning session.
inline TuningSetManager* LoadSample(std::string const& extra = "")
{
    std::ifstream stream(PARAM_SOURCE_DIR "/examples/sample.tuning");
    std::stringstream text;
    text << stream.rdbuf() << extra;
    TuningWriter::TuningDescription description({&ParamSchema::TuningSetManager::Instances()});
    static std::vector<uint8_t> file;
    auto* manager = new QuietTuningSetManager();
    if (!stream || !description.Parse(text.str()) ||
        !manager->LoadBinaryParameters((file = description.MakeWriter().Build()).data(),
                                       file.size())) {
        std::fprintf(stderr, "the sample did not load: %s\n", description.Error().c_str());
        std::abort();
    }
    return manager;
}

} // namespace FuzzSupport
