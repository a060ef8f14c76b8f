// SPDX-License-Identifier: Apache-2.0
// Tests of the set manager frame: load paths, refusals, error text and logging identity.
#include "parameterparser/parametersetmanager.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/writer/bytesink.h"
#include "tools/writer/definitiontablebuilder.h"
#include "tools/writer/modesectionbuilder.h"
#include "tools/writer/symboltablebuilder.h"
#include "tools/writer/tuningfilewriter.h"

#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"
#include "tests/common/testsetmanager.h"

namespace {

// Names each instance of a table-driven test after its case.
template <typename Case> std::string CaseName(::testing::TestParamInfo<Case> const& test)
{
    return test.param.name;
}

using ParamTest::TestSetManager;
using TuningWriter::Damage;
using TuningWriter::FileVersion;
using TuningWriter::SectionType;
using TuningWriter::TuningFileWriter;

// Large enough that the section table window of file mode can be read.
constexpr size_t FileModeSize = 4000;

TuningFileWriter SoundFile(FileVersion version = {}, size_t fileSize = FileModeSize)
{
    TuningFileWriter writer(version);
    writer.AddMinimalSections().SetMinimumFileSize(fileSize);
    return writer;
}

TestSetManager::Options Unnamed()
{
    TestSetManager::Options options;
    options.name = nullptr;
    return options;
}

TestSetManager::Options BufferOnly()
{
    TestSetManager::Options options;
    options.fileModeAllowed = false;
    return options;
}

// The same file reached through a path of exactly `length` characters: slashes are added in front
// of the file's base name, which the file system ignores.
std::string PathOfLength(std::string const& path, size_t length)
{
    size_t const slash = path.rfind('/');
    std::string const folder = path.substr(0, slash);
    std::string const base = path.substr(slash + 1);
    return folder + std::string(length - folder.size() - base.size(), '/') + base;
}

class ParameterSetManagerTest : public ::testing::Test
{
protected:
    ParamTest::LogCapture m_log;
};

TEST_F(ParameterSetManagerTest, LoadsFromBuffer)
{
    TuningFileWriter writer = SoundFile({6, 0, 0});
    TuningWriter::ModeSectionBuilder modes(0, "rear");
    modes.AddPath("Default|Sensor.0");
    modes.AddTo(writer);
    TuningWriter::DefinitionStructure structure;
    structure.id = 1;
    structure.name = "OneType";
    structure.elements.push_back({});
    structure.elements.back().name = "value";
    writer.AddSection(SectionType::Definition,
                      TuningWriter::DefinitionTableBuilder().AddStructure(structure).Build(1));
    std::vector<uint8_t> bytes = writer.Build();
    TestSetManager manager;

    ASSERT_TRUE(manager.LoadBinaryParameters(bytes.data(), bytes.size()));
    EXPECT_TRUE(manager.GetLoadStatus());
    EXPECT_NE(manager.GetSymbolTable(), nullptr);
    EXPECT_FALSE(manager.IsFileMode());
    EXPECT_STREQ(manager.GetErrorString(), "");
    EXPECT_STREQ(manager.GetBinaryTag(), "sample");
    EXPECT_EQ(manager.GetBinaryVersion(), VersionUnion(6, 0, 0));
    EXPECT_EQ(manager.GetSectionCount(), 4u);
    EXPECT_EQ(manager.GetSymbolSection().Offset, writer.SectionOffsetAt(0));
    EXPECT_EQ(manager.GetDataSection().Offset, writer.SectionOffsetAt(1));
    ASSERT_EQ(manager.GetModeSections().Count(), 1u);
    EXPECT_EQ(manager.GetModeSections()[0].Offset, writer.SectionOffsetAt(2));
    EXPECT_EQ(manager.GetDefinitionSection().Offset, writer.SectionOffsetAt(3));
    EXPECT_EQ(manager.GetDataTableSection().Size, 0u);
    EXPECT_TRUE(
        m_log.HasMessage("Load Binary Parameters completed: Tag: sample, Version: 6.0.0\n"));
}

struct ByNameCase
{
    char const* name;
    bool fileModeAllowed;
};

class LoadByNameTest : public ParameterSetManagerTest,
                       public ::testing::WithParamInterface<ByNameCase>
{
};

// A manager that does not allow file mode reads the file whole and works as if from a buffer.
TEST_P(LoadByNameTest, LoadsInModeTheManagerAllows)
{
    TuningFileWriter const writer = SoundFile();
    ParamTest::TempFile file(writer.Build());
    TestSetManager::Options options;
    options.fileModeAllowed = GetParam().fileModeAllowed;
    TestSetManager manager(options);

    ASSERT_TRUE(manager.LoadBinaryParameters(file.Path().c_str()));
    EXPECT_NE(manager.GetSymbolTable(), nullptr);
    EXPECT_EQ(manager.IsFileMode(), GetParam().fileModeAllowed);
    EXPECT_EQ(manager.GetDataSection().Offset, writer.SectionOffsetAt(1));
    EXPECT_TRUE(m_log.HasMessage("Load Binary Parameters from file: " + file.Path() + "\n"));
}

INSTANTIATE_TEST_SUITE_P(Modes, LoadByNameTest,
                         ::testing::Values(ByNameCase{"FileMode", true},
                                           ByNameCase{"BufferMode", false}),
                         CaseName<ByNameCase>);

TEST_F(ParameterSetManagerTest, SecondLoadIsRefusedAndKeepsLoadedFile)
{
    ParamTest::TempFile file(SoundFile({7, 0, 0}).SetBinaryTag("first").Build());
    std::vector<uint8_t> other = SoundFile({5, 0, 0}).SetBinaryTag("second").Build();
    TestSetManager manager;
    ASSERT_TRUE(manager.LoadBinaryParameters(file.Path().c_str()));
    ParameterFileSymbolTable const* table = manager.GetSymbolTable();

    EXPECT_FALSE(manager.LoadBinaryParameters(other.data(), other.size()));
    EXPECT_STREQ(manager.GetErrorString(), "Binary file already loaded");
    EXPECT_FALSE(manager.LoadBinaryParameters(file.Path().c_str()));
    EXPECT_EQ(m_log.Count("Binary file already loaded\n"), 2u);
    EXPECT_FALSE(manager.GetLoadStatus());
    EXPECT_EQ(manager.GetSymbolTable(), table);
    EXPECT_STREQ(manager.GetBinaryTag(), "first");
    EXPECT_EQ(manager.GetBinaryVersion(), VersionUnion(7, 0, 0));
}

TEST_F(ParameterSetManagerTest, FreeAllowsLoadingAgain)
{
    std::vector<uint8_t> bytes = SoundFile().Build();
    TestSetManager manager;
    ASSERT_TRUE(manager.LoadBinaryParameters(bytes.data(), bytes.size()));
    manager.FreeBinaryParameters();
    EXPECT_EQ(manager.GetSymbolTable(), nullptr);
    EXPECT_EQ(manager.GetBinaryTag(), nullptr);
    EXPECT_EQ(manager.GetLoggingIdentifier(), nullptr);
    EXPECT_TRUE(manager.LoadBinaryParameters(bytes.data(), bytes.size()));
    EXPECT_STREQ(manager.GetBinaryTag(), "sample");
}

// The stored name has room for 1022 characters and its terminator.
TEST_F(ParameterSetManagerTest, FileNameOf1022CharactersLoadsAnd1023DoesNot)
{
    ParamTest::TempFile file(SoundFile().Build());
    TestSetManager manager;
    std::string const tooLong = PathOfLength(file.Path(), 1023);
    EXPECT_FALSE(manager.LoadBinaryParameters(tooLong.c_str()));
    EXPECT_TRUE(m_log.HasMessage("File name length (1023) exceeds max file name length of 1023\n"));
    EXPECT_EQ(manager.GetSymbolTable(), nullptr);

    std::string const longest = PathOfLength(file.Path(), 1022);
    EXPECT_TRUE(manager.LoadBinaryParameters(longest.c_str()));
    EXPECT_TRUE(manager.IsFileMode());
}

TEST_F(ParameterSetManagerTest, RefusalsBeforeReadingKeepStatus)
{
    std::vector<uint8_t> bytes = SoundFile().Build();
    TestSetManager manager;
    ASSERT_TRUE(manager.LoadBinaryParameters(bytes.data(), bytes.size()));
    manager.FreeBinaryParameters();

    // Neither a null nor an overlong name changes the status of the last load.
    EXPECT_TRUE(manager.LoadBinaryParameters(static_cast<char const*>(nullptr)));
    EXPECT_STREQ(manager.GetErrorString(), "LoadBinaryParameters called with nullptr file name");
    EXPECT_TRUE(manager.LoadBinaryParameters(std::string(2000, 'a').c_str()));

    EXPECT_FALSE(manager.LoadBinaryParameters(bytes.data(), 0x100000000UL));
    EXPECT_TRUE(m_log.HasMessage("Buffer length (4294967296) exceeds maximum 4294967295\n"));
    EXPECT_EQ(manager.GetSymbolTable(), nullptr);
}

// In file mode only the first bytes are read for the section table; a file shorter than that
// window keeps the header it passed and loads with no tables.
TEST_F(ParameterSetManagerTest, ShortFileInFileModeLoadsWithoutTables)
{
    ParamTest::TempFile file(SoundFile({7, 0, 0}, 100).Build());
    TestSetManager manager;
    EXPECT_TRUE(manager.LoadBinaryParameters(file.Path().c_str()));
    EXPECT_TRUE(
        m_log.HasMessage("Failed to read 3388 bytes from binary file " + file.Path() + "\n"));
    EXPECT_EQ(manager.GetSymbolTable(), nullptr);
    EXPECT_TRUE(manager.IsFileMode());
    EXPECT_STREQ(manager.GetBinaryTag(), "sample");
}

struct CompressedCase
{
    char const* name;
    bool byName;
    bool fileModeAllowed;
    char const* logged;
};

class CompressedFileTest : public ParameterSetManagerTest,
                           public ::testing::WithParamInterface<CompressedCase>
{
};

// A compressed file passes the header even though it is shorter than its FileSize, and each load
// path then refuses it with its own message.
TEST_P(CompressedFileTest, IsRefusedAfterHeader)
{
    TuningFileWriter writer = SoundFile({7, 0, 0});
    writer.SetHeaderFlags(ParameterSetManager::CompressedFlag);
    Damage damage;
    damage.fileSize = 1u << 20;
    writer.SetDamage(damage);
    ParamTest::TempFile file(writer.Build());
    std::vector<uint8_t> bytes = writer.Build();
    TestSetManager::Options options;
    options.fileModeAllowed = GetParam().fileModeAllowed;
    TestSetManager manager(options);

    bool const loaded = GetParam().byName
                            ? manager.LoadBinaryParameters(file.Path().c_str())
                            : manager.LoadBinaryParameters(bytes.data(), bytes.size());
    EXPECT_FALSE(loaded);
    EXPECT_FALSE(manager.GetLoadStatus());
    EXPECT_TRUE(m_log.HasMessage(GetParam().logged)) << GetParam().logged;
    EXPECT_EQ(manager.GetSymbolTable(), nullptr);
    EXPECT_EQ(manager.GetBinaryFlags(), ParameterSetManager::CompressedFlag);
}

INSTANTIATE_TEST_SUITE_P(
    Paths, CompressedFileTest,
    ::testing::Values(
        CompressedCase{"FileMode", true, true,
                       "Compressed binary files ssupport removed in V5.1.0\n"},
        CompressedCase{"BufferByName", true, false,
                       "Compressed binary file not supported (support ended with V5.1.0)\n"},
        CompressedCase{"Buffer", false, true,
                       "Compressed binary file not supported (support ended with V5.1.0)\n"}),
    CaseName<CompressedCase>);

// A file with one of the faults the writer can make, on the sound minimal file.
struct RefusalCase
{
    char const* name;
    TuningFileWriter writer;
    char const* error; ///< the error text exactly; null: any text that explains
};

TuningFileWriter WithDamage(Damage damage, FileVersion version = {})
{
    return SoundFile(version).SetDamage(std::move(damage));
}

// One data block in damaged tables: bytes behind the symbol entries, or, if entrySize is not 0,
// a Size field of the block's entry that runs past the data.
TuningFileWriter WithTables(uint32_t trailingBytes, uint32_t entrySize)
{
    TuningFileWriter writer;
    TuningWriter::SymbolTableBuilder symbols(writer.Version());
    TuningWriter::ModuleEntry block;
    block.modeId = TuningWriter::NoModuleModeId;
    block.data.assign(FileModeSize, 0x5A);
    uint32_t const id = symbols.AddModule(std::move(block));
    TuningWriter::TableDamage damage;
    damage.symbolTrailingBytes = trailingBytes;
    if (entrySize != 0)
        damage.sizes[id] = entrySize;
    symbols.SetDamage(std::move(damage));
    symbols.AddTo(writer);
    return writer;
}

std::vector<RefusalCase> RefusingFaults()
{
    std::vector<RefusalCase> cases;
    auto add = [&cases](char const* name, TuningFileWriter writer, char const* error = nullptr) {
        cases.push_back({name, std::move(writer), error});
    };
    Damage damage;
    damage.headerTag = "Some Other Header";
    add("WrongTag", WithDamage(damage), "Invalid binary header tag: Some Other Header");
    damage = {};
    damage.emptyHeaderTag = true;
    add("EmptyTag", WithDamage(damage));
    damage = {};
    damage.fileSize = 0x80000000u;
    add("FileSizeAboveLength", WithDamage(damage));
    damage = {};
    damage.cutAt = 30;
    add("ShortHeader", WithDamage(damage));
    damage = {};
    damage.sectionOffset = 0xFFFFFF00u;
    add("SectionTablePastEnd", WithDamage(damage));
    damage = {};
    damage.sectionCount = 1;
    add("SingleSection", WithDamage(damage), "Invalid binary file section count");
    damage = {};
    damage.sectionCount = 100000;
    add("SectionCountPastEnd", WithDamage(damage));
    damage = {};
    damage.badChecksum = true;
    add("BadChecksum", WithDamage(damage));
    add("BadChecksum32", WithDamage(damage, {5, 0, 0}));
    damage = {};
    damage.truncate = 3;
    add("Truncated", WithDamage(damage));
    damage = {};
    damage.appended = {1, 2, 3};
    add("BytesBehindChecksum", WithDamage(damage));
    add("UnsupportedVersion", WithDamage({}, {7, 0, 1}),
        "Unsupported binary header version : 7.0.1. Please re-generate parser code using the "
        "latest version of ParameterParser");
    damage = {};
    damage.fileSize = 1u << 20;
    add("Compressed", WithDamage(damage).SetHeaderFlags(ParameterSetManager::CompressedFlag));
    add("SymbolSectionPastEnd", SoundFile().AddRawSectionRecord(0, 0xFFFF0000u, 64));
    add("UnknownSectionType", SoundFile().AddRawSectionRecord(9, 0, 0));
    add("SymbolTableNotWhole", WithTables(3, 0));
    add("EntryPastData", WithTables(0, 0x7FFFFFF0u));
    return cases;
}

// Whatever refuses a file, in buffer or in file mode, leaves a text that says why: a fault's
// own message or the first error logged where the fault was found, never nothing.
TEST_F(ParameterSetManagerTest, EveryRefusalExplainsItself)
{
    for (RefusalCase const& fault : RefusingFaults()) {
        std::vector<uint8_t> const bytes = fault.writer.Build();
        ParamTest::TempFile file(bytes);
        for (bool const byName : {false, true}) {
            SCOPED_TRACE(std::string(fault.name) + (byName ? " by name" : " from buffer"));
            TestSetManager manager;
            std::vector<uint8_t> copy = bytes;
            bool const loaded = byName ? manager.LoadBinaryParameters(file.Path().c_str())
                                       : manager.LoadBinaryParameters(copy.data(), copy.size());
            EXPECT_FALSE(loaded);
            // A header or section table fault is found before any table is made.
            if (fault.error != nullptr) {
                EXPECT_STREQ(manager.GetErrorString(), fault.error);
                EXPECT_EQ(manager.GetSymbolTable(), nullptr);
            }
            EXPECT_STRNE(manager.GetErrorString(), "");
            EXPECT_STRNE(manager.GetErrorString(), "Binary file refused with no reason logged");
        }
    }
}

// A file that cannot be read whole names the reason the file system gives.
TEST_F(ParameterSetManagerTest, UnreadableFileNamesItsReason)
{
    ParamTest::TempFile empty(std::vector<uint8_t>{});
    ParamTest::TempFile file;
    std::string const missing = file.Path() + ".missing";
    std::string const folder = file.Path().substr(0, file.Path().rfind('/'));
    struct Case
    {
        std::string path;
        std::string error;
    } const cases[] = {
        // The system's text, in whatever language the host's locale gives it.
        {missing, "Unable to open binary file '" + missing + "': " + std::strerror(ENOENT)},
        {folder, "Unable to read binary file '" + folder + "': Is a directory"},
        {empty.Path(), "Binary file '" + empty.Path() + "' is empty"},
    };
    for (Case const& test : cases) {
        TestSetManager manager;
        EXPECT_FALSE(manager.LoadBinaryParameters(test.path.c_str()));
        EXPECT_EQ(manager.GetErrorString(), test.error);
        EXPECT_FALSE(manager.IsFileMode());
    }
}

TEST_F(ParameterSetManagerTest, SectionCountDetailStaysInLog)
{
    Damage damage;
    damage.sectionCount = 1;
    std::vector<uint8_t> bytes = SoundFile().SetDamage(damage).Build();
    TestSetManager manager;
    EXPECT_FALSE(manager.LoadBinaryParameters(bytes.data(), bytes.size()));
    EXPECT_TRUE(m_log.HasMessage("ReadSectionInfo: Section count 1 is less than Min sections 2\n"));
}

// The older-format warning only explains a failure; a successful load leaves no error.
TEST_F(ParameterSetManagerTest, OlderFormatLoadsWithoutError)
{
    std::vector<uint8_t> bytes = SoundFile({1, 0, 1}).Build();
    TestSetManager manager(Unnamed());
    EXPECT_TRUE(manager.LoadBinaryParameters(bytes.data(), bytes.size()));
    EXPECT_STREQ(manager.GetErrorString(), "");
    EXPECT_EQ(manager.GetBinaryTag(), nullptr);
    EXPECT_EQ(manager.GetLoggingIdentifier(), nullptr);
    EXPECT_TRUE(m_log.HasMessage(
        "ReadHeader: Binary Version 1.0.1 < ModeTreeMinVersion, BinaryTag not set\n"));
}

struct IdentifierCase
{
    char const* name;
    char const* managerName;
    std::string binaryTag;
    std::string identifier;
};

class LoggingIdentifierTest : public ParameterSetManagerTest,
                              public ::testing::WithParamInterface<IdentifierCase>
{
};

TEST_P(LoggingIdentifierTest, CombinesNameAndTag)
{
    std::vector<uint8_t> bytes = SoundFile().SetBinaryTag(GetParam().binaryTag).Build();
    TestSetManager::Options options;
    options.name = GetParam().managerName;
    TestSetManager manager(options);
    ASSERT_TRUE(manager.LoadBinaryParameters(bytes.data(), bytes.size()));
    ASSERT_NE(manager.GetLoggingIdentifier(), nullptr);
    EXPECT_EQ(manager.GetLoggingIdentifier(), GetParam().identifier);
    // Every line of the manager carries it.
    manager.SetError("marker");
    EXPECT_TRUE(m_log.Contains("(" + GetParam().identifier + "): marker\n"));
}

// The combined text has room for the name plus 65 characters: ";BinaryTag=" and 54 of the tag.
std::string const LongTag(63, 't');

INSTANTIATE_TEST_SUITE_P(
    Names, LoggingIdentifierTest,
    ::testing::Values(IdentifierCase{"NoName", nullptr, "rear", "rear"},
                      IdentifierCase{"EmptyName", "", "rear", "rear"},
                      IdentifierCase{"Named", "cam0", "rear", "cam0;BinaryTag=rear"},
                      IdentifierCase{"TagCut", "cam0", LongTag,
                                     "cam0;BinaryTag=" + std::string(54, 't')}),
    CaseName<IdentifierCase>);

TEST_F(ParameterSetManagerTest, NameIsIdentifierBeforeLoad)
{
    TestSetManager named;
    TestSetManager unnamed(Unnamed());
    EXPECT_STREQ(named.GetLoggingIdentifier(), "TestSetManager");
    EXPECT_EQ(unnamed.GetLoggingIdentifier(), nullptr);
}

TEST_F(ParameterSetManagerTest, DerivedManagerLoadsIntoMain)
{
    std::vector<uint8_t> bytes = SoundFile().Build();
    TestSetManager main(BufferOnly());
    TestSetManager::Options options;
    options.name = "derived";
    options.main = &main;
    {
        TestSetManager derived(options);
        ASSERT_TRUE(derived.LoadBinaryParameters(bytes.data(), bytes.size()));
        EXPECT_NE(main.GetSymbolTable(), nullptr);
        EXPECT_EQ(derived.GetSymbolTable(), main.GetSymbolTable());
        EXPECT_FALSE(derived.LoadBinaryParameters(bytes.data(), bytes.size()));
        EXPECT_STREQ(main.GetErrorString(), "Binary file already loaded");
        EXPECT_STREQ(derived.GetLoggingIdentifier(), "derived");
    }
    // Destroying the handle leaves the main manager's file in place.
    EXPECT_NE(main.GetSymbolTable(), nullptr);
    EXPECT_STREQ(main.GetBinaryTag(), "sample");
}

} // namespace
