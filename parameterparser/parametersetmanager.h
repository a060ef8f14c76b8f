// SPDX-License-Identifier: Apache-2.0
// ParameterSetManager: the store of one binary tuning file, its header, sections and tables.
#pragma once

#include <cstdint>
#include <unordered_map>

#include "parameterparser/imodetable.h"
#include "parameterparser/iparameterdataapi.h"
#include "parameterparser/modeunion.h"
#include "parameterparser/parametercontrolvalues.h"
#include "parameterparser/parameterexport.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/plist.h"
#include "parameterparser/versionunion.h"

class DefaultModule;
class KnobbyHandler;
class ModeEntry;
class ModuleData;
class ParameterBinaryFile;
class ParameterFileSymbolTableEntry;
class ParameterKnobbyWorker;
class ParameterModeTable;
class ParameterModule;
struct ModeSlot;

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

    // Mode tables and the mode tree.

    /// The slot of a Mode ID (bits 31-24 the table index, bits 23-0 the slot index) in the main
    /// manager's tables. An index out of range logs at error level and gives null. Borrowed.
    ModeSlot* GetModeEntry(unsigned int modeId) override;

    /// The main manager's mode table of this index; null when out of range. Borrowed.
    ParameterModeTable* GetModeTable(unsigned int modeTableIndex) const;

    /// The number of mode tables this object holds itself: 0 on a derived manager.
    unsigned int GetModeTableCount() override;

    /// Appends each table's name (null for a table without one) to names, in table order.
    /// Borrowed; false when no table is loaded.
    bool GetModeTableNames(PList<char const*>& names) override;

    /// Writes the named paths of at most five deepest active branches of a table, joined by ";"
    /// ("Default" when nothing is active) into result, cut at resultLength. A bad index, null
    /// result or resultLength 0 leaves result untouched.
    void GetActiveModes(unsigned char modeTableIndex, char* result,
                        unsigned int resultLength) override;

    /// Turns a named path ("Default|Sensor.2|Usecase.Preview") into a mode path ("0|1.2|2.0")
    /// in result, cut at resultLength and always terminated (nothing for resultLength 0). A path
    /// with an empty step between two "|" must not be passed.
    void GetModeShorthand(char const* modes, char* result, unsigned int resultLength) override;

    /// The node that a mode path ("0.0|1.2|2.0") names in a table; null for a null or malformed
    /// path, a bad index or a step that is not in the tree. Borrowed.
    virtual ModeEntry* GetModeEntry(unsigned char modeTableIndex, char const* modePath);

    /// The node reached by walking modeBranch (step 0 is the root) in a table; the root for a
    /// null branch. Consecutive steps of one mode value match their nodes in either order. A bad
    /// table index logs at error level and gives null; a step that ValidateMode refuses is kept
    /// as the error and ends the walk at the node reached so far. Null when a step is not in
    /// the tree. Borrowed.
    virtual ModeEntry* GetModeEntry(unsigned char modeTableIndex, TuningMode const* modeBranch,
                                    unsigned int modeCount);

    /// Writes the children of the node at modePath (the root for an unknown path) as named steps
    /// joined by "," with a terminator ("Usecase.Preview,Usecase.Video"); bytes that do not fit
    /// are logged and left out. Returns the bytes written, terminator included.
    unsigned int GetChildModes(unsigned char modeTableIndex, char const* modePath,
                               unsigned char* result, unsigned int resultLength) override;

    /// Reads every mode section into a new table of the main manager; a file without mode
    /// sections gets one unnamed table with a Default root. buffer holds the whole file in
    /// buffer mode; in file mode each section is read from file. Faults are logged and kept as
    /// the error. True when the last section that made a table was read without a fault.
    [[nodiscard]] bool ReadModeSections(unsigned char* buffer, unsigned int length,
                                        ParameterBinaryFile* file, unsigned char alignment);

    /// True if step index of modeBranch has a mode value of 6 or less and is Default only at
    /// index 0; otherwise the reason, led by caller, is kept as the error.
    bool ValidateMode(char const* caller, TuningMode const* modeBranch, unsigned int index);

    /// Appends the steps of a mode path ("0.0|1.2") to modeBranch. False for a null path, a
    /// character other than a digit or "." (steps before it stay appended), or no step at all.
    bool GetModeBranchFromPath(char const* path, PList<TuningMode>& modeBranch);

    /// Appends the mode path of modeBranch to path, which holds a string, cut at length; stops
    /// at the first step that ValidateMode refuses.
    void GetPathFromModeBranch(TuningMode const* modeBranch, unsigned int modeCount, char* path,
                               unsigned int length);

    /// The value of a mode name, case ignored ("usecase" gives 2); 0 for null or no match.
    static unsigned short GetModeIndex(char const* name);

    /// The value of a sub-mode given as a number or as a name of mode's row, case ignored; 0 for
    /// null or no match.
    static unsigned short GetSubModeIndex(unsigned short mode, char const* name);

    /// Turns mode paths joined by ";" ("0.0|1.2") into named paths ("Default|Sensor.2"), cut at
    /// resultLength. An empty modes gives "Default".
    static void GetKnobbyModesString(char const* modes, char* result, unsigned int resultLength);

    // Modules of the loaded file.

    /// Makes the module instance of a module record through the registry entry of its name hash,
    /// reading it from entry at once when loadNow. An unknown kind is kept as the error "Failed to
    /// find header module: " with the record (unless unknown modules are ignored); a kind that
    /// makes no instance as "Failed to parse binary header data for: ". Null in both cases.
    /// The instance belongs to the registry.
    ParameterModule* CreateModule(ParameterFileSymbolTableEntry const* entry, ModuleData* data,
                                  bool loadNow);

    /// Hangs module on the mode node of data's Mode ID. False silently for a null argument;
    /// false with the error "AddModule: RootMode is nullptr" when the record's mode table has no
    /// tree, and with "AddModule: moduleData->ModeId(%d) >= m_modeCount(%d)\n" logged when the
    /// slot is past the table.
    bool AddModule(ModuleData const* data, ParameterModule* module);

    // Values by name, for the live tuning worker: the text forms of the main manager.

    /// Values of variable in the mode of modePath as "name=value" items joined by ";"; see
    /// IParameterDataAPI. False for a null variable, result or modePath.
    bool GetValue(unsigned char modeTableIndex, char const* modePath, char const* variable,
                  char const* subVariables, char* result, unsigned int resultLength) override;
    /// Sets variableName below variableBase from text; see IParameterDataAPI.
    bool SetValue(unsigned char modeTableIndex, char const* modePath, char const* variableBase,
                  char const* variableName, char const* value) override;
    /// Describes variable's members; see IParameterDataAPI.
    bool GetInfo(unsigned char modeTableIndex, char const* modePath, char const* variable,
                 PList<ParameterParserInfo>& info) override;

    // Live tuning: the main manager's worker, made when the constructor was asked for one and
    // started by every successful load.

    /// Reads a live tuning request's head (ParameterKnobbyWorker::ParseRequest). False without a
    /// worker or with live tuning switched off.
    bool ParseKnobbyRequest(unsigned char const* packet, unsigned int size,
                            unsigned short& command, unsigned long& id, unsigned int& requestID,
                            unsigned char const*& payload, unsigned int& payloadLength);
    /// Writes a live tuning response head and payload (ParameterKnobbyWorker::BuildResponse).
    /// False without a worker or with live tuning switched off.
    bool BuildKnobbyResponse(unsigned char* buffer, unsigned int bufferSize,
                             unsigned int& totalLength, unsigned short command, unsigned long id,
                             unsigned int requestID, unsigned char const* payload,
                             unsigned int payloadLength);
    /// Replaces the control values a client reads. Nothing without a worker.
    void SetControlValues(PList<ParameterCTValue> const& values);
    /// On the main manager inserts or updates one control value; on a derived manager replaces
    /// the main manager's whole list by this one value. Nothing without a worker.
    void SetControlValue(ParameterCTValue const& value);
    /// Answers a pending trigger request for one instance with a copy of count values. False
    /// without a worker or a matching request.
    bool SetTriggerValues(char const* modePath, char const* module, char const* pipeline,
                          char const* instance, ParameterCTValue const* values,
                          unsigned int count);
    /// True while a client's trigger request for the three texts waits for its answer.
    bool TriggerRequestExists(char const* modePath, char const* module, char const* pipeline);
    /// Installs the host's callbacks for custom commands and trigger requests on the main
    /// manager's worker (null removes them; the host keeps ownership). Nothing without a worker.
    void SetKnobbyHandler(KnobbyHandler* handler);
    /// The port the live tuning server listens on; 0 without a worker or before a load.
    unsigned short GetKnobbyPort() const;

protected:
    /// Only concrete managers construct one. main is null for a main manager; a derived manager
    /// works on main's mode table modeTableIndex. name is copied; null or empty means none.
    ParameterSetManager(ParameterSetManager* main, unsigned char modeTableIndex, char const* name,
                        bool createWorker);

    ParameterSetManager* MainManager();
    ParameterSetManager const* MainManager() const;

    /// Stops and destroys the live tuning worker, waiting for its threads. A concrete manager
    /// calls it first in its destructor, so that no command runs against a half-destroyed
    /// object; the frame's destructor calls it again, which does nothing.
    void StopKnobbyWorker();

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
    ParameterKnobbyWorker* m_knobbyWorker = nullptr;
    PList<ParameterModeTable*> m_modeTables;
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
    /// Ends the load's hold on the file object of a load by name: a symbol table that took the
    /// file over keeps it, closed; otherwise the object is destroyed.
    void ReleaseLoadFile(ParameterBinaryFile* file);
    /// Makes and, with loadNow, reads the instance of a registered kind. Filled in by the module
    /// framework; until module kinds exist no registry entry can be found and it makes nothing.
    ParameterModule* CreateModuleOfKind(DefaultModule* kind,
                                        ParameterFileSymbolTableEntry const* entry,
                                        ModuleData* data, bool loadNow);
    /// The name of a registered kind's first instance for error texts; null when it has none.
    /// Filled in by the module framework, like CreateModuleOfKind.
    char const* ModuleKindName(DefaultModule* kind);
    /// Adds module to node's modules. Filled in by the module framework, like
    /// CreateModuleOfKind; until then there is no module to add.
    bool AttachModule(ModeEntry* node, ParameterModule* module);
    /// Takes tag as the binary tag, keeping the logging identifier off the old one.
    void ReplaceBinaryTag(char* tag);
    /// Points the logging identifier at the tag, or at the name followed by the tag.
    void UpdateLoggingIdentifier();
    /// Frees the tables, tag and name that this object itself holds.
    void FreeOwnData();
    /// Deletes every mode table of this object, first to last; the list ends empty.
    void FreeModeTables();
    /// Makes the one unnamed table with a Default root of a file without mode sections.
    bool CreateDefaultModeTable();
    /// Logs which of the main manager's tables a derived manager was made for.
    void LogModeTableBinding();
};
