// SPDX-License-Identifier: Apache-2.0
// Tests of the set manager frame: load paths, refusals, error text and logging identity.
#include "parameterparser/parametersetmanager.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/writer/symboltablebuilder.h"
#include "tools/writer/tuningfilewriter.h"

#include "tests/common/logcapture.h"
#include "tests/common/tempfile.h"
#include "tests/common/testsetmanager.h"

namespace {

using ParamTest::TestSetManager;
using TuningWriter::Damage;
using TuningWriter::FileVersion;
using TuningWriter::TuningFileWriter;

// Large enough that the section table window of file mode can be read.
constexpr size_t FileModeSize = 4000;

TuningFileWriter SoundFile(FileVersion version = {}, size_t fileSize = FileModeSize)
{
    TuningFileWriter writer(version);
    writer.AddMinimalSections().SetMinimumFileSize(fileSize);
    return writer;
}

TestSetManager::Options Named(char const* name, bool fileModeAllowed = true)
{
    TestSetManager::Options options;
    options.name = name;
    options.fileModeAllowed = fileModeAllowed;
    return options;
}

class ParameterSetManagerTest : public ::testing::Test
{
protected:
    ParamTest::LogCapture m_log;
};

// From a buffer, from a file kept open behind the manager, and from a file read whole by a
// manager that does not allow file mode.
TEST_F(ParameterSetManagerTest, LoadsEachWayAndStoresTheSections)
{
    TuningFileWriter writer = SoundFile({6, 0, 0});
    std::vector<uint8_t> bytes = writer.Build();
    ParamTest::TempFile file(bytes);
    for (int way = 0; way < 3; ++way) {
        SCOPED_TRACE(way);
        m_log.Clear();
        TestSetManager manager(Named("TestSetManager", way == 1));
        ASSERT_TRUE(way == 0 ? manager.LoadBinaryParameters(bytes.data(), bytes.size())
                             : manager.LoadBinaryParameters(file.Path().c_str()));
        EXPECT_TRUE(manager.GetLoadStatus());
        EXPECT_NE(manager.GetSymbolTable(), nullptr);
        EXPECT_EQ(manager.IsFileMode(), way == 1);
        EXPECT_STREQ(manager.GetErrorString(), "");
        EXPECT_STREQ(manager.GetBinaryTag(), "sample");
        EXPECT_EQ(manager.GetBinaryVersion(), VersionUnion(6, 0, 0));
        EXPECT_EQ(manager.GetSymbolSection().Offset, writer.SectionOffsetAt(0));
        EXPECT_EQ(manager.GetDataSection().Offset, writer.SectionOffsetAt(1));
        EXPECT_EQ(manager.GetDataTableSection().Size, 0u);
        EXPECT_EQ(manager.GetSectionCount(), 2u);
        EXPECT_EQ(manager.GetDefinitionSection().Size, 0u);
        EXPECT_EQ(manager.GetModeSections().Count(), 0u);
        EXPECT_EQ(m_log.HasMessage("Load Binary Parameters from file: " + file.Path() + "\n"),
                  way != 0);
    }
    EXPECT_TRUE(
        m_log.HasMessage("Load Binary Parameters completed: Tag: sample, Version: 6.0.0\n"));
}

TEST_F(ParameterSetManagerTest, SecondLoadIsRefusedUntilFreed)
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

    manager.FreeBinaryParameters();
    EXPECT_EQ(manager.GetSymbolTable(), nullptr);
    EXPECT_EQ(manager.GetBinaryTag(), nullptr);
    EXPECT_EQ(manager.GetLoggingIdentifier(), nullptr);
    EXPECT_TRUE(manager.LoadBinaryParameters(other.data(), other.size()));
    EXPECT_STREQ(manager.GetBinaryTag(), "second");

    // A derived manager loads into its main manager, whose file outlives the handle.
    TestSetManager main(Named("main", false));
    TestSetManager::Options options = Named("derived");
    options.main = &main;
    {
        TestSetManager derived(options);
        ASSERT_TRUE(derived.LoadBinaryParameters(other.data(), other.size()));
        EXPECT_EQ(derived.GetSymbolTable(), main.GetSymbolTable());
        EXPECT_FALSE(derived.LoadBinaryParameters(other.data(), other.size()));
        EXPECT_STREQ(main.GetErrorString(), "Binary file already loaded");
        EXPECT_STREQ(derived.GetLoggingIdentifier(), "derived");
    }
    EXPECT_NE(main.GetSymbolTable(), nullptr);
    EXPECT_STREQ(main.GetBinaryTag(), "second");
}

// The stored name has room for 1022 characters and its terminator. Neither a null nor an
// overlong name changes the status of the last load.
TEST_F(ParameterSetManagerTest, RefusalsBeforeReadingKeepStatus)
{
    ParamTest::TempFile file(SoundFile().Build());
    // The same file through a path of exactly length characters: slashes in front of its base
    // name, which the file system ignores.
    auto const pathOfLength = [&file](size_t length) {
        size_t const slash = file.Path().rfind('/');
        return file.Path().substr(0, slash) + std::string(length - file.Path().size(), '/') +
               file.Path().substr(slash);
    };
    TestSetManager manager;
    EXPECT_FALSE(manager.LoadBinaryParameters(pathOfLength(1023).c_str()));
    EXPECT_TRUE(m_log.HasMessage("File name length (1023) exceeds max file name length of 1023\n"));
    EXPECT_EQ(manager.GetSymbolTable(), nullptr);
    EXPECT_TRUE(manager.LoadBinaryParameters(pathOfLength(1022).c_str()));
    EXPECT_TRUE(manager.IsFileMode());
    manager.FreeBinaryParameters();

    EXPECT_TRUE(manager.LoadBinaryParameters(static_cast<char const*>(nullptr)));
    EXPECT_STREQ(manager.GetErrorString(), "LoadBinaryParameters called with nullptr file name");
    EXPECT_TRUE(manager.LoadBinaryParameters(std::string(2000, 'a').c_str()));
    std::vector<uint8_t> bytes = SoundFile().Build();
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

// A compressed file passes the header even though it is shorter than its FileSize, and each load
// path then refuses it with its own message.
TEST_F(ParameterSetManagerTest, CompressedFileIsRefusedAfterHeader)
{
    Damage damage;
    damage.fileSize = 1u << 20;
    std::vector<uint8_t> bytes = SoundFile({7, 0, 0})
                                     .SetHeaderFlags(ParameterSetManager::CompressedFlag)
                                     .SetDamage(damage)
                                     .Build();
    ParamTest::TempFile file(bytes);
    struct Case
    {
        bool byName;
        bool fileModeAllowed;
        char const* logged;
    } const cases[] = {
        {true, true, "Compressed binary files ssupport removed in V5.1.0\n"},
        {true, false, "Compressed binary file not supported (support ended with V5.1.0)\n"},
        {false, true, "Compressed binary file not supported (support ended with V5.1.0)\n"},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.logged);
        m_log.Clear();
        TestSetManager manager(Named("TestSetManager", test.fileModeAllowed));
        EXPECT_FALSE(test.byName ? manager.LoadBinaryParameters(file.Path().c_str())
                                 : manager.LoadBinaryParameters(bytes.data(), bytes.size()));
        EXPECT_TRUE(m_log.HasMessage(test.logged));
        EXPECT_STRNE(manager.GetErrorString(), "");
        EXPECT_EQ(manager.GetSymbolTable(), nullptr);
        EXPECT_EQ(manager.GetBinaryFlags(), ParameterSetManager::CompressedFlag);
    }
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

// Whatever refuses a file, in buffer or in file mode, leaves a text that says why: a fault's
// own message or the first error logged where the fault was found, never nothing. One fault of
// each kind the header, the section table and the symbol table find.
TEST_F(ParameterSetManagerTest, EveryRefusalExplainsItself)
{
    struct Case
    {
        char const* name;
        TuningFileWriter writer;
        char const* error; ///< the error text exactly; null: any text that explains
    };
    std::vector<Case> cases;
    auto const damaged = [](auto change, FileVersion version = {}) {
        Damage damage;
        change(damage);
        return SoundFile(version).SetDamage(damage);
    };
    cases.push_back({"WrongTag", damaged([](Damage& d) { d.headerTag = "Some Other Header"; }),
                     "Invalid binary header tag: Some Other Header"});
    cases.push_back({"EmptyTag", damaged([](Damage& d) { d.emptyHeaderTag = true; }), nullptr});
    cases.push_back(
        {"FileSizeAboveLength", damaged([](Damage& d) { d.fileSize = 0x80000000u; }), nullptr});
    cases.push_back({"ShortHeader", damaged([](Damage& d) { d.cutAt = 30; }), nullptr});
    cases.push_back({"Truncated", damaged([](Damage& d) { d.truncate = 3; }), nullptr});
    cases.push_back({"BadChecksum", damaged([](Damage& d) { d.badChecksum = true; }), nullptr});
    cases.push_back(
        {"SectionCountPastEnd", damaged([](Damage& d) { d.sectionCount = 100000; }), nullptr});
    cases.push_back({"SectionTablePastEnd",
                     damaged([](Damage& d) { d.sectionOffset = 0xFFFFFF00u; }), nullptr});
    cases.push_back({"SingleSection", damaged([](Damage& d) { d.sectionCount = 1; }),
                     "Invalid binary file section count"});
    cases.push_back(
        {"BadChecksum32", damaged([](Damage& d) { d.badChecksum = true; }, {5, 0, 0}), nullptr});
    cases.push_back({"BytesBehindChecksum", damaged([](Damage& d) {
                         d.appended = {1, 2, 3};
                     }),
                     nullptr});
    cases.push_back({"UnsupportedVersion", SoundFile({7, 0, 1}),
                     "Unsupported binary header version : 7.0.1. Please re-generate parser code "
                     "using the latest version of ParameterParser"});
    cases.push_back(
        {"SymbolSectionPastEnd", SoundFile().AddRawSectionRecord(0, 0xFFFF0000u, 64), nullptr});
    cases.push_back({"UnknownSectionType", SoundFile().AddRawSectionRecord(9, 0, 0), nullptr});
    cases.push_back({"SymbolTableNotWhole", WithTables(3, 0), nullptr});
    cases.push_back({"EntryPastData", WithTables(0, 0x7FFFFFF0u), nullptr});
    for (Case const& fault : cases) {
        std::vector<uint8_t> const bytes = fault.writer.Build();
        ParamTest::TempFile file(bytes);
        for (bool const byName : {false, true}) {
            SCOPED_TRACE(std::string(fault.name) + (byName ? " by name" : " from buffer"));
            TestSetManager manager;
            std::vector<uint8_t> copy = bytes;
            EXPECT_FALSE(byName ? manager.LoadBinaryParameters(file.Path().c_str())
                                : manager.LoadBinaryParameters(copy.data(), copy.size()));
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
    std::string const missing = empty.Path() + ".missing";
    std::string const folder = empty.Path().substr(0, empty.Path().rfind('/'));
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

// The older-format warning only explains a failure; a successful load leaves no error.
TEST_F(ParameterSetManagerTest, OlderFormatLoadsWithoutError)
{
    std::vector<uint8_t> bytes = SoundFile({1, 0, 1}).Build();
    TestSetManager manager(Named(nullptr));
    EXPECT_TRUE(manager.LoadBinaryParameters(bytes.data(), bytes.size()));
    EXPECT_STREQ(manager.GetErrorString(), "");
    EXPECT_EQ(manager.GetBinaryTag(), nullptr);
    EXPECT_EQ(manager.GetLoggingIdentifier(), nullptr);
    EXPECT_TRUE(m_log.HasMessage(
        "ReadHeader: Binary Version 1.0.1 < ModeTreeMinVersion, BinaryTag not set\n"));
}

TEST_F(ParameterSetManagerTest, LoggingIdentifierCombinesNameAndTag)
{
    EXPECT_STREQ(TestSetManager().GetLoggingIdentifier(), "TestSetManager") << "before a load";
    EXPECT_EQ(TestSetManager(Named(nullptr)).GetLoggingIdentifier(), nullptr);
    // The combined text has room for the name plus 65 characters: ";BinaryTag=" and 54 of the
    // tag, so a tag of 54 characters is whole and one of 55 is cut.
    struct Case
    {
        char const* managerName;
        std::string binaryTag;
        std::string identifier;
    } const cases[] = {
        {nullptr, "rear", "rear"},
        {"", "rear", "rear"},
        {"cam0", "rear", "cam0;BinaryTag=rear"},
        {"cam0", std::string(54, 't'), "cam0;BinaryTag=" + std::string(54, 't')},
        {"cam0", std::string(55, 't'), "cam0;BinaryTag=" + std::string(54, 't')},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.identifier);
        std::vector<uint8_t> bytes = SoundFile().SetBinaryTag(test.binaryTag).Build();
        TestSetManager manager(Named(test.managerName));
        ASSERT_TRUE(manager.LoadBinaryParameters(bytes.data(), bytes.size()));
        ASSERT_NE(manager.GetLoggingIdentifier(), nullptr);
        EXPECT_EQ(manager.GetLoggingIdentifier(), test.identifier);
        // Every line of the manager carries it.
        manager.SetError("marker");
        EXPECT_TRUE(m_log.Contains("(" + test.identifier + "): marker\n"));
    }
}

} // namespace
