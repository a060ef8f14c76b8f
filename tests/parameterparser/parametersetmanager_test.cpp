// SPDX-License-Identifier: Apache-2.0
// Tests of the set manager frame: load paths, refusals, error text and logging identity.
#include "parameterparser/parametersetmanager.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vornalloc.h"

#include "parameterparser/modeentry.h"
#include "parameterparser/parametermodetable.h"
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
// manager that does not allow file mode. A file without mode tables gets a default one.
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
        EXPECT_TRUE(manager.GetLoadStatus() && manager.GetErrorString()[0] == '\0');
        EXPECT_EQ(manager.IsFileMode(), way == 1);
        EXPECT_EQ(manager.GetSymbolSection().Offset, writer.SectionOffsetAt(0));
        EXPECT_EQ(manager.GetDataSection().Offset, writer.SectionOffsetAt(1));
        EXPECT_EQ(m_log.HasMessage("Load Binary Parameters from file: " + file.Path() + "\n"),
                  way != 0);
        EXPECT_TRUE(
            m_log.HasMessage("ReadModeSection: No mode tables in binary, creating default\n"));
        ASSERT_EQ(manager.GetModeTableCount(), 1u);
        ModeEntry* const root = manager.GetModeTable(0)->rootMode;
        char path[16] = {};
        root->GetModePath(path, sizeof(path));
        EXPECT_EQ(std::make_pair(root->modeId, std::string(path)),
                  std::make_pair(0u, std::string("0.0")));
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
    EXPECT_FALSE(manager.LoadBinaryParameters(file.Path().c_str()));
    EXPECT_EQ(m_log.Count("Binary file already loaded\n"), 2u);
    EXPECT_FALSE(manager.GetLoadStatus());
    EXPECT_EQ(manager.GetSymbolTable(), table);
    EXPECT_STREQ(manager.GetBinaryTag(), "first");

    manager.FreeBinaryParameters();
    EXPECT_TRUE(manager.GetSymbolTable() == nullptr && manager.GetBinaryTag() == nullptr);
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

// Whatever refuses a file, in buffer or in file mode, leaves a text that says why: a fault's
// own message or the first error logged where the fault was found, never nothing. One fault of
// each layer that finds one (the header, the section table, the symbol table); the header's
// checks one by one are the header reader's tests. A compressed file passes the header though it
// is shorter than its FileSize, and each load path refuses it with its own message.
TEST_F(ParameterSetManagerTest, EveryRefusalExplainsItself)
{
    struct Case
    {
        char const* name;
        TuningFileWriter writer;
        char const* error;          ///< the error text exactly; null: any text that explains
        char const* logged[2] = {}; ///< compressed files: the line from the buffer, from the file
    };
    auto const damaged = [](auto change, FileVersion version = {}) {
        Damage damage;
        change(damage);
        return SoundFile(version).SetDamage(damage);
    };
    // One data block whose entry's Size field runs past the data.
    TuningFileWriter entryPastData;
    TuningWriter::SymbolTableBuilder symbols(entryPastData.Version());
    TuningWriter::ModuleEntry block;
    block.modeId = TuningWriter::NoModuleModeId;
    block.data.assign(FileModeSize, 0x5A);
    TuningWriter::TableDamage tableDamage;
    tableDamage.sizes[symbols.AddModule(std::move(block))] = 0x7FFFFFF0u;
    symbols.SetDamage(std::move(tableDamage));
    symbols.AddTo(entryPastData);
    std::vector<Case> const cases = {
        {"WrongTag", damaged([](Damage& d) { d.headerTag = "Some Other Header"; }),
         "Invalid binary header tag: Some Other Header"},
        {"SectionTablePastEnd", damaged([](Damage& d) { d.sectionOffset = 0xFFFFFF00u; }), nullptr},
        {"SingleSection", damaged([](Damage& d) { d.sectionCount = 1; }),
         "Invalid binary file section count"},
        {"SymbolSectionPastEnd", SoundFile().AddRawSectionRecord(0, 0xFFFF0000u, 64), nullptr},
        {"EntryPastData", entryPastData, nullptr},
        {"Compressed",
         damaged([](Damage& d) { d.fileSize = 1u << 20; }, {7, 0, 0})
             .SetHeaderFlags(ParameterSetManager::CompressedFlag),
         nullptr,
         {"Compressed binary file not supported (support ended with V5.1.0)\n",
          "Compressed binary files ssupport removed in V5.1.0\n"}},
    };
    for (Case const& fault : cases) {
        std::vector<uint8_t> const bytes = fault.writer.Build();
        ParamTest::TempFile file(bytes);
        for (bool const byName : {false, true}) {
            SCOPED_TRACE(std::string(fault.name) + (byName ? " by name" : " from buffer"));
            m_log.Clear();
            TestSetManager manager;
            std::vector<uint8_t> copy = bytes;
            EXPECT_FALSE(byName ? manager.LoadBinaryParameters(file.Path().c_str())
                                : manager.LoadBinaryParameters(copy.data(), copy.size()));
            // A header or section table fault is found before any table is made.
            if (fault.error != nullptr) {
                EXPECT_STREQ(manager.GetErrorString(), fault.error);
            }
            if (fault.error != nullptr || fault.logged[0] != nullptr) {
                EXPECT_EQ(manager.GetSymbolTable(), nullptr);
            }
            if (fault.logged[0] != nullptr) {
                EXPECT_TRUE(m_log.HasMessage(fault.logged[byName ? 1 : 0]));
                EXPECT_EQ(manager.GetBinaryFlags(), ParameterSetManager::CompressedFlag);
            }
            EXPECT_STRNE(manager.GetErrorString(), "");
            EXPECT_STRNE(manager.GetErrorString(), "Binary file refused with no reason logged");
        }
    }
    // A manager that reads the file whole refuses it as a buffer.
    ParamTest::TempFile compressed(cases.back().writer.Build());
    TestSetManager whole(Named("TestSetManager", false));
    EXPECT_FALSE(whole.LoadBinaryParameters(compressed.Path().c_str()));
    EXPECT_EQ(m_log.Count(cases.back().logged[0]), 1u);
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

// The combined text has room for the name plus 65 characters: ";BinaryTag=" and 54 of the tag,
// so a tag of 54 characters is whole and one of 55 is cut. A file older than the binary tag
// leaves an unnamed manager without one, and its warning is no error.
TEST_F(ParameterSetManagerTest, LoggingIdentifierCombinesNameAndTag)
{
    EXPECT_STREQ(TestSetManager().GetLoggingIdentifier(), "TestSetManager") << "before a load";
    struct Case
    {
        char const* managerName;
        std::string binaryTag;
        std::string identifier; ///< empty: the manager has none
        FileVersion version;
    } const cases[] = {
        {nullptr, "rear", "rear", {}},
        {"", "rear", "rear", {}},
        {"cam0", "rear", "cam0;BinaryTag=rear", {}},
        {"cam0", std::string(54, 't'), "cam0;BinaryTag=" + std::string(54, 't'), {}},
        {"cam0", std::string(55, 't'), "cam0;BinaryTag=" + std::string(54, 't'), {}},
        {nullptr, "rear", "", {1, 0, 1}},
    };
    size_t const before = Vorn::Testing::AllocatedBytes();
    for (Case const& test : cases) {
        SCOPED_TRACE(test.identifier);
        std::vector<uint8_t> bytes = SoundFile(test.version).SetBinaryTag(test.binaryTag).Build();
        TestSetManager manager(Named(test.managerName));
        ASSERT_TRUE(manager.LoadBinaryParameters(bytes.data(), bytes.size()));
        EXPECT_STREQ(manager.GetErrorString(), "");
        if (test.identifier.empty()) {
            EXPECT_EQ(manager.GetLoggingIdentifier(), nullptr);
            EXPECT_EQ(manager.GetBinaryTag(), nullptr);
            continue;
        }
        ASSERT_NE(manager.GetLoggingIdentifier(), nullptr);
        EXPECT_EQ(manager.GetLoggingIdentifier(), test.identifier);
        // Every line of the manager carries it.
        manager.SetError("marker");
        EXPECT_TRUE(m_log.Contains("(" + test.identifier + "): marker\n"));
    }
    EXPECT_TRUE(m_log.HasMessage(
        "ReadHeader: Binary Version 1.0.1 < ModeTreeMinVersion, BinaryTag not set\n"));
    // Every name, tag and identifier a manager made is freed with it.
    EXPECT_EQ(Vorn::Testing::AllocatedBytes(), before);
}

} // namespace
