// SPDX-License-Identifier: Apache-2.0
// ParameterSetManager: the store of one binary tuning file, its header, sections and tables.
#pragma once

#include <cstdint>
#include <unordered_map>

#include "parameterparser/imodetable.h"
#include "parameterparser/iparameterdataapi.h"
#include "parameterparser/parameterexport.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/plist.h"
#include "parameterparser/versionunion.h"

class DefaultModule;
class ModuleData;
class ParameterBinaryFile;

/// The store of one tuning file. A main manager (no main of its own) owns the file and every
/// table; a derived manager is a handle on one mode table of its main manager and forwards loads,
/// frees and errors to it. Loading, freeing and destruction must not run beside any other call.
/// Concrete managers supply the registry of module kinds.
class PARAMETERPARSER_API ParameterSetManager : public IModeTable, public IParameterDataAPI
{
public:
    using SectionInfo = ParameterFileSymbolTable::SectionInfo;

    static constexpr unsigned int ErrorStringLength = 2048;
    static constexpr unsigned int FileNameLength = 1024;
    /// A file name must be shorter than this many characters.
    static constexpr unsigned int MaxFileNameLength = 1023;
    /// Bytes at the start of a file in file mode that must hold the whole section table.
    static constexpr unsigned int HeaderWindowSize = 3388;
    /// Header flag bit of a compressed file, which is no longer supported.
    static constexpr unsigned long CompressedFlag = 0x2;

    ParameterSetManager(ParameterSetManager const&) = delete;
    ParameterSetManager& operator=(ParameterSetManager const&) = delete;
    ParameterSetManager(ParameterSetManager&&) = delete;
    ParameterSetManager& operator=(ParameterSetManager&&) = delete;

    /// Frees what the manager loaded and owns. Destroying a derived manager leaves its main
    /// manager's data alone.
    ~ParameterSetManager() override;

    /// The manager's name, with ";BinaryTag=" and the file's tag once a header was read; the tag
    /// alone for a manager without a name; null before that. Borrowed.
    char const* GetLoggingIdentifier() override;

    /// The switch of this object for level 2 (errors), 1 (warnings) or 0 (verbose); true for any
    /// other level.
    bool LoggingEnabled(ParameterLogging::ParameterLogLevel level) override;

    /// The registry entry of a module kind by name hash; null (logged) if the kind is unknown.
    virtual DefaultModule* GetDefaultModule(unsigned long nameHash) = 0;

    /// Takes every module instance out of service ahead of a reload.
    virtual void SaveAndClearModules() = 0;

    /// Loads a whole tuning file from buffer, which is only read during the call. Refused with
    /// "Binary file already loaded" when a file is loaded; a buffer above 4 GiB is logged and
    /// refused. Header and section faults are kept as the error string. Returns the load status.
    [[nodiscard]] bool LoadBinaryParameters(unsigned char* buffer, unsigned long length);

    /// Loads the named file: in file mode (when the manager allows it) the file stays open behind
    /// the manager; otherwise it is read whole and loaded as a buffer. A null name is kept as the
    /// error and a name of 1023 characters or more is logged; both return the status unchanged.
    /// An unreadable file gives "Unable to allocate space to read binary file". In file mode a
    /// file whose first 3388 bytes cannot be read loads with its header only and returns true.
    [[nodiscard]] bool LoadBinaryParameters(char const* fileName);

    /// Releases the loaded tables, the tag and the name. Sections, file name and modules stay.
    void FreeBinaryParameters();

    /// Keeps message (cut at 2047 characters) as the main manager's error text and logs it at
    /// error level. data names the module concerned; it may be null.
    void SetError(char const* message, ModuleData const* data = nullptr);

    /// The main manager's last error text; empty before any error. Borrowed.
    char const* GetErrorString() const;

    /// Reads the header of a whole file in buffer and stores version, tag, flags and section
    /// count in the main manager; the result is also the load status. A failure keeps its text
    /// as the error. On success the logging identifier takes the tag.
    [[nodiscard]] bool ReadHeader(unsigned char* buffer, unsigned int length,
                                  unsigned int& position, unsigned int& sectionTableOffset,
                                  unsigned char& alignment);

    /// Reads the section table at position into the main manager's section descriptors. The
    /// result is also the load status; a failure's text is kept as the error.
    [[nodiscard]] bool ReadSectionInfo(unsigned char* buffer, unsigned int length,
                                       unsigned int& position, unsigned char alignment);

    /// Reads the section table at sectionTableOffset, then the tables and modules it names.
    /// buffer holds the whole file in buffer mode, or its first bytes in file mode, where file
    /// and fileName name the file of fileSize bytes. A bad section table gives "Invalid binary
    /// file section count" and a compressed file "Compressed binary file not supported (support
    /// ended with V5.1.0)", both as the error; the result is also the load status.
    [[nodiscard]] bool ReadSections(unsigned char* buffer, unsigned int length,
                                    char const* fileName, ParameterBinaryFile* file,
                                    unsigned int fileSize, unsigned int sectionTableOffset,
                                    IModeTable* modeTable, unsigned char alignment);

    /// Reads the header of a whole file in buffer from pos 0. sectionOffset, alignment, version,
    /// headerFlags (from 3.0.0 on) and sectionCount receive the fields; alignment is set on every
    /// path. From 1.0.2 on binaryTag receives a new string (VornCalloc) that the caller frees
    /// with VornFree; an earlier string there is freed. errorText, if not null, has room for 2048
    /// characters and receives why the header was refused; a file below 1.0.2 leaves a warning
    /// there while the result is true. Short reads are logged at error level; log may be null.
    [[nodiscard]] static bool ReadHeader(unsigned char* buffer, unsigned int length,
                                         unsigned int& pos, unsigned int& sectionOffset,
                                         unsigned char& alignment, VersionUnion& version,
                                         char*& binaryTag, unsigned long& headerFlags,
                                         unsigned int& sectionCount, char* errorText,
                                         IParameterLoggingAPI* log);

    /// Reads sectionCount records of the section table at pos and stores each by its type; mode
    /// sections are appended to modes. Fewer than 2 records or an unknown type is logged (when a
    /// logger is given) and gives false, as does a short table, whose text goes to errorText.
    /// Records before a failure stay stored.
    [[nodiscard]] static bool ReadSectionInfo(unsigned char* buffer, unsigned int length,
                                              unsigned int& pos, unsigned char alignment,
                                              unsigned int sectionCount, SectionInfo& symbol,
                                              SectionInfo& dataTable, PList<SectionInfo>& modes,
                                              SectionInfo& data, SectionInfo& definitions,
                                              char* errorText, IParameterLoggingAPI* log);

    /// True if the named file of version 7.0.0 or later holds a mode table named tableName.
    /// Any failure to read the file, its header or its section table gives false.
    [[nodiscard]] static bool ModeTableEntryExists(char const* fileName, char const* tableName);

    VersionUnion GetBinaryVersion() const;
    /// The file's binary tag; null before a header of 1.0.2 or later was read. Borrowed.
    char const* GetBinaryTag() const;
    unsigned long GetBinaryFlags() const;
    unsigned int GetSectionCount() const;
    SectionInfo GetSymbolSection() const;
    SectionInfo GetDataTableSection() const;
    PList<SectionInfo> const& GetModeSections() const;
    SectionInfo GetDataSection() const;
    SectionInfo GetDefinitionSection() const;
    bool GetLoadStatus() const;
    /// True when the loaded file stays on disk behind the manager.
    bool IsFileMode() const;
    /// The loaded file's symbol table; null when no file is loaded. Borrowed.
    ParameterFileSymbolTable* GetSymbolTable() const;

protected:
    /// Only concrete managers construct one. main is null for a main manager; a derived manager
    /// works on main's mode table modeTableIndex. name is copied; null or empty means none.
    ParameterSetManager(ParameterSetManager* main, unsigned char modeTableIndex, char const* name,
                        bool createWorker);

    ParameterSetManager* MainManager();
    ParameterSetManager const* MainManager() const;

    char* m_binaryTag = nullptr;
    bool m_loadStatus = false;
    char m_errorString[ErrorStringLength] = {};
    unsigned long m_binaryFlags = 0;
    VersionUnion m_binaryVersion;
    uint32_t m_sectionCount = 0;
    bool m_logErrors = true;
    bool m_logWarnings = true;
    bool m_logVerbose = true;
    bool m_ignoreUnknownModules = false;
    SectionInfo m_symbolSection = {};
    SectionInfo m_dataTableSection = {};
    PList<SectionInfo> m_modeSections;
    SectionInfo m_dataSection = {};
    SectionInfo m_definitionSection = {};
    bool m_knobbyEnabled = true;
    uint32_t m_modifiedValueCount = 0;
    std::unordered_map<unsigned long, DefaultModule*> m_defaultModules;
    ParameterFileSymbolTable* m_symbolTable = nullptr;
    uint32_t m_maxActiveModes = 0;
    bool m_fileModeAllowed = false;
    char m_fileName[FileNameLength] = {};
    char* m_name = nullptr;
    uint32_t m_nameLength = 0;
    char* m_loggingIdentifier = nullptr;
    ParameterSetManager* m_mainSetManager = nullptr;
    uint8_t m_modeTableIndex = 0;

private:
    /// The stage behind the section table, where the mode tables, the symbol and data tables and
    /// the modules are read. True when the file is ready for lookups; a file whose sections are
    /// known and nothing more is such a file.
    bool LoadSectionContents(unsigned char* buffer, unsigned int length, char const* fileName,
                             ParameterBinaryFile* file, unsigned int fileSize,
                             IModeTable* modeTable, unsigned char alignment);
    /// Ends the load's hold on the file object of a load by name.
    void ReleaseLoadFile(ParameterBinaryFile* file);
    /// Takes tag as the binary tag, keeping the logging identifier off the old one.
    void ReplaceBinaryTag(char* tag);
    /// Points the logging identifier at the tag, or at the name followed by the tag.
    void UpdateLoggingIdentifier();
    /// Frees the tables, tag and name that this object itself holds.
    void FreeOwnData();
};
