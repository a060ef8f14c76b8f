// SPDX-License-Identifier: Apache-2.0
// ParameterSetManager: construction, the load entry points, errors, identity and what the file's
// header told.
#include "parameterparser/parametersetmanager.h"

#include <cstring>

#include "platform/vornalloc.h"
#include "platform/vornosutils.h"

#include "parameterparser/defaultmodule.h"
#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterfileloader.h"
#include "parameterparser/parametermodule.h"

namespace {

// The composed identifier holds the name, ";BinaryTag=" (11) and up to 54 characters of the tag.
constexpr unsigned int IdentifierExtraLength = 66;

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
    bool const loaded = ParameterFileLoader(*this).LoadFromBuffer(buffer, length);
    ExplainLoadFailure(loaded, recorder);
    return loaded;
}

bool ParameterSetManager::LoadBinaryParameters(char const* fileName)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->LoadBinaryParameters(fileName);
    ParameterFirstErrorRecorder recorder;
    bool const loaded = ParameterFileLoader(*this).LoadFromFile(fileName);
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

// Only here is the manager known to be a host: the tables and records below it keep it opaque.
IParameterModuleHost* IParameterModuleHost::Of(ParameterSetManager* manager)
{
    return manager;
}
