// SPDX-License-Identifier: Apache-2.0
// ParameterFileLoader: the two load paths, the header, the section table and the tables behind
// it, read into a main manager; and the manager's static readers and member forms of the steps.
#include "parameterparser/parameterfileloader.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/vornalloc.h"
#include "platform/vornosutils.h"

#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parameterfileheader.h"
#include "parameterparser/parameterfilesymboltableentry.h"
#include "parameterparser/parametersetmanager.h"

namespace {

constexpr unsigned long MaxBufferLength = 0xFFFFFFFFUL;

// Why a file gave no image, as the file system tells it: the errno text of the open, or what
// kind of file it is.
void DescribeUnreadableFile(char const* fileName, char* text, size_t size)
{
    int const fd = open(fileName, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        Vorn::OsUtils::SNPrintF(text, size, "Unable to open binary file '%s': %s", fileName,
                                std::strerror(errno));
        return;
    }
    struct stat status = {};
    bool const known = fstat(fd, &status) == 0;
    close(fd);
    auto const fileSize = static_cast<unsigned long long>(status.st_size);
    if (known && S_ISDIR(status.st_mode))
        Vorn::OsUtils::SNPrintF(text, size, "Unable to read binary file '%s': Is a directory",
                                fileName);
    else if (known && fileSize == 0)
        Vorn::OsUtils::SNPrintF(text, size, "Binary file '%s' is empty", fileName);
    else if (known && fileSize > UINT32_MAX)
        Vorn::OsUtils::SNPrintF(text, size, "Binary file '%s' is too large: %llu bytes, at most %u",
                                fileName, fileSize, static_cast<unsigned int>(UINT32_MAX));
    else
        Vorn::OsUtils::SNPrintF(text, size, "Unable to read binary file '%s' (%llu bytes)",
                                fileName, fileSize);
}

} // namespace

bool ParameterFileLoader::LoadFromBuffer(unsigned char* buffer, unsigned long length)
{
    ParameterSetManager& m = m_manager;
    ParameterLogging::Write(&m, ParameterLogging::LogVerbose,
                            "Load Binary Parameters from buffer\n");
    m.m_loadStatus = false;
    m.m_errorString[0] = '\0';
    if (m.m_symbolTable != nullptr) {
        m.SetError("Binary file already loaded");
        return false;
    }
    if (length > MaxBufferLength) {
        ParameterLogging::Write(&m, ParameterLogging::LogError,
                                "Buffer length (%llu) exceeds maximum %lu\n",
                                static_cast<unsigned long long>(length), MaxBufferLength);
        return false;
    }

    unsigned int position = 0;
    unsigned int sectionTableOffset = 0;
    unsigned char alignment = 1;
    auto const size = static_cast<unsigned int>(length);
    if (!ReadHeader(buffer, size, position, sectionTableOffset, alignment))
        return m.m_loadStatus;
    m.m_loadStatus =
        ReadSections(buffer, size, nullptr, nullptr, 0, sectionTableOffset, &m, alignment);
    if (!m.m_loadStatus)
        return false;
    ParameterLogging::Write(&m, ParameterLogging::LogVerbose,
                            "Load Binary Parameters completed: Tag: %s, Version: %d.%d.%d\n",
                            m.m_binaryTag != nullptr ? m.m_binaryTag : "",
                            m.m_binaryVersion.Parts.Major, m.m_binaryVersion.Parts.Minor,
                            static_cast<int>(m.m_binaryVersion.Parts.Patch));
    // Inside a reload the worker starts once the reload is complete.
    m.StartKnobbyWorker();
    return m.m_loadStatus;
}

bool ParameterFileLoader::LoadFromFile(char const* fileName)
{
    ParameterSetManager& m = m_manager;
    if (fileName == nullptr) {
        m.SetError("LoadBinaryParameters called with nullptr file name");
        return m.m_loadStatus;
    }
    size_t const nameLength = std::strlen(fileName);
    if (nameLength >= ParameterSetManager::MaxFileNameLength) {
        ParameterLogging::Write(&m, ParameterLogging::LogError,
                                "File name length (%lld) exceeds max file name length of %d\n",
                                static_cast<long long>(nameLength),
                                static_cast<int>(ParameterSetManager::MaxFileNameLength));
        return m.m_loadStatus;
    }
    ParameterLogging::Write(&m, ParameterLogging::LogVerbose,
                            "Load Binary Parameters from file: %s\n", fileName);
    m.m_loadStatus = false;
    m.m_errorString[0] = '\0';
    if (m.m_symbolTable != nullptr) {
        m.SetError("Binary file already loaded");
        return false;
    }

    auto* file = new (std::nothrow) ParameterBinaryFile(fileName, &m);
    unsigned int const size = file != nullptr ? file->GetLength() : 0;
    // A file that did not open has length 0, so this read reports it too.
    unsigned char* image = file != nullptr ? file->Read(0, size) : nullptr;
    if (image == nullptr) {
        char reason[ParameterSetManager::ErrorStringLength];
        DescribeUnreadableFile(fileName, reason, sizeof(reason));
        m.SetError(reason);
        ReleaseFile(file);
        return m.m_loadStatus;
    }

    if (!m.m_fileModeAllowed) {
        // m_fileName stays empty: the manager works in buffer mode.
        m.m_loadStatus = m.LoadBinaryParameters(image, size);
        VornFree(image, VornTagRelease);
        ReleaseFile(file);
        return m.m_loadStatus;
    }

    if (fileName != m.m_fileName)
        Vorn::OsUtils::StrLCpy(m.m_fileName, fileName, sizeof(m.m_fileName));
    unsigned int position = 0;
    unsigned int sectionTableOffset = 0;
    unsigned char alignment = 1;
    // The header is checked over the whole image so that the checksum covers the entire file.
    bool const headerRead = ReadHeader(image, size, position, sectionTableOffset, alignment);
    VornFree(image, VornTagRelease);
    if (headerRead)
        ReadFileSections(file, size, sectionTableOffset, alignment);
    ReleaseFile(file);
    return m.m_loadStatus;
}

void ParameterFileLoader::ReadFileSections(ParameterBinaryFile* file, unsigned int fileSize,
                                           unsigned int sectionTableOffset, unsigned char alignment)
{
    ParameterSetManager& m = m_manager;
    // Only the window with the section table is read for the sections; the tables behind it are
    // read from the file by their offsets.
    unsigned int const windowSize = ParameterSetManager::HeaderWindowSize;
    unsigned char* window = file->Read(0, windowSize);
    if (window == nullptr) {
        ParameterLogging::Write(&m, ParameterLogging::LogError,
                                "Failed to read %d bytes from binary file %s\n",
                                static_cast<int>(windowSize), m.m_fileName);
        return;
    }
    if ((m.m_binaryFlags & ParameterSetManager::CompressedFlag) != 0) {
        ParameterLogging::Write(&m, ParameterLogging::LogError,
                                "Compressed binary files ssupport removed in V5.1.0\n");
        m.m_loadStatus = false;
    } else {
        m.m_loadStatus = ReadSections(window, windowSize, m.m_fileName, file, fileSize,
                                      sectionTableOffset, &m, alignment);
        if (m.m_loadStatus) {
            ParameterLogging::Write(&m, ParameterLogging::LogVerbose,
                                    "Load Binary Parameters completed: Binary Version: %d.%d.%d\n",
                                    m.m_binaryVersion.Parts.Major, m.m_binaryVersion.Parts.Minor,
                                    static_cast<int>(m.m_binaryVersion.Parts.Patch));
            m.StartKnobbyWorker();
        }
    }
    VornFree(window, VornTagRelease);
}

void ParameterFileLoader::ReleaseFile(ParameterBinaryFile* file)
{
    ParameterSetManager& m = m_manager;
    if (file == nullptr)
        return;
    // A symbol table that took the file over keeps it; it closes until a mode load needs it.
    if (m.m_fileModeAllowed && m.m_symbolTable != nullptr && m.m_symbolTable->GetFile() == file) {
        m.m_symbolTable->FileReference(-1);
        return;
    }
    delete file;
}

bool ParameterFileLoader::ReadHeader(unsigned char* buffer, unsigned int length,
                                     unsigned int& position, unsigned int& sectionTableOffset,
                                     unsigned char& alignment)
{
    ParameterSetManager& m = m_manager;
    char message[ParameterSetManager::ErrorStringLength] = {};
    ParameterFileHeader header;
    header.headerFlags = m.m_binaryFlags;
    header.sectionOffset = sectionTableOffset;
    header.sectionCount = m.m_sectionCount;
    bool const read = ReadFileHeader(buffer, length, header, message, &m);
    position = header.end;
    sectionTableOffset = header.sectionOffset;
    alignment = header.layout.alignment;
    m.m_binaryVersion = header.layout.version;
    m.m_binaryFlags = header.headerFlags;
    m.m_sectionCount = header.sectionCount;
    if (header.binaryTag != nullptr)
        m.ReplaceBinaryTag(header.ReleaseBinaryTag());
    m.m_loadStatus = read;
    // message may hold the older-format warning on success; it is only a failure's reason.
    if (read)
        m.UpdateLoggingIdentifier();
    else if (message[0] != '\0')
        m.SetError(message);
    return read;
}

bool ParameterFileLoader::ReadSectionInfo(unsigned char* buffer, unsigned int length,
                                          unsigned int& position, unsigned char alignment)
{
    ParameterSetManager& m = m_manager;
    // The descriptors describe the file being read now, not one read before.
    ParameterSectionTable sections;
    char message[ParameterSetManager::ErrorStringLength] = {};
    m.m_loadStatus = ReadSectionRecords(buffer, length, position, alignment, m.m_sectionCount,
                                        sections, message, &m);
    m.m_symbolSection = sections.symbol;
    m.m_dataTableSection = sections.dataTable;
    m.m_dataSection = sections.data;
    m.m_definitionSection = sections.definitions;
    m.m_modeSections.Clear();
    for (unsigned int i = 0; i < sections.modes.Count(); ++i)
        m.m_modeSections.Add(sections.modes[i]);
    if (!m.m_loadStatus && message[0] != '\0')
        m.SetError(message);
    return m.m_loadStatus;
}

bool ParameterFileLoader::ReadSections(unsigned char* buffer, unsigned int length,
                                       char const* fileName, ParameterBinaryFile* file,
                                       unsigned int fileSize, unsigned int sectionTableOffset,
                                       IModeTable* modeTable, unsigned char alignment)
{
    ParameterSetManager& m = m_manager;
    unsigned int position = sectionTableOffset;
    if (!ReadSectionInfo(buffer, length, position, alignment)) {
        m.SetError("Invalid binary file section count");
        m.m_loadStatus = false;
        return false;
    }
    if ((m.m_binaryFlags & ParameterSetManager::CompressedFlag) != 0) {
        m.SetError("Compressed binary file not supported (support ended with V5.1.0)");
        m.m_loadStatus = false;
        return false;
    }
    m.m_symbolTable = new (std::nothrow) ParameterFileSymbolTable(&m, alignment, m.m_binaryVersion);
    if (m.m_symbolTable == nullptr) {
        m.SetError("Unable to allocate the symbol table");
        m.m_loadStatus = false;
        return false;
    }
    if (!ReadModeSections(buffer, length, file, alignment))
        return false;
    return LoadSectionContents(buffer, length, fileName, file, fileSize, modeTable);
}

bool ParameterFileLoader::LoadSectionContents(unsigned char* buffer, unsigned int length,
                                              char const* fileName, ParameterBinaryFile* file,
                                              unsigned int fileSize, IModeTable* modeTable)
{
    ParameterSetManager& m = m_manager;
    if (m.m_symbolSection.Offset == 0 || m.m_symbolSection.Size == 0 ||
        m.m_dataSection.Offset == 0 || m.m_dataSection.Size == 0) {
        ParameterLogging::Write(&m, ParameterLogging::LogError,
                                "ReadModeSections: Binary missing symbol table or data "
                                "SymbolOffset(%u) && SymbolSize(%u) && DataOffset(%u) && "
                                "DataSize(%u)\n",
                                static_cast<unsigned int>(m.m_symbolSection.Offset),
                                static_cast<unsigned int>(m.m_symbolSection.Size),
                                static_cast<unsigned int>(m.m_dataSection.Offset),
                                static_cast<unsigned int>(m.m_dataSection.Size));
        return true;
    }

    // In file mode the table keeps only its lookups and re-reads entries from the file; in
    // buffer mode the modules are read now and nothing of the tables is needed afterwards.
    bool const fileMode = file != nullptr;
    ParameterFileSymbolTable* table = m.m_symbolTable;
    bool result =
        table->Load(buffer, length, fileName, file, fileSize, m.m_symbolSection,
                    m.m_dataTableSection, m.m_dataSection, m.m_definitionSection, modeTable, true);
    if (fileMode)
        table->FreeEntryData();
    if (result && table->Modules().Count() != 0)
        result = CreateModules(fileMode);
    if (fileMode) {
        table->ClearDefinitions(false);
    } else {
        table->FreeEntryData();
        table->FreeLookupData();
        table->ClearDefinitions(true);
    }
    return result;
}

bool ParameterFileLoader::CreateModules(bool fileMode)
{
    ParameterSetManager& m = m_manager;
    ParameterFileSymbolTable* table = m.m_symbolTable;
    // One module that cannot be made or placed fails the load; every other one is still made.
    bool result = true;
    PList<ModuleData*> const& modules = table->Modules();
    for (unsigned int i = 0; i < modules.Count(); ++i) {
        ModuleData* data = modules[i];
        if (data == nullptr)
            continue;
        ParameterFileSymbolTableEntry entry;
        bool placed = false;
        if (table->Find(entry, data->ID, true)) {
            bool loadNow = true;
            if (fileMode)
                loadNow = data->Mode != nullptr && data->Mode->mode != nullptr &&
                          data->Mode->mode->resident;
            ParameterModule* module = m.CreateModule(&entry, data, loadNow);
            placed = m.AddModule(data, module);
        }
        if (!placed) {
            m.m_loadStatus = false;
            result = false;
        }
    }
    return result;
}

// The manager's static readers and its member forms of the reading steps.

bool ParameterSetManager::ReadHeader(unsigned char* buffer, unsigned int length, unsigned int& pos,
                                     unsigned int& sectionOffset, unsigned char& alignment,
                                     VersionUnion& version, char*& binaryTag,
                                     unsigned long& headerFlags, unsigned int& sectionCount,
                                     char* errorText, IParameterLoggingAPI* log)
{
    ParameterFileHeader header;
    header.headerFlags = headerFlags;
    header.sectionOffset = sectionOffset;
    header.sectionCount = sectionCount;
    bool const read = ReadFileHeader(buffer, length, header, errorText, log);
    pos = header.end;
    sectionOffset = header.sectionOffset;
    sectionCount = header.sectionCount;
    headerFlags = header.headerFlags;
    alignment = header.layout.alignment;
    version = header.layout.version;
    if (header.layout.hasBinaryTag) {
        VornFree(binaryTag, VornTagRelease);
        binaryTag = header.ReleaseBinaryTag();
    }
    return read;
}

bool ParameterSetManager::ReadSectionInfo(unsigned char* buffer, unsigned int length,
                                          unsigned int& pos, unsigned char alignment,
                                          unsigned int sectionCount, SectionInfo& symbol,
                                          SectionInfo& dataTable, PList<SectionInfo>& modes,
                                          SectionInfo& data, SectionInfo& definitions,
                                          char* errorText, IParameterLoggingAPI* log)
{
    ParameterSectionTable sections;
    sections.symbol = symbol;
    sections.dataTable = dataTable;
    sections.data = data;
    sections.definitions = definitions;
    bool const read =
        ReadSectionRecords(buffer, length, pos, alignment, sectionCount, sections, errorText, log);
    symbol = sections.symbol;
    dataTable = sections.dataTable;
    data = sections.data;
    definitions = sections.definitions;
    for (unsigned int i = 0; i < sections.modes.Count(); ++i)
        modes.Add(sections.modes[i]);
    return read;
}

bool ParameterSetManager::ModeTableEntryExists(char const* fileName, char const* tableName)
{
    return FileHasModeTable(fileName, tableName);
}

bool ParameterSetManager::ReadHeader(unsigned char* buffer, unsigned int length,
                                     unsigned int& position, unsigned int& sectionTableOffset,
                                     unsigned char& alignment)
{
    return ParameterFileLoader(*MainManager())
        .ReadHeader(buffer, length, position, sectionTableOffset, alignment);
}

bool ParameterSetManager::ReadSectionInfo(unsigned char* buffer, unsigned int length,
                                          unsigned int& position, unsigned char alignment)
{
    return ParameterFileLoader(*MainManager()).ReadSectionInfo(buffer, length, position, alignment);
}

bool ParameterSetManager::ReadSections(unsigned char* buffer, unsigned int length,
                                       char const* fileName, ParameterBinaryFile* file,
                                       unsigned int fileSize, unsigned int sectionTableOffset,
                                       IModeTable* modeTable, unsigned char alignment)
{
    return ParameterFileLoader(*MainManager())
        .ReadSections(buffer, length, fileName, file, fileSize, sectionTableOffset, modeTable,
                      alignment);
}

bool ParameterSetManager::ReadModeSections(unsigned char* buffer, unsigned int length,
                                           ParameterBinaryFile* file, unsigned char alignment)
{
    return ParameterFileLoader(*MainManager()).ReadModeSections(buffer, length, file, alignment);
}
