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
#include "parameterparser/livetuning/parameterknobbyworker.h"
#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parameterbytereader.h"
#include "parameterparser/parameterfilesymboltableentry.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parameterutils.h"

namespace {

// Header layout: fixed text fields are read at alignment 1 whatever the file's version.
//
// | Offset | Size | Field         | Present from |
// |--------|------|---------------|--------------|
// | 0      | 28   | HeaderTag     | always       |
// | 28     | 4    | FileSize      | always       |
// | 32     | 8    | Version       | always       |
// | 40     | 48   | CreatedBy     | 1.0.2        |
// | 88     | 64   | BinaryTag     | 1.0.2        |
// | 152    | 8    | HeaderFlags   | 3.0.0        |
// | +0     | 4    | SectionOffset | always       |
// | +4     | 4    | SectionCount  | always       |
constexpr unsigned int HeaderTagLength = 28;
constexpr unsigned int CreatedByLength = 48;
constexpr unsigned int BinaryTagLength = 64;
constexpr char const* HeaderTagText = "ZEL Varitonal Header";
constexpr unsigned int MinSectionCount = 2;
// A mode section opens with its table's name in a field of this many bytes.
constexpr unsigned int ModeTableNameLength = 128;
// The composed identifier holds the name, ";BinaryTag=" (11) and up to 54 characters of the tag.
constexpr unsigned int IdentifierExtraLength = 66;
constexpr unsigned long MaxBufferLength = 0xFFFFFFFFUL;

enum SectionType : uint32_t
{
    SymbolSection = 0,
    DataSection = 1,
    ModeSection = 2,
    DataTableSection = 3,
    DefinitionSection = 4,
};

// Below this version a file has no tag and only Default mode data.
VersionUnion ModeTreeMinVersion()
{
    return VersionUnion(1, 0, 2);
}

VersionUnion HeaderFlagsVersion()
{
    return VersionUnion(3, 0, 0);
}

VersionUnion Crc64Version()
{
    return VersionUnion(6, 0, 0);
}

VersionUnion LatestSupportedVersion()
{
    return VersionUnion(7, 0, 0);
}

// Files from 1.1.0 up to but not including 3.0.1 pad every field to 8 bytes.
unsigned char AlignmentFor(VersionUnion const& version)
{
    if (version < VersionUnion(1, 1, 0))
        return 1;
    if (version < VersionUnion(3, 0, 1))
        return 8;
    return 1;
}

void SetErrorText(char* errorText, char const* text)
{
    if (errorText != nullptr)
        Vorn::OsUtils::StrLCpy(errorText, text, ParameterSetManager::ErrorStringLength);
}

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

// Steps of the header check that follow a complete read of the fields; the order of the checks
// decides which message a damaged file gets.
bool CheckHeaderFields(unsigned char* buffer, unsigned int length, char const* headerTag,
                       uint32_t fileSize, VersionUnion const& version, unsigned long headerFlags,
                       char* errorText, IParameterLoggingAPI* log)
{
    if (headerTag == nullptr || headerTag[0] == '\0') {
        SetErrorText(errorText, "Failed to read binary header tag");
        return false;
    }
    if (std::strcmp(headerTag, HeaderTagText) != 0) {
        if (errorText != nullptr)
            Vorn::OsUtils::SNPrintF(errorText, ParameterSetManager::ErrorStringLength,
                                    "Invalid binary header tag: %s", headerTag);
        return false;
    }
    // A compressed file was smaller than its FileSize on purpose; the section reading refuses it.
    if (length < fileSize && (headerFlags & ParameterSetManager::CompressedFlag) == 0) {
        if (errorText != nullptr)
            Vorn::OsUtils::SNPrintF(
                errorText, ParameterSetManager::ErrorStringLength,
                "Binary header data too small: Expected: %u bytes, Actual: %u bytes",
                static_cast<unsigned int>(fileSize), length);
        return false;
    }
    if (version < ModeTreeMinVersion()) {
        SetErrorText(errorText,
                     "Warning: This is an older binary format, only Default mode data is "
                     "supported. To support multiple modes, please re-generate binary using the "
                     "latest version of Varitonal");
    } else if (version > LatestSupportedVersion()) {
        if (errorText != nullptr)
            Vorn::OsUtils::SNPrintF(errorText, ParameterSetManager::ErrorStringLength,
                                    "Unsupported binary header version : %u.%u.%u. Please "
                                    "re-generate parser code using the latest version of "
                                    "ParameterParser",
                                    version.Parts.Major, version.Parts.Minor, version.Parts.Patch);
        return false;
    }
    // The checksum's place follows from the buffer's length, not from FileSize, so trailing
    // bytes behind a sound file make it fail.
    if (!ParameterBinaryFile::ValidateCRC(buffer, length, version >= Crc64Version(), log)) {
        SetErrorText(errorText, "Binary file CRC validation failed");
        return false;
    }
    return true;
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
    if (createWorker)
        m_knobbyWorker = new (std::nothrow) ParameterKnobbyWorker(this);
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
    if (m_knobbyWorker != nullptr && m_knobbyEnabled && m_knobbyPauses == 0)
        m_knobbyWorker->Start();
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
            if (m_knobbyWorker != nullptr && m_knobbyEnabled && m_knobbyPauses == 0)
                m_knobbyWorker->Start();
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

bool ParameterSetManager::ReadHeader(unsigned char* buffer, unsigned int length,
                                     unsigned int& position, unsigned int& sectionTableOffset,
                                     unsigned char& alignment)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->ReadHeader(buffer, length, position, sectionTableOffset, alignment);

    char message[ErrorStringLength] = {};
    char* tag = nullptr;
    bool const read =
        ReadHeader(buffer, length, position, sectionTableOffset, alignment, m_binaryVersion, tag,
                   m_binaryFlags, m_sectionCount, message, this);
    if (tag != nullptr)
        ReplaceBinaryTag(tag);
    m_loadStatus = read;
    // errorText may hold the older-format warning on success; it is only a failure's reason.
    if (read)
        UpdateLoggingIdentifier();
    else if (message[0] != '\0')
        SetError(message);
    return read;
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

bool ParameterSetManager::ReadSectionInfo(unsigned char* buffer, unsigned int length,
                                          unsigned int& position, unsigned char alignment)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->ReadSectionInfo(buffer, length, position, alignment);

    // The descriptors describe the file being read now, not one read before.
    m_symbolSection = {};
    m_dataTableSection = {};
    m_modeSections.Clear();
    m_dataSection = {};
    m_definitionSection = {};

    char message[ErrorStringLength] = {};
    m_loadStatus = ReadSectionInfo(buffer, length, position, alignment, m_sectionCount,
                                   m_symbolSection, m_dataTableSection, m_modeSections,
                                   m_dataSection, m_definitionSection, message, this);
    if (!m_loadStatus && message[0] != '\0')
        SetError(message);
    return m_loadStatus;
}

bool ParameterSetManager::ReadSections(unsigned char* buffer, unsigned int length,
                                       char const* fileName, ParameterBinaryFile* file,
                                       unsigned int fileSize, unsigned int sectionTableOffset,
                                       IModeTable* modeTable, unsigned char alignment)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->ReadSections(buffer, length, fileName, file, fileSize,
                                           sectionTableOffset, modeTable, alignment);

    unsigned int position = sectionTableOffset;
    if (!ReadSectionInfo(buffer, length, position, alignment)) {
        SetError("Invalid binary file section count");
        m_loadStatus = false;
        return false;
    }
    if ((m_binaryFlags & CompressedFlag) != 0) {
        SetError("Compressed binary file not supported (support ended with V5.1.0)");
        m_loadStatus = false;
        return false;
    }
    m_symbolTable = new (std::nothrow) ParameterFileSymbolTable(this, alignment, m_binaryVersion);
    if (m_symbolTable == nullptr) {
        SetError("Unable to allocate the symbol table");
        m_loadStatus = false;
        return false;
    }
    return LoadSectionContents(buffer, length, fileName, file, fileSize, modeTable, alignment);
}

bool ParameterSetManager::LoadSectionContents(unsigned char* buffer, unsigned int length,
                                              char const* fileName, ParameterBinaryFile* file,
                                              unsigned int fileSize, IModeTable* modeTable,
                                              unsigned char alignment)
{
    if (!ReadModeSections(buffer, length, file, alignment))
        return false;

    if (m_symbolSection.Offset == 0 || m_symbolSection.Size == 0 || m_dataSection.Offset == 0 ||
        m_dataSection.Size == 0) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "ReadModeSections: Binary missing symbol table or data "
                                "SymbolOffset(%u) && SymbolSize(%u) && DataOffset(%u) && "
                                "DataSize(%u)\n",
                                static_cast<unsigned int>(m_symbolSection.Offset),
                                static_cast<unsigned int>(m_symbolSection.Size),
                                static_cast<unsigned int>(m_dataSection.Offset),
                                static_cast<unsigned int>(m_dataSection.Size));
        return true;
    }

    // In file mode the table keeps only its lookups and re-reads entries from the file; in
    // buffer mode the modules are read now and nothing of the tables is needed afterwards.
    bool const fileMode = file != nullptr;
    ParameterFileSymbolTable* table = m_symbolTable;
    auto finish = [table, fileMode]() {
        if (fileMode) {
            table->ClearDefinitions(false);
            return;
        }
        table->FreeEntryData();
        table->FreeLookupData();
        table->ClearDefinitions(true);
    };

    bool result =
        table->Load(buffer, length, fileName, file, fileSize, m_symbolSection, m_dataTableSection,
                    m_dataSection, m_definitionSection, modeTable, true);
    if (fileMode)
        table->FreeEntryData();
    if (!result || table->Modules().Count() == 0) {
        finish();
        return result;
    }

    // One module that cannot be made or placed fails the load; every other one is still made.
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
            ParameterModule* module = CreateModule(&entry, data, loadNow);
            placed = AddModule(data, module);
        }
        if (!placed) {
            m_loadStatus = false;
            result = false;
        }
    }
    finish();
    return result;
}

ParameterModule* ParameterSetManager::CreateModule(ParameterFileSymbolTableEntry const* entry,
                                                   ModuleData* data, bool loadNow)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->CreateModule(entry, data, loadNow);
    if (data == nullptr)
        return nullptr;

    DefaultModule* kind = GetDefaultModule(data->NameHash);
    if (kind == nullptr) {
        if (!m_ignoreUnknownModules)
            SetError("Failed to find header module: ", data);
        return nullptr;
    }
    ParameterModule* module = CreateModuleOfKind(kind, entry, data, loadNow);
    if (module == nullptr)
        SetError("Failed to parse binary header data for: ", data);
    return module;
}

bool ParameterSetManager::AddModule(ModuleData const* data, ParameterModule* module)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->AddModule(data, module);
    if (data == nullptr || module == nullptr)
        return false;

    ParameterModeTable* table = GetModeTable(data->GetModeTableIndex());
    if (table == nullptr || table->rootMode == nullptr) {
        SetError("AddModule: RootMode is nullptr");
        return false;
    }
    unsigned int const slot = data->GetModeIDValue();
    if (slot >= table->m_modeCount) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "AddModule: moduleData->ModeId(%u) >= m_modeCount(%u)\n",
                                static_cast<unsigned int>(data->ModeId),
                                static_cast<unsigned int>(table->m_modeCount));
        return false;
    }
    ModeEntry* node = table->modes != nullptr ? table->modes[slot].mode : nullptr;
    if (node == nullptr)
        return false;
    return node->AddModule(module);
}

ParameterModule* ParameterSetManager::CreateModuleOfKind(DefaultModule* kind,
                                                         ParameterFileSymbolTableEntry const* entry,
                                                         ModuleData* data, bool loadNow)
{
    if (kind == nullptr || kind->module == nullptr)
        return nullptr;
    // The factory instance checks the record and hands back the instance already made for a
    // duplicate; a load that finds no entry leaves the module zeroed and unloaded, which a later
    // lookup retries, so its result does not decide here.
    ParameterModule* module = kind->module->Create(data, kind);
    if (module != nullptr && loadNow && entry != nullptr)
        static_cast<void>(module->LoadModule(entry->Table));
    return module;
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
    FreeModeTables();

    delete m_symbolTable;
    m_symbolTable = nullptr;

    VornFree(m_name, VornTagRelease);
    VornFree(m_binaryTag, VornTagRelease);
    m_name = nullptr;
    m_binaryTag = nullptr;
}

bool ParameterSetManager::ModeTableEntryExists(char const* fileName, char const* tableName)
{
    if (fileName == nullptr || tableName == nullptr || std::strlen(fileName) >= MaxFileNameLength)
        return false;

    unsigned char* image = nullptr;
    unsigned int size = 0;
    {
        ParameterBinaryFile file(fileName, nullptr);
        size = file.GetLength();
        image = size != 0 ? file.Read(0, size) : nullptr;
    }
    if (image == nullptr)
        return false;

    unsigned int pos = 0;
    unsigned int sectionOffset = 0;
    unsigned char alignment = 1;
    VersionUnion version;
    char* binaryTag = nullptr;
    unsigned long headerFlags = 0;
    unsigned int sectionCount = 0;
    bool found = false;
    // Mode names can be searched without a load only from 7.0.0 on.
    if (ReadHeader(image, size, pos, sectionOffset, alignment, version, binaryTag, headerFlags,
                   sectionCount, nullptr, nullptr) &&
        version.Parts.Major >= 7) {
        SectionInfo symbol = {};
        SectionInfo dataTable = {};
        SectionInfo data = {};
        SectionInfo definitions = {};
        PList<SectionInfo> modes;
        pos = sectionOffset;
        if (ReadSectionInfo(image, size, pos, alignment, sectionCount, symbol, dataTable, modes,
                            data, definitions, nullptr, nullptr)) {
            for (unsigned int i = 0; i < modes.Count() && !found; ++i) {
                unsigned int position = modes[i].Offset;
                char* name = ParameterUtils::ReadString(image, size, position, ModeTableNameLength,
                                                        alignment);
                found = name != nullptr && std::strcmp(name, tableName) == 0;
                VornFree(name, VornTagRelease);
            }
        }
    }
    VornFree(binaryTag, VornTagRelease);
    VornFree(image, VornTagRelease);
    return found;
}

bool ParameterSetManager::ReadHeader(unsigned char* buffer, unsigned int length, unsigned int& pos,
                                     unsigned int& sectionOffset, unsigned char& alignment,
                                     VersionUnion& version, char*& binaryTag,
                                     unsigned long& headerFlags, unsigned int& sectionCount,
                                     char* errorText, IParameterLoggingAPI* log)
{
    pos = 0;
    if (errorText != nullptr)
        errorText[0] = '\0';

    char* headerTag = ParameterUtils::ReadString(buffer, length, pos, HeaderTagLength, 1);
    ParameterByteReader reader(buffer, length, pos, 1, log);
    uint32_t fileSize = 0;
    uint64_t rawVersion = 0;
    // The reader logs the first short field only; later fields of a short header read as 0.
    bool shortHeader = !reader.ReadU32(fileSize);
    if (!shortHeader)
        shortHeader = !reader.ReadU64(rawVersion);
    version.Raw = rawVersion;
    alignment = AlignmentFor(version);

    char* createdBy = nullptr;
    if (version >= ModeTreeMinVersion()) {
        createdBy = ParameterUtils::ReadString(buffer, length, pos, CreatedByLength, 1);
        char* tag = ParameterUtils::ReadString(buffer, length, pos, BinaryTagLength, 1);
        VornFree(binaryTag, VornTagRelease);
        binaryTag = tag;
        if (log != nullptr)
            ParameterLogging::Write(
                log, ParameterLogging::LogVerbose,
                "ReadHeader: Binary Version %d.%d.%d BinaryTag: %s, Created By: %s\n",
                version.Parts.Major, version.Parts.Minor, static_cast<int>(version.Parts.Patch),
                tag != nullptr ? tag : "", createdBy != nullptr ? createdBy : "");
    } else if (log != nullptr) {
        ParameterLogging::Write(
            log, ParameterLogging::LogVerbose,
            "ReadHeader: Binary Version %d.%d.%d < ModeTreeMinVersion, BinaryTag not set\n",
            version.Parts.Major, version.Parts.Minor, static_cast<int>(version.Parts.Patch));
    }

    if (!shortHeader && version >= HeaderFlagsVersion()) {
        uint64_t flags = 0;
        shortHeader = !reader.ReadU64(flags);
        if (!shortHeader)
            headerFlags = flags;
    }
    if (!shortHeader) {
        uint32_t offset = 0;
        uint32_t count = 0;
        shortHeader = !reader.ReadU32(offset) || !reader.ReadU32(count);
        if (!shortHeader) {
            sectionOffset = offset;
            sectionCount = count;
        }
    }

    bool result = false;
    if (shortHeader)
        SetErrorText(errorText, "General error parsing binary header data header");
    else
        result = CheckHeaderFields(buffer, length, headerTag, fileSize, version, headerFlags,
                                   errorText, log);
    VornFree(headerTag, VornTagRelease);
    VornFree(createdBy, VornTagRelease);
    return result;
}

bool ParameterSetManager::ReadSectionInfo(unsigned char* buffer, unsigned int length,
                                          unsigned int& pos, unsigned char alignment,
                                          unsigned int sectionCount, SectionInfo& symbol,
                                          SectionInfo& dataTable, PList<SectionInfo>& modes,
                                          SectionInfo& data, SectionInfo& definitions,
                                          char* errorText, IParameterLoggingAPI* log)
{
    if (sectionCount < MinSectionCount) {
        if (log != nullptr)
            ParameterLogging::Write(log, ParameterLogging::LogError,
                                    "ReadSectionInfo: Section count %d is less than Min sections "
                                    "%d\n",
                                    static_cast<int>(sectionCount),
                                    static_cast<int>(MinSectionCount));
        return false;
    }
    if (buffer == nullptr) {
        SetErrorText(errorText, "ReadSectionInfo: buffer is nullptr");
        return false;
    }

    // Each field takes FieldStep(4): 12 bytes a record at alignment 1, 24 at alignment 8.
    ParameterByteReader reader(buffer, length, pos, alignment, log);
    for (unsigned int i = 0; i < sectionCount; ++i) {
        uint32_t type = 0;
        SectionInfo info = {};
        if (!reader.ReadU32(type) || !reader.ReadU32(info.Offset) || !reader.ReadU32(info.Size)) {
            SetErrorText(errorText, "Error reading data from header sections");
            return false;
        }
        switch (type) {
        case SymbolSection:
            symbol = info;
            break;
        case DataSection:
            data = info;
            break;
        case ModeSection:
            modes.Add(info);
            break;
        case DataTableSection:
            dataTable = info;
            break;
        case DefinitionSection:
            definitions = info;
            break;
        default:
            if (log != nullptr)
                ParameterLogging::Write(log, ParameterLogging::LogError,
                                        "Invalid binary section type %d\n", static_cast<int>(type));
            return false;
        }
    }
    return true;
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
