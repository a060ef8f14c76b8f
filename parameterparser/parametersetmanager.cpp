// SPDX-License-Identifier: Apache-2.0
// ParameterSetManager: header and section reading, the two load paths, errors and identity.
#include "parameterparser/parametersetmanager.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/vornalloc.h"
#include "platform/vornosutils.h"

#include "parameterparser/defaultmodule.h"
#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parametermodule.h"

namespace {

// The composed identifier holds the name, ";BinaryTag=" (11) and up to 54 characters of the tag.
constexpr unsigned int IdentifierExtraLength = 66;
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

ParameterSetManager::ParameterSetManager(ParameterSetManager* main, unsigned char modeTableIndex,
                                         char const* name, bool createWorker)
    : m_mainSetManager(main), m_modeTableIndex(modeTableIndex)
{
    if (name != nullptr && name[0] != '\0') {
        size_t const length = std::strlen(name);
        m_name = static_cast<char*>(VornCalloc(length + 1, VornTagAllocData));
        if (m_name != nullptr) {
            std::memcpy(m_name, name, length);
            m_nameLength = static_cast<uint32_t>(length);
            m_loggingIdentifier = m_name;
        }
    }
    // The concrete manager that owns the live tuning service attaches it.
    m_hostsLiveTuning = createWorker;
    LogModeTableBinding();
}

ParameterSetManager::~ParameterSetManager()
{
    ParameterLogging::Write(this, ParameterLogging::LogVerbose, "ParameterSetManager deleting\n");
    // The worker's threads read the tables: they end before anything is freed.
    StopKnobbyWorker();
    // A derived manager holds only its own name: freeing through the main manager would take
    // the main manager's file away from it.
    // The parked generation goes before the one in service: its modules may still be loaded and
    // unload through their own symbol tables.
    if (m_mainSetManager == nullptr) {
        FreeReplacedParameters();
        FreeBinaryParameters();
    } else {
        FreeOwnData();
    }
}

ParameterSetManager* ParameterSetManager::MainManager()
{
    ParameterSetManager* main = this;
    while (main->m_mainSetManager != nullptr)
        main = main->m_mainSetManager;
    return main;
}

ParameterSetManager const* ParameterSetManager::MainManager() const
{
    ParameterSetManager const* main = this;
    while (main->m_mainSetManager != nullptr)
        main = main->m_mainSetManager;
    return main;
}

char const* ParameterSetManager::GetLoggingIdentifier()
{
    return m_loggingIdentifier;
}

bool ParameterSetManager::LoggingEnabled(ParameterLogging::ParameterLogLevel level)
{
    switch (level) {
    case ParameterLogging::LogError:
        return m_logErrors;
    case ParameterLogging::LogWarning:
        return m_logWarnings;
    case ParameterLogging::LogVerbose:
        return m_logVerbose;
    default:
        return true;
    }
}

bool ParameterSetManager::LoadBinaryParameters(unsigned char* buffer, unsigned long length)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->LoadBinaryParameters(buffer, length);
    ParameterFirstErrorRecorder recorder;
    bool const loaded = LoadFromBuffer(buffer, length);
    ExplainLoadFailure(loaded, recorder);
    return loaded;
}

bool ParameterSetManager::LoadBinaryParameters(char const* fileName)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->LoadBinaryParameters(fileName);
    ParameterFirstErrorRecorder recorder;
    bool const loaded = LoadFromFile(fileName);
    ExplainLoadFailure(loaded, recorder);
    return loaded;
}

void ParameterSetManager::ExplainLoadFailure(bool loaded,
                                             ParameterFirstErrorRecorder const& recorder)
{
    // Many faults deep in the tables are only logged where they are found, with the offset and
    // size that failed; the first of them is the reason the load ended.
    if (loaded || m_errorString[0] != '\0')
        return;
    Vorn::OsUtils::StrLCpy(m_errorString,
                           recorder.Text()[0] != '\0' ? recorder.Text()
                                                      : "Binary file refused with no reason logged",
                           sizeof(m_errorString));
}

bool ParameterSetManager::LoadFromBuffer(unsigned char* buffer, unsigned long length)
{
    ParameterLogging::Write(this, ParameterLogging::LogVerbose,
                            "Load Binary Parameters from buffer\n");
    m_loadStatus = false;
    m_errorString[0] = '\0';
    if (m_symbolTable != nullptr) {
        SetError("Binary file already loaded");
        return false;
    }
    if (length > MaxBufferLength) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "Buffer length (%llu) exceeds maximum %lu\n",
                                static_cast<unsigned long long>(length), MaxBufferLength);
        return false;
    }

    unsigned int position = 0;
    unsigned int sectionTableOffset = 0;
    unsigned char alignment = 1;
    auto const size = static_cast<unsigned int>(length);
    if (!ReadHeader(buffer, size, position, sectionTableOffset, alignment))
        return m_loadStatus;
    m_loadStatus =
        ReadSections(buffer, size, nullptr, nullptr, 0, sectionTableOffset, this, alignment);
    if (!m_loadStatus)
        return false;
    ParameterLogging::Write(this, ParameterLogging::LogVerbose,
                            "Load Binary Parameters completed: Tag: %s, Version: %d.%d.%d\n",
                            m_binaryTag != nullptr ? m_binaryTag : "", m_binaryVersion.Parts.Major,
                            m_binaryVersion.Parts.Minor,
                            static_cast<int>(m_binaryVersion.Parts.Patch));
    // Inside a reload the worker starts once the reload is complete.
    StartKnobbyWorker();
    return m_loadStatus;
}

bool ParameterSetManager::LoadFromFile(char const* fileName)
{
    if (fileName == nullptr) {
        SetError("LoadBinaryParameters called with nullptr file name");
        return m_loadStatus;
    }
    size_t const nameLength = std::strlen(fileName);
    if (nameLength >= MaxFileNameLength) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "File name length (%lld) exceeds max file name length of %d\n",
                                static_cast<long long>(nameLength),
                                static_cast<int>(MaxFileNameLength));
        return m_loadStatus;
    }
    ParameterLogging::Write(this, ParameterLogging::LogVerbose,
                            "Load Binary Parameters from file: %s\n", fileName);
    m_loadStatus = false;
    m_errorString[0] = '\0';
    if (m_symbolTable != nullptr) {
        SetError("Binary file already loaded");
        return false;
    }

    auto* file = new (std::nothrow) ParameterBinaryFile(fileName, this);
    unsigned int const size = file != nullptr ? file->GetLength() : 0;
    // A file that did not open has length 0, so this read reports it too.
    unsigned char* image = file != nullptr ? file->Read(0, size) : nullptr;
    if (image == nullptr) {
        char reason[ErrorStringLength];
        DescribeUnreadableFile(fileName, reason, sizeof(reason));
        SetError(reason);
        ReleaseLoadFile(file);
        return m_loadStatus;
    }

    if (!m_fileModeAllowed) {
        // m_fileName stays empty: the manager works in buffer mode.
        m_loadStatus = LoadBinaryParameters(image, size);
        VornFree(image, VornTagRelease);
        ReleaseLoadFile(file);
        return m_loadStatus;
    }

    if (fileName != m_fileName)
        Vorn::OsUtils::StrLCpy(m_fileName, fileName, sizeof(m_fileName));
    unsigned int position = 0;
    unsigned int sectionTableOffset = 0;
    unsigned char alignment = 1;
    // The header is checked over the whole image so that the checksum covers the entire file;
    // only the window with the section table is kept for the section reading.
    bool const headerRead = ReadHeader(image, size, position, sectionTableOffset, alignment);
    VornFree(image, VornTagRelease);
    if (!headerRead) {
        ReleaseLoadFile(file);
        return m_loadStatus;
    }

    unsigned char* window = file->Read(0, HeaderWindowSize);
    if (window == nullptr) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "Failed to read %d bytes from binary file %s\n",
                                static_cast<int>(HeaderWindowSize), m_fileName);
        ReleaseLoadFile(file);
        return m_loadStatus;
    }
    if ((m_binaryFlags & CompressedFlag) != 0) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "Compressed binary files ssupport removed in V5.1.0\n");
        m_loadStatus = false;
    } else {
        m_loadStatus = ReadSections(window, HeaderWindowSize, m_fileName, file, size,
                                    sectionTableOffset, this, alignment);
        if (m_loadStatus) {
            ParameterLogging::Write(this, ParameterLogging::LogVerbose,
                                    "Load Binary Parameters completed: Binary Version: %d.%d.%d\n",
                                    m_binaryVersion.Parts.Major, m_binaryVersion.Parts.Minor,
                                    static_cast<int>(m_binaryVersion.Parts.Patch));
            StartKnobbyWorker();
        }
    }
    VornFree(window, VornTagRelease);
    ReleaseLoadFile(file);
    return m_loadStatus;
}

void ParameterSetManager::ReleaseLoadFile(ParameterBinaryFile* file)
{
    if (file == nullptr)
        return;
    // A symbol table that took the file over keeps it; it closes until a mode load needs it.
    if (m_fileModeAllowed && m_symbolTable != nullptr && m_symbolTable->GetFile() == file) {
        m_symbolTable->FileReference(-1);
        return;
    }
    delete file;
}

void ParameterSetManager::ReplaceBinaryTag(char* tag)
{
    char* const old = m_binaryTag;
    m_binaryTag = tag;
    if (old != nullptr && m_loggingIdentifier == old)
        m_loggingIdentifier = tag;
    VornFree(old, VornTagRelease);
}

void ParameterSetManager::UpdateLoggingIdentifier()
{
    if (m_loggingIdentifier != nullptr && m_loggingIdentifier != m_name &&
        m_loggingIdentifier != m_binaryTag)
        VornFree(m_loggingIdentifier, VornTagRelease);
    m_loggingIdentifier = nullptr;

    if (m_nameLength == 0) {
        m_loggingIdentifier = m_binaryTag;
        return;
    }
    size_t const size = m_nameLength + IdentifierExtraLength;
    auto* identifier = static_cast<char*>(VornCalloc(size, VornTagAllocData));
    if (identifier == nullptr) {
        m_loggingIdentifier = m_name;
        return;
    }
    Vorn::OsUtils::StrLCpy(identifier, m_name, size);
    Vorn::OsUtils::StrLCat(identifier, ";BinaryTag=", size);
    Vorn::OsUtils::StrLCat(identifier, m_binaryTag, size);
    m_loggingIdentifier = identifier;
}

char const* ParameterSetManager::ModuleKindName(DefaultModule* kind)
{
    if (kind == nullptr || kind->first == nullptr || kind->first->module == nullptr)
        return nullptr;
    return kind->first->module->moduleName;
}

void ParameterSetManager::SetError(char const* message, ModuleData const* data)
{
    ParameterSetManager* main = MainManager();
    char const* text = message != nullptr ? message : "";
    if (data == nullptr) {
        Vorn::OsUtils::StrLCpy(main->m_errorString, text, sizeof(main->m_errorString));
    } else {
        // The module is named by its kind's first instance when the registry knows one, by its
        // name hash otherwise.
        DefaultModule* kind = main->GetDefaultModule(data->NameHash);
        char const* name = kind != nullptr ? main->ModuleKindName(kind) : nullptr;
        unsigned int const mode = data->Mode != nullptr && data->Mode->mode != nullptr
                                      ? data->Mode->mode->mode.Parts.mode
                                      : 0;
        VersionUnion const& version = data->Version;
        if (name != nullptr)
            Vorn::OsUtils::SNPrintF(main->m_errorString, sizeof(main->m_errorString),
                                    "%s Name: %s, Major: %u, Minor: %u, Patch: %u, Mode: %u", text,
                                    name, static_cast<unsigned int>(version.Parts.Major),
                                    static_cast<unsigned int>(version.Parts.Minor),
                                    version.Parts.Patch, mode);
        else
            Vorn::OsUtils::SNPrintF(main->m_errorString, sizeof(main->m_errorString),
                                    "%s Name Hash: %llx, Major: %u, Minor: %u, Patch: %u, Mode: %u",
                                    text, static_cast<unsigned long long>(data->NameHash),
                                    static_cast<unsigned int>(version.Parts.Major),
                                    static_cast<unsigned int>(version.Parts.Minor),
                                    version.Parts.Patch, mode);
    }
    ParameterLogging::Write(main, ParameterLogging::LogError, "%s\n", main->m_errorString);
}

char const* ParameterSetManager::GetErrorString() const
{
    return MainManager()->m_errorString;
}

void ParameterSetManager::FreeBinaryParameters()
{
    if (m_mainSetManager != nullptr) {
        MainManager()->FreeBinaryParameters();
        return;
    }
    ParameterLogging::Write(this, ParameterLogging::LogVerbose, "FreeBinaryParameters called\n");
    FreeOwnData();
}

void ParameterSetManager::FreeOwnData()
{
    // The identifier goes first and stays null: the tables' destructors may log through this
    // object while the name and the tag are being freed.
    if (m_loggingIdentifier != nullptr && m_loggingIdentifier != m_name &&
        m_loggingIdentifier != m_binaryTag)
        VornFree(m_loggingIdentifier, VornTagRelease);
    m_loggingIdentifier = nullptr;
    m_modeTree.Free();

    delete m_symbolTable;
    m_symbolTable = nullptr;

    VornFree(m_name, VornTagRelease);
    VornFree(m_binaryTag, VornTagRelease);
    m_name = nullptr;
    m_binaryTag = nullptr;
}

VersionUnion ParameterSetManager::GetBinaryVersion() const
{
    return MainManager()->m_binaryVersion;
}

char const* ParameterSetManager::GetBinaryTag() const
{
    return MainManager()->m_binaryTag;
}

unsigned long ParameterSetManager::GetBinaryFlags() const
{
    return MainManager()->m_binaryFlags;
}

unsigned int ParameterSetManager::GetSectionCount() const
{
    return MainManager()->m_sectionCount;
}

ParameterSetManager::SectionInfo ParameterSetManager::GetSymbolSection() const
{
    return MainManager()->m_symbolSection;
}

ParameterSetManager::SectionInfo ParameterSetManager::GetDataTableSection() const
{
    return MainManager()->m_dataTableSection;
}

PList<ParameterSetManager::SectionInfo> const& ParameterSetManager::GetModeSections() const
{
    return MainManager()->m_modeSections;
}

ParameterSetManager::SectionInfo ParameterSetManager::GetDataSection() const
{
    return MainManager()->m_dataSection;
}

ParameterSetManager::SectionInfo ParameterSetManager::GetDefinitionSection() const
{
    return MainManager()->m_definitionSection;
}

bool ParameterSetManager::GetLoadStatus() const
{
    return MainManager()->m_loadStatus;
}

bool ParameterSetManager::IsFileMode() const
{
    return MainManager()->m_fileName[0] != '\0';
}

ParameterFileSymbolTable* ParameterSetManager::GetSymbolTable() const
{
    return MainManager()->m_symbolTable;
}
