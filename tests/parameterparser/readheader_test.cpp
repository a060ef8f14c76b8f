// SPDX-License-Identifier: Apache-2.0
// The header and the section table of writer-made files, and a whole load past them: module
// records, failures half way and allocation failures, in buffer and file mode.
#include <cstdint>
#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/moduledata.h"
#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterfileheader.h"
#include "parameterparser/parameterfilesymboltableentry.h"
#include "parameterparser/parametersetmanager.h"
#include "parameterparser/parsercrc.h"
#include "tools/writer/modesectionbuilder.h"
#include "tools/writer/symboltablebuilder.h"
#include "tools/writer/tuningfilewriter.h"

#include "tests/common/formatfiles.h"
#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"
#include "tests/common/testsetmanager.h"

namespace {

using ParamTest::Module;
using TuningWriter::Damage;
using TuningWriter::FileVersion;
using TuningWriter::SectionType;
using TuningWriter::TuningFileWriter;
using Messages = std::vector<std::string>;

TuningFileWriter SoundFile(FileVersion version)
{
    TuningFileWriter writer(version);
    writer.AddMinimalSections();
    return writer;
}

unsigned int Size(std::vector<uint8_t> const& bytes)
{
    return static_cast<unsigned int>(bytes.size());
}

// A sentinel that shows whether the reader touched headerFlags.
constexpr unsigned long UntouchedFlags = 0xABCDEF;

constexpr char const* OlderFormat =
    "Warning: This is an older binary format, only Default mode data is supported. To support "
    "multiple modes, please re-generate binary using the latest version of Varitonal";
constexpr char const* BadChecksum = "Binary file CRC validation failed";
constexpr char const* BadTag = "Invalid binary header tag: ";
constexpr char const* Unsupported = "Unsupported binary header version : ";
constexpr char const* TooSmall = "Binary header data too small: Expected: ";

struct HeaderCase
{
    char const* name;
    FileVersion version;
    Damage damage;
    /// The error text, or its start when the damaged tag or the version completes it.
    std::string errorText;
    /// An exact message expected in the log, or empty.
    std::string logged;
    /// Width of the checksums in the logged mismatch; 0 when none is logged.
    size_t checksumDigits = 0;
    /// For a file that passes: its alignment, and whether its header has a flags word.
    unsigned char alignment = 1;
    bool flagsField = true;
    uint64_t flags = 0x10;
};

class ReadHeaderTest : public ::testing::TestWithParam<HeaderCase>
{
};

// Every refusal and the one warning, each by the first check that the damage trips: the order of
// the checks decides the message. An unreadable version counts as 0.0.0. Sound files of every
// version gate pass through the manager's static reader, which only happens if it picks the
// checksum their writer used; fields the version does not have stay as the caller gave them, and
// a tag replaces (and frees) the caller's earlier one.
TEST_P(ReadHeaderTest, ChecksInOrder)
{
    HeaderCase const& param = GetParam();
    ParamTest::LogCapture log;
    ParamTest::TestSetManager logger;
    TuningFileWriter writer = SoundFile(param.version);
    std::vector<uint8_t> bytes = writer.SetBinaryTag("rear-camera")
                                     .SetHeaderFlags(param.flags)
                                     .SetDamage(param.damage)
                                     .Build();
    unsigned int pos = 0, sectionOffset = 0, sectionCount = 0;
    unsigned char alignment = 0;
    VersionUnion version;
    unsigned long readFlags = UntouchedFlags;
    char* tag = static_cast<char*>(VornCalloc(1, VornTagAllocData));
    char* const earlierTag = tag;
    char errorText[ParameterSetManager::ErrorStringLength] = "stale";
    bool const accepted = param.errorText.empty() || param.errorText == OlderFormat;
    EXPECT_EQ(ParameterSetManager::ReadHeader(bytes.data(), Size(bytes), pos, sectionOffset,
                                              alignment, version, tag, readFlags, sectionCount,
                                              errorText, &logger),
              accepted);
    std::string expected =
        param.errorText + (param.errorText == BadTag ? *param.damage.headerTag : "");
    FileVersion const& v = param.version;
    if (param.errorText == Unsupported)
        expected += std::to_string(v.major) + "." + std::to_string(v.minor) + "." +
                    std::to_string(v.patch) +
                    ". Please re-generate parser code using the latest version of ParameterParser";
    if (param.errorText == TooSmall)
        expected += std::to_string(bytes.size() + 1) +
                    " bytes, Actual: " + std::to_string(bytes.size()) + " bytes";
    EXPECT_EQ(errorText, expected);
    if (!param.logged.empty()) {
        EXPECT_TRUE(log.HasMessage(param.logged)) << param.logged;
    }
    bool const versionRead = param.damage.cutAt == 0 || param.damage.cutAt >= 40;
    EXPECT_EQ(version, versionRead ? VersionUnion(v.major, v.minor, v.patch) : VersionUnion());
    if (accepted) {
        bool const tagField = param.errorText != OlderFormat;
        auto const end = static_cast<unsigned int>(writer.HeaderSize());
        EXPECT_EQ(std::make_tuple(alignment, sectionOffset, pos, sectionCount, readFlags),
                  std::make_tuple(param.alignment, end, end, 2u,
                                  param.flagsField ? param.flags : UntouchedFlags));
        EXPECT_EQ(tag == earlierTag, !tagField);
        EXPECT_STREQ(tag, tagField ? "rear-camera" : "");
        // The error text is optional.
        ParameterFileHeader header;
        EXPECT_TRUE(ReadFileHeader(bytes.data(), Size(bytes), header, nullptr, nullptr));
    }
    VornFree(tag, VornTagRelease);
    if (param.checksumDigits != 0) {
        // "Binary file CRC validation failed. Expected: %x, Actual: %x\n" at the checksum's width.
        std::string const lead = std::string(BadChecksum) + ". Expected: ";
        size_t found = 0;
        for (std::string const& message : log.Messages())
            found += message.rfind(lead, 0) == 0 &&
                     message.size() == lead.size() + 2 * param.checksumDigits + 11;
        EXPECT_EQ(found, 1u);
    }
}

/// A sound file with one field of its damage set.
template <typename Field, typename Value> Damage Set(Field Damage::*field, Value value)
{
    Damage damage;
    damage.*field = value;
    return damage;
}

// A short header is told by the first field that does not fit.
HeaderCase CutCase(char const* name, FileVersion version, uint32_t cutAt, unsigned int offset,
                   unsigned int width)
{
    return {name, version, Set(&Damage::cutAt, cutAt),
            "General error parsing binary header data header",
            "Failed to read " + std::to_string(width) + " bytes from binary file offset " +
                std::to_string(offset) + ", length " + std::to_string(cutAt) + "\n"};
}

// clang-format off
std::vector<HeaderCase> const HeaderCases = {
    {"OlderFormatWarns", {1, 0, 1}, {}, OlderFormat, "", 0, 1, false},
    {"V1_0_2", {1, 0, 2}, {}, "", "", 0, 1, false},
    {"V1_1_0", {1, 1, 0}, {}, "", "", 0, 8, false},
    {"V3_0_0", {3, 0, 0}, {}, "", "", 0, 8},
    {"V3_0_1", {3, 0, 1}, {}, "", ""},
    {"V5_9_9", {5, 9, 9}, {}, "", ""},
    {"V6_0_0", {6, 0, 0}, {}, "", ""},
    {"V7_0_0", {7, 0, 0}, {}, "", ""},
    // A compressed file was short on purpose: the flag lets it past the size check.
    {"CompressedFlagLetsShortBufferPass", {7, 0, 0}, Set(&Damage::fileSize, 1u << 20), "", "", 0,
     1, true, 0x2},
    CutCase("CutInTag", {7, 0, 0}, 20, 28, 4),
    CutCase("CutInFileSize", {7, 0, 0}, 30, 28, 4),
    CutCase("CutInVersion", {7, 0, 0}, 36, 32, 8),
    CutCase("CutInBinaryTag", {7, 0, 0}, 100, 152, 8),
    CutCase("CutInFlags", {7, 0, 0}, 156, 152, 8),
    CutCase("CutInSectionOffset", {7, 0, 0}, 162, 160, 4),
    // The last field ends exactly at the bound: one byte short of it fails.
    CutCase("CutOneShortOfSectionCount", {7, 0, 0}, 167, 164, 4),
    // Below 3.0.0 there is no flags word: the section offset follows the tag.
    CutCase("CutBehindTagBelow3", {2, 0, 0}, 154, 152, 4),
    CutCase("CutInOldHeader", {1, 0, 1}, 42, 40, 4),
    {"EmptyTag", {7, 0, 0}, Set(&Damage::emptyHeaderTag, true),
     "Failed to read binary header tag", ""},
    {"TagWithMoreCharacters", {7, 0, 0}, Set(&Damage::headerTag, "ZEL Varitonal Header2"), BadTag,
     ""},
    {"TagOtherCase", {7, 0, 0}, Set(&Damage::headerTag, "ZEL VARITONAL HEADER"), BadTag, ""},
    // FileSize at the buffer's length passes (every sound file); one byte more is refused.
    {"BufferOneShortOfFileSize", {7, 0, 0}, Set(&Damage::truncate, 1), TooSmall, ""},
    // The tag is checked before the size, the version before the checksum.
    {"WrongTagAndTooSmall", {7, 0, 0}, [] { Damage d = Set(&Damage::headerTag, "Other");
        d.fileSize = 1u << 20; return d; }(), BadTag, ""},
    {"Version7_0_1", {7, 0, 1}, {}, Unsupported, ""},
    {"Version7_1_0WithBadChecksum", {7, 1, 0}, Set(&Damage::badChecksum, true), Unsupported, ""},
    // The checksum width follows the version, and its place follows the buffer's length:
    // bytes appended behind a sound file move it.
    {"Crc32Below6", {5, 9, 9}, Set(&Damage::badChecksum, true), BadChecksum, "", 8},
    {"Crc32OldFormat", {1, 0, 1}, Set(&Damage::badChecksum, true), BadChecksum, "", 8},
    {"Crc64From6", {6, 0, 0}, Set(&Damage::badChecksum, true), BadChecksum, "", 16},
    {"BufferLongerThanFileSize", {7, 0, 0}, Set(&Damage::appended, std::vector<uint8_t>(8)),
     BadChecksum, "", 16},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Faults, ReadHeaderTest, ::testing::ValuesIn(HeaderCases),
                         [](::testing::TestParamInfo<HeaderCase> const& test) {
                             return std::string(test.param.name);
                         });

// Records are 12 bytes at alignment 1 and 24 at alignment 8; mode sections keep file order. The
// manager's static form hands the same records out one by one.
TEST(ReadSectionInfoTest, StoresEveryTypeInOrder)
{
    for (FileVersion const version : {FileVersion{2, 0, 0}, FileVersion{7, 0, 0}}) {
        TuningFileWriter writer(version);
        SectionType const types[] = {SectionType::Mode,      SectionType::Symbol,
                                     SectionType::Data,      SectionType::Mode,
                                     SectionType::DataTable, SectionType::Definition};
        for (size_t i = 0; i < 6; ++i)
            writer.AddSection(types[i], std::vector<uint8_t>(16 + 8 * i, 1));
        std::vector<uint8_t> bytes = writer.Build();
        auto pos = static_cast<unsigned int>(writer.HeaderSize());
        ParameterSetManager::SectionInfo symbol{}, dataTable{}, data{}, definitions{};
        PList<ParameterSetManager::SectionInfo> modes;
        ASSERT_TRUE(ParameterSetManager::ReadSectionInfo(
            bytes.data(), Size(bytes), pos, writer.Alignment(), 6, symbol, dataTable, modes, data,
            definitions, nullptr, nullptr));
        ASSERT_EQ(modes.Count(), 2u);
        ParameterSetManager::SectionInfo const read[] = {modes[0], symbol,    data,
                                                         modes[1], dataTable, definitions};
        for (size_t i = 0; i < 6; ++i) {
            EXPECT_EQ(read[i].Offset, writer.SectionOffsetAt(i)) << i;
            EXPECT_EQ(read[i].Size, 16 + 8 * i) << i;
        }
        EXPECT_EQ(pos, writer.HeaderSize() + 6 * (writer.Alignment() == 1 ? 12u : 24u));
    }
}

// The table's count, its records and the buffer's end each bound the read; records before a
// refusal stay stored, and without a logger a refusal leaves no line.
TEST(ReadSectionInfoTest, RefusesTablesThatBreakALimit)
{
    std::string const length = std::to_string(Size(SoundFile({7, 0, 0}).Build()));
    // Name, count, where the table starts (behind the header, or this many bytes before the
    // buffer's end), whether a third record of type 9 follows, whether a logger is given, the
    // result, the error text and the message logged.
    std::tuple<char const*, unsigned int, unsigned int, bool, bool, bool, char const*,
               std::string> const cases[] = {
        {"one record, silent", 1, 0, false, false, false, "", ""},
        {"one record", 1, 0, false, true, false, "",
         "ReadSectionInfo: Section count 1 is less than Min sections 2\n"},
        {"the least count", 2, 0, false, true, true, "", ""},
        {"unknown type", 3, 0, true, true, false, "", "Invalid binary section type 9\n"},
        {"table ends at the buffer's end", 2, 24, false, true, true, "", ""},
        {"one field past the end", 2, 8, false, true, false,
         "Error reading data from header sections",
         "Failed to read 4 bytes from binary file offset " + length + ", length " + length + "\n"},
    };
    for (auto const& [name, count, fromEnd, unknownRecord, logged, read, error, message] : cases) {
        SCOPED_TRACE(name);
        ParamTest::LogCapture log;
        ParamTest::TestSetManager logger;
        TuningFileWriter writer = SoundFile({7, 0, 0});
        if (unknownRecord)
            writer.AddRawSectionRecord(9, 0, 0);
        std::vector<uint8_t> bytes = writer.Build();
        unsigned int const start =
            fromEnd == 0 ? static_cast<unsigned int>(writer.HeaderSize()) : Size(bytes) - fromEnd;
        ParameterByteReader reader(bytes.data(), Size(bytes), 1, logged ? &logger : nullptr, start);
        ParameterSectionTable sections;
        char errorText[ParameterSetManager::ErrorStringLength] = {};
        EXPECT_EQ(ReadSectionRecords(reader, count, sections, errorText), read);
        EXPECT_STREQ(errorText, error);
        EXPECT_EQ(log.Messages(), message.empty() ? Messages{} : Messages{message});
        if (fromEnd == 0) {
            EXPECT_EQ(sections.symbol.Offset, count >= 2 ? writer.SectionOffsetAt(0) : 0u);
            EXPECT_EQ(sections.data.Offset, count >= 2 ? writer.SectionOffsetAt(1) : 0u);
        }
    }
    ParameterByteReader none(nullptr, 0, 1, nullptr);
    ParameterSectionTable sections;
    char errorText[ParameterSetManager::ErrorStringLength] = {};
    EXPECT_FALSE(ReadSectionRecords(none, 2, sections, errorText));
    EXPECT_STREQ(errorText, "ReadSectionInfo: buffer is nullptr");
}

// ---- Whole loads past the section table -------------------------------------------------------

struct LoadCase
{
    FileVersion version;
    bool fileMode;
};

class ReadSectionsTest : public ::testing::TestWithParam<LoadCase>
{
protected:
    static ParamTest::TestSetManager::Options Options()
    {
        ParamTest::TestSetManager::Options options;
        options.fileModeAllowed = GetParam().fileMode;
        return options;
    }

    /// Writes the mode section, if any, and the symbol builder's tables with a block that pads
    /// the file past the 3388-byte header window a file read in file mode must hold.
    void Write(TuningWriter::SymbolTableBuilder& symbols,
               TuningWriter::ModeSectionBuilder const* modes = nullptr)
    {
        TuningFileWriter writer(GetParam().version);
        if (modes != nullptr)
            modes->AddTo(writer);
        symbols.AddData(std::vector<uint8_t>(FillerSize, 0x5A));
        symbols.AddTo(writer);
        Write(writer);
    }

    void Write(TuningFileWriter const& writer)
    {
        m_bytes = writer.Build();
        m_temp.Rewrite(m_bytes);
    }

    bool Load(ParamTest::TestSetManager& manager)
    {
        if (!GetParam().fileMode)
            return manager.LoadBinaryParameters(m_bytes.data(), m_bytes.size());
        return manager.LoadBinaryParameters(m_temp.Path().c_str());
    }

    static constexpr size_t FillerSize = 4000;
    ParamTest::LogCapture m_log;
    ParamTest::TempFile m_temp;
    ParamTest::TestSetManager m_manager{Options()};
    std::vector<uint8_t> m_bytes;
};

// A file whose symbol section is empty loads, with no modules and a message that says why; the
// table never took the file over: the load closed and dropped it.
TEST_P(ReadSectionsTest, FileWithoutSymbolEntriesLoadsWithNoModules)
{
    TuningFileWriter writer(GetParam().version);
    writer.AddSection(SectionType::Symbol, {});
    writer.AddSection(SectionType::Data, std::vector<uint8_t>(FillerSize, 0x5A));
    Write(writer);
    ASSERT_TRUE(Load(m_manager));
    EXPECT_TRUE(m_log.HasMessage(
        "ReadModeSections: Binary missing symbol table or data SymbolOffset(" +
        std::to_string(writer.SectionOffsetAt(0)) + ") && SymbolSize(0) && DataOffset(" +
        std::to_string(writer.SectionOffsetAt(1)) + ") && DataSize(" + std::to_string(FillerSize) +
        ")\n"));
    ParameterFileSymbolTable* table = m_manager.GetSymbolTable();
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->Modules().Count(), 0u);
    EXPECT_EQ(table->GetFile(), nullptr);
}

// Module records of kinds the manager does not know fail the load, one error per record, while
// every table is read and every record is in place. Buffer mode keeps nothing of the tables once
// the modules are made; file mode keeps the lookups and the file, closed until an entry is read.
TEST_P(ReadSectionsTest, UnknownModulesFailTheLoadButTheTablesStay)
{
    FileVersion const version = GetParam().version;
    TuningWriter::ModeSectionBuilder modes(0, "Camera");
    uint32_t const root = modes.AddPath("Default");
    uint32_t const sensor = modes.AddPath("Default|Sensor.2");
    TuningWriter::SymbolTableBuilder symbols(version);
    symbols.AddModule(Module("FLIndicesType", "root module", root));
    uint32_t const second = symbols.AddModule(Module("aecArbitration", "sensor module", sensor));
    Write(symbols, &modes);

    EXPECT_FALSE(Load(m_manager));
    EXPECT_FALSE(m_manager.GetLoadStatus());
    std::string last;
    for (auto const& [name, mode] : {std::pair<char const*, int>{"FLIndicesType", 0},
                                     std::pair<char const*, int>{"aecArbitration", 1}}) {
        char text[256];
        std::snprintf(text, sizeof(text),
                      "Failed to find header module:  Name Hash: %llx, Major: 3, Minor: 4, "
                      "Patch: 0, Mode: %d",
                      version.major >= 6 ? ParserCRC64::HashName(name) : 0ull, mode);
        last = text;
        EXPECT_TRUE(m_log.HasMessage(last + "\n"));
    }
    EXPECT_EQ(m_log.Count("Failed to find header module: "), 2u);
    EXPECT_EQ(m_manager.GetErrorString(), last);

    ParameterFileSymbolTable* table = m_manager.GetSymbolTable();
    ASSERT_NE(table, nullptr);
    ASSERT_EQ(table->Modules().Count(), 2u);
    EXPECT_EQ(table->Modules()[1]->ModeId, sensor);
    EXPECT_EQ(table->GetSymbolEntries(), nullptr);
    ParameterFileSymbolTableEntry entry;
    if (!GetParam().fileMode) {
        EXPECT_EQ(table->GetSymbolLookup(), nullptr);
        EXPECT_FALSE(table->Find(entry, second, true));
        return;
    }
    ASSERT_NE(table->GetFile(), nullptr);
    EXPECT_FALSE(table->GetFile()->IsOpen());
    EXPECT_EQ(table->GetFile()->GetReferenceCount(), 0);
    ASSERT_TRUE(table->Find(entry, second, true));
    EXPECT_EQ(std::string(reinterpret_cast<char const*>(entry.Data), entry.Size), "sensor module");
    EXPECT_FALSE(table->GetFile()->IsOpen());
}

// Allocation failures at every step of a load, and a load that fails half way through the symbol
// table: each ends in a refused load or a loaded file, never in a crash or a leak.
TEST_P(ReadSectionsTest, FailuresAtAnyStepLeakNothing)
{
    FileVersion const version = GetParam().version;
    TuningWriter::SymbolTableBuilder symbols(version);
    // A symbol entry that is no module: the tables are read, and no module record stops the load.
    symbols.AddModule(Module("", "plain", TuningWriter::NoModuleModeId));
    uint32_t const original = symbols.AddData({'s', 'h', 'a', 'r', 'e', 'd'});
    symbols.AddData({'s', 'h', 'a', 'r', 'e', 'd'}, original);
    Write(symbols);

    // Enough steps for the whole load to run through: the last load must succeed.
    constexpr int Steps = 120;
    bool loaded = false;
    for (int successes = 0; successes <= Steps; ++successes) {
        size_t const before = Vorn::Testing::AllocatedBytes();
        {
            ParamTest::TestSetManager manager(Options());
            Vorn::Testing::FailAllocationsAfter(successes);
            loaded = Load(manager);
            Vorn::Testing::ResetAllocationFailure();
            if (successes == Steps) {
                ASSERT_NE(manager.GetSymbolTable(), nullptr);
                // The two equal blocks form a group where the version stores DuplicateID.
                EXPECT_EQ(manager.GetSymbolTable()->GetDataDuplicateCount(),
                          version.major > 3 ? 2u : 1u);
            }
        }
        ASSERT_EQ(Vorn::Testing::AllocatedBytes(), before) << "after " << successes;
    }
    EXPECT_TRUE(loaded);

    size_t const before = Vorn::Testing::AllocatedBytes();
    {
        ParamTest::TestSetManager manager(Options());
        TuningWriter::SymbolTableBuilder broken(version);
        broken.AddModule(Module("a", "first"));
        TuningWriter::TableDamage damage;
        damage.sizes[broken.AddModule(Module("b", "second"))] = 50000;
        broken.AddModule(Module("c", "third"));
        broken.SetDamage(damage);
        Write(broken);
        EXPECT_FALSE(Load(manager));
        EXPECT_TRUE(m_log.HasMessage("Failed to read symbol table from binary file\n"));
        ASSERT_NE(manager.GetSymbolTable(), nullptr);
        EXPECT_EQ(manager.GetSymbolTable()->Modules().Count(), 0u);
    }
    EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before);
}

INSTANTIATE_TEST_SUITE_P(Versions, ReadSectionsTest,
                         ::testing::Values(LoadCase{{5, 0, 0}, false}, LoadCase{{5, 0, 0}, true},
                                           LoadCase{{7, 0, 0}, false}, LoadCase{{7, 0, 0}, true},
                                           LoadCase{{1, 1, 0}, false}),
                         [](::testing::TestParamInfo<LoadCase> const& test) {
                             return ParamTest::VersionName(test.param.version) +
                                    (test.param.fileMode ? "_File" : "_Buffer");
                         });

} // namespace
