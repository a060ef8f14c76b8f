// SPDX-License-Identifier: Apache-2.0
// ParameterSetManager: the store of one binary tuning file, its header, sections and tables.
#pragma once

#include <cstdint>
#include <unordered_map>

#include "parameterparser/imodetable.h"
#include "parameterparser/iparameterdataapi.h"
#include "parameterparser/iparametermodulehost.h"
#include "parameterparser/modeunion.h"
#include "parameterparser/parametercontrolvalues.h"
#include "parameterparser/parameterexport.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/parametermodetree.h"
#include "parameterparser/parametermodulestore.h"
#include "parameterparser/plist.h"
#include "parameterparser/versionunion.h"

class DefaultModule;
class KnobbyHandler;
class ModeEntry;
class ModuleData;
class ParameterBinaryFile;
class ParameterFileSymbolTableEntry;
class IParameterLiveTuning;
class ParameterModeTable;
class ParameterModule;
struct ModeSlot;

/// The store of one tuning file. A main manager (no main of its own) owns the file and every
/// table; a derived manager is a handle on one mode table of its main manager and forwards loads,
/// frees and errors to it. Loading, freeing and destruction must not run beside any other call.
/// Concrete managers supply the registry of module kinds.
class PARAMETERPARSER_API ParameterSetManager : public IModeTable,
                                                public IParameterDataAPI,
                                                public IParameterModuleHost
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
    /// The manager as the logger of the tables and modules below it.
    IParameterLoggingAPI* GetLogger() override { return this; }
    /// The registry entry of a module kind by name hash; null (logged) if the kind is unknown.
    virtual DefaultModule* GetDefaultModule(unsigned long nameHash) = 0;
    /// Takes every module instance out of service ahead of a reload.
    virtual void SaveAndClearModules() = 0;
    /// Loads a whole tuning file from buffer, which is only read during the call. Refused with
    /// "Binary file already loaded" when a file is loaded; a buffer above 4 GiB is logged and
    /// refused. Every refusal leaves a non-empty error string: the fault's own text, or else the
    /// first error the reading logged (which names the offset and size that failed). A load
    /// clears the error string first. Returns the load status.
    [[nodiscard]] bool LoadBinaryParameters(unsigned char* buffer, unsigned long length);
    /// Loads the named file: in file mode (when the manager allows it) the file stays open behind
    /// the manager; otherwise it is read whole and loaded as a buffer. A null name is kept as the
    /// error and a name of 1023 characters or more is logged; both return the status unchanged.
    /// A file that cannot be opened gives "Unable to open binary file '<name>': <errno text>";
    /// a directory, an empty file or one above 4 GiB is named as such. Other refusals explain
    /// themselves as the buffer form's do. In file mode a file whose first 3388 bytes cannot be
    /// read loads with its header only and returns true.
    [[nodiscard]] bool LoadBinaryParameters(char const* fileName);
    /// Releases the loaded tables, the tag and the name. Sections, file name and modules stay.
    void FreeBinaryParameters();

    // Reload and update. Clients hold raw pointers into modules, so nothing they can read is
    // freed by a reload: the generation it replaces is parked, readable, until the next reload
    // or the destructor. These run alone: no other call on this manager or its derived managers
    // may overlap them, but reads through module pointers held from before may.

    /// Reads the file by its name again into a new generation and parks the current one (its
    /// modules, symbol table and mode tables); the generation parked by the reload before is
    /// freed first. In file mode the file stays on disk as before; with bufferMode the whole file
    /// is read at once and the name is cleared, so no later reload is possible. When the new
    /// file has the old one's table and slot layout, clients' reference counts carry over to the
    /// new modules slot by slot. A manager without a file name (loaded from a buffer) keeps
    /// "ReloadBinaryParameters called with empty file name" as the error. A failed load leaves
    /// the manager empty, with the last generation parked intact; a file-mode reload can be
    /// tried again. The live tuning worker is stopped for the reload (a connected client is
    /// dropped) and started again when the reload leaves the manager loaded. Returns the result
    /// of the load.
    [[nodiscard]] bool ReloadBinaryParameters(bool bufferMode);
    /// Deletes the parked generation: its modules first (whose unload needs their symbol
    /// table), then its symbol tables, then its mode tables. Pointers into it become invalid.
    void FreeReplacedParameters();
    /// Moves the modules of update, a second loaded manager, into this manager's trees: the
    /// module of a name in a node replaces the one this node had, which is parked like a module
    /// of a reload. With one table on each side the tables are merged whatever their names;
    /// otherwise tables are merged where both have one of the same name at the same index. False
    /// for a null update or a manager that is not loaded (silently), and with "UpdateParameters:
    /// Error: No matching module tables names found, unable to update parameters" kept as the
    /// error when no table matches; an update that is this manager or one derived from it is
    /// refused with "UpdateParameters: Error: update is this manager, unable to update
    /// parameters". The live tuning workers of both managers stop for the merge and start again
    /// afterwards. update and its symbol table must outlive this manager: the moved modules keep
    /// their records there and read from update's file.
    bool UpdateParameters(ParameterSetManager* update);
    /// Moves the modules of source and of its later siblings into target (unless target links
    /// elsewhere), then merges each child of source into target's child of the same mode and
    /// sub-mode. False when target or source is null or a child of source has no counterpart
    /// below target, which ends the merge there; refused like the form above when update is this
    /// manager or target is source.
    bool UpdateParameters(ModeEntry* target, ModeEntry* source, ParameterSetManager* update);
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
    bool IsFileMode() const override;
    /// The loaded file's symbol table; null when no file is loaded. Borrowed.
    ParameterFileSymbolTable* GetSymbolTable() const;

    // Mode tables and the mode tree.

    /// The slot of a Mode ID (bits 31-24 the table index, bits 23-0 the slot index) in the main
    /// manager's tables. An index out of range logs at error level and gives null. Borrowed.
    ModeSlot* GetModeEntry(unsigned int modeId) override;
    /// The main manager's mode table of this index; null when out of range. Borrowed.
    ParameterModeTable* GetModeTable(unsigned int modeTableIndex) const override;
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

    // Module lookup. In file mode a mode's modules are read when the mode is first asked for,
    // every pointer handed out holds one reference on the mode that owns the module, and at
    // most m_maxActiveModes recently asked modes that no client holds stay loaded. In buffer
    // mode everything was read at load and lookups only search. All of these run on the main
    // manager and may be called from several threads at once after a load.

    /// The module moduleName for a branch (step 0 is Default, the root): the module of the
    /// deepest node of the branch that holds one, found by walking the branch down from the
    /// root; a step that fails validation or is not in the tree ends the walk. In file mode the
    /// branch's modes are read first and the result carries a reference for the caller. previous
    /// (the module the caller held, may be null) is released after the new reference is taken.
    /// Null, after logging, for a bad table index, a module in no node of the branch (the root's
    /// miss is a warning; a null branch stops there) or one that fails to load. unused is not
    /// looked at. Borrowed: the registry owns the module.
    ParameterModule* GetModuleInternal(unsigned char modeTableIndex, char const* moduleName,
                                       TuningMode const* modeBranch, unsigned int modeCount,
                                       ParameterModule* previous, bool unused);
    /// Releases what modules held, then fills it with the modules of the one node the branch
    /// reaches (a null branch: the root), each with a reference for the caller: those owned by
    /// the node with includeLocal, the others with includeShared; pipeline, if given, keeps only
    /// modules of that pipeline. No merge with parents. A bad table index is logged; a step that
    /// is not in the tree leaves modules empty.
    void GetModules(unsigned char modeTableIndex, PList<ParameterModule*>& modules,
                    TuningMode const* modeBranch, unsigned int modeCount, bool includeLocal,
                    bool includeShared, PipelineType* pipeline);
    /// Gives back one reference of module to the node that owns it. Null does nothing; a module
    /// without a record or whose record has no mode is logged at error level.
    void ReleaseModule(ParameterModule const* module) override;
    /// Releases every module of modules, first to last, and empties the list.
    void ReleaseModules(PList<ParameterModule*>& modules);
    /// Reads the modules of every mode of the branch (file mode). moduleName is only for the
    /// log (null: "Unknown"). False with "LoadMode called with no binary file loaded" or
    /// "LoadMode is not valid in buffer mode" kept as the error; otherwise LoadModeInternal.
    [[nodiscard]] bool LoadMode(unsigned char modeTableIndex, TuningMode const* modeBranch,
                                unsigned int modeCount, char const* moduleName);
    /// LoadMode without its checks: reads the root's modules and, in file mode, those of each
    /// node the branch reaches, and closes the file again. False for a bad table index (logged),
    /// a table without a tree, or a step that is not in the tree; a step that fails validation
    /// or fails to read ends the walk with true.
    [[nodiscard]] bool LoadModeInternal(unsigned char modeTableIndex, TuningMode const* modeBranch,
                                        unsigned int modeCount, char const* moduleName);
    /// Unloads the modules of the last mode that the branch reaches, never its parents; a
    /// resident mode (the root, Default and Sensor modes, modes changed by SetValue) stays.
    /// References still held are logged and cleared; clients' pointers stay valid objects whose
    /// values are gone. False for a bad table index (logged), a table without a tree ("UnloadMode
    /// root mode is nullptr") or a step that is not in the tree. In buffer mode keeps "UnloadMode
    /// is not valid in buffer mode" as the error and returns whether the table has a tree.
    bool UnloadMode(unsigned char modeTableIndex, TuningMode const* modeBranch,
                    unsigned int modeCount);
    /// Loads (load) or unloads the modules of mode, or of the node its link leads to, and keeps
    /// the table's active list: a loaded mode of value 2 or more goes to its front and, in file
    /// mode with a limit, the oldest modes that no client holds are unloaded past the limit.
    /// fileReferences counts the file references the load took, which the caller gives back.
    /// Bad arguments are logged and give true; false when a module of a load failed to read.
    bool LoadModules(ModeEntry* mode, bool load, char const* moduleName,
                     TuningMode const* modeBranch, unsigned int modeCount, int& fileReferences);

    // Values by name, for the live tuning worker and tools. A variable is "<module>" or
    // "<module>.<path>": an instance name, then a value path inside the module. Each call takes
    // a reference on the module's mode that it keeps, so a mode read or changed this way stays
    // loaded. A derived manager's text forms run on its main manager.

    /// Values of variable in the mode of modePath (a numeric path from the root, "0.0|1.2") as
    /// "name=value" items joined by ";" (array elements joined by ","), cut at resultLength.
    /// subVariables, if not null, is a comma list of names under variable read one by one; the
    /// result is that of the last. Without it, variable's path is read whole, member by member,
    /// each element's text cut at 64 characters. False for a null variable, result or modePath,
    /// a path that does not parse, an unknown module or a member that cannot be read; the items
    /// read before stay in result.
    bool GetValue(unsigned char modeTableIndex, char const* modePath, char const* variable,
                  char const* subVariables, char* result, unsigned int resultLength) override;
    /// GetValue for a mode branch (step 0 is the root) of modeCount steps; false for a null
    /// branch or a count of 0.
    bool GetValue(unsigned char modeTableIndex, TuningMode const* modeBranch,
                  unsigned int modeCount, char const* variable, char const* subVariables,
                  char* result, unsigned int resultLength);
    /// Sets variableName below variableBase ("<module>" or "<module>.<path>") in the mode of
    /// modePath from its text, in the loaded module only (the file is not written). Every mode
    /// that shares the module sees the change; the mode that owns it becomes resident and leaves
    /// the active list. False for a null argument, an empty module name or a path that does not
    /// parse; false after logging "Knobby SetValues failed: Module not found: \n" or "Knobby
    /// SetValues failed: Variable not found: \n".
    bool SetValue(unsigned char modeTableIndex, char const* modePath, char const* variableBase,
                  char const* variableName, char const* value) override;
    /// SetValue for a mode branch; false for a null branch or a count of 0.
    bool SetValue(unsigned char modeTableIndex, TuningMode const* modeBranch,
                  unsigned int modeCount, char const* variableBase, char const* variableName,
                  char const* value);
    /// Appends the description of variable's members to info: the module's top level when
    /// variable has no path (a path of one character counts as none). A null modePath asks the
    /// branch form with no branch. False for an unknown module or member, or a module without
    /// value access.
    bool GetInfo(unsigned char modeTableIndex, char const* modePath, char const* variable,
                 PList<ParameterParserInfo>& info) override;
    /// GetInfo for a mode branch; a null branch or a count of 0 logs "GetInfo called with null
    /// or empty modeBranch\n" and gives false.
    bool GetInfo(unsigned char modeTableIndex, TuningMode const* modeBranch, unsigned int modeCount,
                 char const* variable, PList<ParameterParserInfo>& info);

    // Live tuning: the service a concrete main manager attaches (AttachLiveTuning) when the
    // constructor was asked for one, started by every successful load.

    /// Reads a live tuning request's head (ParameterKnobbyWorker::ParseRequest). False without a
    /// worker or with live tuning switched off.
    bool ParseKnobbyRequest(unsigned char const* packet, unsigned int size, unsigned short& command,
                            unsigned long& id, unsigned int& requestID,
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
                          char const* instance, ParameterCTValue const* values, unsigned int count);
    /// True while a client's trigger request for the three texts waits for its answer.
    bool TriggerRequestExists(char const* modePath, char const* module, char const* pipeline);
    /// Installs the host's callbacks for custom commands and trigger requests on the main
    /// manager's worker (null removes them; the host keeps ownership). Nothing without a worker.
    void SetKnobbyHandler(KnobbyHandler* handler);
    /// The port the live tuning server listens on; 0 without a worker or before a load.
    unsigned short GetKnobbyPort() const;
    /// Where the live tuning server listens, set before the first load: host a numeric IPv4 or
    /// IPv6 literal (null or empty: the default interface), port the only port tried (0: the
    /// default walk from 19278). False, and nothing changed, without a worker, for a host that
    /// is no such literal, or while the server listens.
    [[nodiscard]] bool SetKnobbyListenAddress(char const* host, unsigned short port);
    /// Seconds a live tuning client may send nothing before it is disconnected (default 10; 0:
    /// no limit), set before the first load. Nothing without a worker.
    void SetKnobbyIdleTimeout(unsigned int seconds);

protected:
    /// Only concrete managers construct one. main is null for a main manager; a derived manager
    /// works on main's mode table modeTableIndex. name is copied; null or empty means none.
    /// createWorker says that this manager hosts a live tuning service, which the concrete
    /// manager that owns it attaches with AttachLiveTuning.
    ParameterSetManager(ParameterSetManager* main, unsigned char modeTableIndex, char const* name,
                        bool createWorker);

    ParameterSetManager* MainManager();
    ParameterSetManager const* MainManager() const;

    /// Takes service (borrowed; its owner keeps it until StopKnobbyWorker) as this manager's
    /// live tuning service. Only a manager constructed with createWorker hosts one: elsewhere,
    /// and for a second service, nothing happens and false is returned.
    bool AttachLiveTuning(IParameterLiveTuning* service);

    /// Stops the live tuning service, waiting for its threads, and lets it go. A concrete
    /// manager, and any class a host derives from one, calls it first in its destructor, so that
    /// no command runs against a half-destroyed object, and before its service is destroyed; the
    /// frame's destructor calls it again, which does nothing.
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
    /// Module instances taken out of service, in the order they were parked; owned.
    PList<ParameterModule*> m_replacedModules;
    /// The live tuning service, attached by the concrete manager that owns it; borrowed.
    IParameterLiveTuning* m_liveTuning = nullptr;
    /// The constructor was asked for live tuning: a service may be attached.
    bool m_hostsLiveTuning = false;
    /// The mode tables of the file in service and of the parked generation.
    ParameterModeTree m_modeTree{*this};
    /// The modules by mode, their references and the parked generation.
    ParameterModuleStore m_store{*this, m_modeTree};
    char* m_name = nullptr;
    uint32_t m_nameLength = 0;
    char* m_loggingIdentifier = nullptr;
    ParameterSetManager* m_mainSetManager = nullptr;
    uint8_t m_modeTableIndex = 0;
    /// Reloads and updates under way that keep the live tuning worker stopped; while above 0 a
    /// load does not start it.
    unsigned int m_knobbyPauses = 0;

private:
    friend class ParameterFileLoader;
    friend class ParameterModuleStore;

    /// Holds the live tuning service stopped for as long as it lives: a reload or an update frees
    /// and rewires what the command thread reads. Holds nest; the last one to go starts the
    /// worker again when the manager is loaded and live tuning is on.
    class KnobbyPause;
    /// Starts the live tuning service after a successful load, unless live tuning is switched
    /// off or a reload or update holds it.
    void StartKnobbyWorker();
    /// The two halves of a KnobbyPause. The server keeps its socket and its client: a request
    /// that comes in the meantime is answered once the last hold goes, which starts the service
    /// again when the manager is loaded and live tuning is on, and stops it otherwise.
    void PauseKnobbyWorker();
    void ResumeKnobbyWorker();
    /// Keeps the first error recorded during a load that failed and set no error text itself.
    void ExplainLoadFailure(bool loaded, ParameterFirstErrorRecorder const& recorder);
    /// The name of a registered kind's first instance for error texts; null when it has none.
    char const* ModuleKindName(DefaultModule* kind);
    /// Takes tag as the binary tag, keeping the logging identifier off the old one.
    void ReplaceBinaryTag(char* tag);
    /// Points the logging identifier at the tag, or at the name followed by the tag.
    void UpdateLoggingIdentifier();
    /// Frees the tables, tag and name that this object itself holds.
    void FreeOwnData();
    /// Logs which of the main manager's tables a derived manager was made for.
    void LogModeTableBinding();
};
