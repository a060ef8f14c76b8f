// SPDX-License-Identifier: Apache-2.0
// ParameterModeTree: the tables of both generations, slots by Mode ID, branch walks, child and
// active mode listings; and the manager's mode-tree operations, which run on it.
#include "parameterparser/parametermodetree.h"

#include <mutex>
#include <new>

#include "platform/vornalloc.h"
#include "platform/vornosutils.h"

#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parametermodule.h"
#include "parameterparser/parametersetmanager.h"
#include "parameterparser/parameterutils.h"

namespace {

// The largest mode value that has a name.
constexpr unsigned int MaxModeValue = ModeEffect;
// Most active branches that GetActiveModes reports.
constexpr unsigned int MaxReportedActiveModes = 5;
constexpr unsigned int ModePathLength = 128;
constexpr unsigned int ActiveModesLength = 4096;

// Appends one byte of GetChildModes' result, or logs that it does not fit.
void WriteResultByte(unsigned char value, unsigned char* result, unsigned int resultLength,
                     unsigned int& pos, IParameterLoggingAPI* log)
{
    if (pos < resultLength) {
        result[pos++] = value;
        return;
    }
    ParameterLogging::Write(log, ParameterLogging::LogError,
                            "Failed to write %lld bytes to binary offset %d, length %d\n", 1LL,
                            static_cast<int>(pos), static_cast<int>(resultLength));
}

// Adds the counts of the old node's modules to the new node's, entry by entry in map order,
// while both maps name the same kinds. Instances of one kind share their factory's name pointer,
// so a differing pointer means the file changed shape here; what was added up to then stands.
void TransferSlotCounts(IParameterLoggingAPI* log, ModeEntry* current, ModeEntry* previous,
                        unsigned int slot)
{
    auto next = current->modules.begin();
    auto old = previous->modules.begin();
    for (; next != current->modules.end() && old != previous->modules.end(); ++next, ++old) {
        ParameterModule const* nextModule = next->second.module;
        ParameterModule const* oldModule = old->second.module;
        char const* nextName = nextModule != nullptr ? nextModule->moduleName : nullptr;
        char const* oldName = oldModule != nullptr ? oldModule->moduleName : nullptr;
        if (nextName != oldName) {
            ParameterLogging::Write(log, ParameterLogging::LogVerbose,
                                    "ReloadBinaryParameters: Failed to transfer reference counts, "
                                    "current module name (%s) does not match prev name (%s) in "
                                    "mode index %d\n",
                                    nextName != nullptr ? nextName : "",
                                    oldName != nullptr ? oldName : "", static_cast<int>(slot));
            return;
        }
        int32_t const count = old->second.refCount.load();
        if (count > 0)
            next->second.refCount.fetch_add(count);
    }
}

void DeleteTables(PList<ParameterModeTable*>& tables)
{
    for (unsigned int i = 0; i < tables.Count(); ++i)
        delete tables[i];
    tables.Clear();
}

} // namespace

ParameterModeTree::~ParameterModeTree()
{
    DeleteTables(m_tables);
    DeleteTables(m_parked);
}

ParameterModeTable* ParameterModeTree::Table(char const* caller, unsigned int index)
{
    if (index < m_tables.Count())
        return m_tables[index];
    ParameterLogging::Write(&m_manager, ParameterLogging::LogError,
                            "%s called with mode table index (%u) >= mode table count (%u)\n",
                            caller, index, m_tables.Count());
    return nullptr;
}

void ParameterModeTree::Add(ParameterModeTable* table)
{
    m_tables.Add(table);
}

bool ParameterModeTree::AddDefaultTable()
{
    auto* slots = static_cast<ModeSlot*>(VornCalloc(sizeof(ModeSlot), VornTagAllocData));
    auto* root = new (std::nothrow) ModeEntry(true, true);
    auto* table = slots != nullptr && root != nullptr ? new (std::nothrow)
                                                            ParameterModeTable(nullptr, slots, 1)
                                                      : nullptr;
    if (table == nullptr) {
        delete root;
        VornFree(slots, VornTagRelease);
        m_manager.SetError("ReadModeSection: Failed to allocate the default mode table");
        return false;
    }
    root->Initialize(0, 0, 0, nullptr);
    table->rootMode = root;
    slots[0].mode = root;
    m_tables.Add(table);
    return true;
}

void ParameterModeTree::Free()
{
    DeleteTables(m_tables);
}

void ParameterModeTree::Park()
{
    // Tables keep their order: the count transfer of a reload pairs old and new tables by index.
    for (unsigned int i = 0; i < m_tables.Count(); ++i)
        m_parked.Add(m_tables[i]);
    m_tables.Clear();
}

void ParameterModeTree::FreeParked()
{
    DeleteTables(m_parked);
}

void ParameterModeTree::CarryReferenceCounts()
{
    // Clients that held modules of the old generation keep a count on the new one, so that the
    // modes they use are not evicted under them. This needs the same tables in the same order;
    // within a table, slots are paired by index.
    unsigned int const tableCount = m_tables.Count();
    if (tableCount == 0 || tableCount != m_parked.Count())
        return;
    for (unsigned int k = 0; k < tableCount; ++k) {
        ParameterModeTable* const current = m_tables[k];
        ParameterModeTable* const previous = m_parked[k];
        if (current == nullptr || previous == nullptr || current->modes == nullptr ||
            previous->modes == nullptr || current->m_modeCount != previous->m_modeCount)
            continue;
        for (unsigned int slot = 0; slot < current->m_modeCount; ++slot) {
            ModeEntry* const next = current->modes[slot].mode;
            ModeEntry* const old = previous->modes[slot].mode;
            if (next != nullptr && old != nullptr)
                TransferSlotCounts(&m_manager, next, old, slot);
        }
    }
}

ModeSlot* ParameterModeTree::GetModeEntry(unsigned int modeId)
{
    unsigned int const tableIndex = ModeId::TableIndex(modeId);
    unsigned int const slotIndex = ModeId::SlotIndex(modeId);
    if (tableIndex >= m_tables.Count()) {
        ParameterLogging::Write(
            &m_manager, ParameterLogging::LogError,
            "%s called with  Mode ID (%u) Table Index >= mode table count (%u)\n", "GetModeEntry",
            modeId, m_tables.Count());
        return nullptr;
    }
    ParameterModeTable* table = m_tables[tableIndex];
    if (table == nullptr || slotIndex >= table->m_modeCount) {
        ParameterLogging::Write(
            &m_manager, ParameterLogging::LogError,
            "%s called with Mode ID Value (%u) that exceeds the mode table entries (%u)\n",
            "GetModeEntry", modeId, table != nullptr ? table->m_modeCount : 0U);
        return nullptr;
    }
    return &table->modes[slotIndex];
}

bool ParameterModeTree::GetModeTableNames(PList<char const*>& names) const
{
    if (m_tables.Count() == 0)
        return false;
    for (unsigned int i = 0; i < m_tables.Count(); ++i)
        names.Add(m_tables[i] != nullptr ? m_tables[i]->name : nullptr);
    return true;
}

bool ParameterModeTree::ValidateMode(char const* caller, TuningMode const* modeBranch,
                                     unsigned int index)
{
    uint32_t const value = modeBranch[index].mode;
    // Every step of every lookup passes here: the message buffer is only touched on a fault.
    char message[ParameterSetManager::ErrorStringLength];
    if (value > MaxModeValue) {
        Vorn::OsUtils::SNPrintF(message, sizeof(message),
                                "%s Error: Invalid Mode value (%u) found in modeBranch[%u]. "
                                "Expected range: %u to %u",
                                caller, value, index, 0U, MaxModeValue);
        m_manager.SetError(message);
        return false;
    }
    if (value == ModeDefault && index != 0) {
        Vorn::OsUtils::SNPrintF(message, sizeof(message),
                                "%s Error: Default mode found in modeBranch at an index > 0 (%u). "
                                "Index 0 must be Default, but only index 0 may be Default",
                                caller, index);
        m_manager.SetError(message);
        return false;
    }
    return true;
}

unsigned int ParameterModeTree::GetChildModes(unsigned char modeTableIndex, ModeEntry* node,
                                              unsigned char* result, unsigned int resultLength)
{
    if (node == nullptr) {
        ParameterModeTable* table = Table("GetChildModes", modeTableIndex);
        node = table != nullptr ? table->rootMode : nullptr;
    }
    IParameterLoggingAPI* log = &m_manager;
    unsigned int pos = 0;
    if (result == nullptr)
        resultLength = 0;
    // The children are the node's own: a link lends modules, not sub-modes.
    for (ModeEntry* child = node != nullptr ? node->firstChild : nullptr; child != nullptr;
         child = child->nextSibling) {
        if (child != node->firstChild)
            WriteResultByte(',', result, resultLength, pos, log);
        unsigned int const modeValue = child->mode.Parts.mode;
        char const* modeName = ModeEntry::GetModeName(modeValue);
        (void)ParameterUtils::WriteString(modeName, result, resultLength, pos, false, log);
        if (modeValue == ModeDefault)
            continue;
        WriteResultByte('.', result, resultLength, pos, log);
        char const* subModeName = child->GetSubModeName();
        if (subModeName != nullptr) {
            (void)ParameterUtils::WriteString(subModeName, result, resultLength, pos, false, log);
        } else if (pos < resultLength) {
            // The number is formatted in place; its terminator is overwritten by what follows.
            bool ok = false;
            pos += ParameterUtils::DoubleToString(child->mode.Parts.subMode,
                                                  reinterpret_cast<char*>(result + pos),
                                                  resultLength - pos, 0, ok);
        }
    }
    WriteResultByte('\0', result, resultLength, pos, log);
    return pos;
}

void ParameterModeTree::GetActiveModes(unsigned char modeTableIndex, char* result,
                                       unsigned int resultLength)
{
    ParameterModeTable* table = Table(modeTableIndex);
    if (table == nullptr || result == nullptr || resultLength == 0)
        return;

    std::lock_guard<std::recursive_mutex> lock(table->activeModeMutex);
    result[0] = '\0';
    ModeEntry* kept[MaxReportedActiveModes] = {};
    unsigned int keptCount = 0;
    // Once an inactive node has been passed over, resident nodes behind it are passed over too:
    // they are in the list only because they never leave it.
    bool skipResident = false;
    for (unsigned int i = 0; i < table->activeModes.Count() && keptCount < MaxReportedActiveModes;
         ++i) {
        ModeEntry* node = table->activeModes[i];
        if (node == nullptr)
            continue;
        if (!node->IsActive()) {
            skipResident = true;
            continue;
        }
        if (skipResident && node->resident)
            continue;
        // Only the deepest node of a branch is reported: a descendant replaces its ancestor and
        // an ancestor of a kept node is dropped.
        bool related = false;
        for (unsigned int k = 0; k < keptCount && !related; ++k) {
            if (node->IsParent(kept[k])) {
                kept[k] = node;
                related = true;
            } else if (kept[k] == node || kept[k]->IsParent(node)) {
                related = true;
            }
        }
        if (!related)
            kept[keptCount++] = node;
    }

    char paths[ActiveModesLength] = {};
    for (unsigned int k = 0; k < keptCount; ++k) {
        char path[ModePathLength] = {};
        kept[k]->GetModePath(path, sizeof(path));
        if (k > 0)
            Vorn::OsUtils::StrLCat(paths, ";", sizeof(paths));
        Vorn::OsUtils::StrLCat(paths, path, sizeof(paths));
    }
    GetKnobbyModesString(paths, result, resultLength);
}

// The manager's mode tree operations run on the main manager's tree.

ModeSlot* ParameterSetManager::GetModeEntry(unsigned int modeId)
{
    return MainManager()->m_modeTree.GetModeEntry(modeId);
}

ParameterModeTable* ParameterSetManager::GetModeTable(unsigned int modeTableIndex) const
{
    return MainManager()->m_modeTree.Table(modeTableIndex);
}

unsigned int ParameterSetManager::GetModeTableCount()
{
    // A derived manager has no tables of its own.
    return m_modeTree.Count();
}

bool ParameterSetManager::GetModeTableNames(PList<char const*>& names)
{
    return MainManager()->m_modeTree.GetModeTableNames(names);
}

bool ParameterSetManager::ValidateMode(char const* caller, TuningMode const* modeBranch,
                                       unsigned int index)
{
    return MainManager()->m_modeTree.ValidateMode(caller, modeBranch, index);
}

ModeEntry* ParameterSetManager::GetModeEntry(unsigned char modeTableIndex,
                                             TuningMode const* modeBranch, unsigned int modeCount)
{
    ParameterSetManager* main = MainManager();
    ParameterModeTable* table = main->m_modeTree.Table("GetModeEntry", modeTableIndex);
    if (table == nullptr || table->rootMode == nullptr)
        return nullptr;
    // A tool that walks the tree sees the modules of the branch as a client asking for it would:
    // in file mode they are read now.
    if (main->m_symbolTable != nullptr && main->IsFileMode())
        static_cast<void>(
            main->LoadMode(modeTableIndex, modeBranch, modeCount, "Knobby->GetModeEntry"));
    // A step that fails validation ends the walk at the node reached so far.
    return main->m_modeTree.FindNode("GetModeEntry", table->rootMode, modeBranch, modeCount);
}

ModeEntry* ParameterSetManager::GetModeEntry(unsigned char modeTableIndex, char const* modePath)
{
    if (modePath == nullptr)
        return nullptr;
    PList<TuningMode> branch;
    if (!GetModeBranchFromPath(modePath, branch))
        return nullptr;
    return GetModeEntry(modeTableIndex, branch.Items(), branch.Count());
}

unsigned int ParameterSetManager::GetChildModes(unsigned char modeTableIndex, char const* modePath,
                                                unsigned char* result, unsigned int resultLength)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->GetChildModes(modeTableIndex, modePath, result, resultLength);
    return m_modeTree.GetChildModes(modeTableIndex, GetModeEntry(modeTableIndex, modePath), result,
                                    resultLength);
}

void ParameterSetManager::GetActiveModes(unsigned char modeTableIndex, char* result,
                                         unsigned int resultLength)
{
    MainManager()->m_modeTree.GetActiveModes(modeTableIndex, result, resultLength);
}

void ParameterSetManager::LogModeTableBinding()
{
    if (m_mainSetManager == nullptr)
        return;
    ParameterModeTree const& tree = MainManager()->m_modeTree;
    // Logged through this object: these are the only messages that show a derived manager's own
    // identifier and switches.
    if (m_modeTableIndex >= tree.Count()) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "%s called mode table index (%u) >= mode table count (%u)\n",
                                "ParameterSetManager", static_cast<unsigned int>(m_modeTableIndex),
                                tree.Count());
        return;
    }
    char const* tableName = tree.Table(m_modeTableIndex)->name;
    ParameterLogging::Write(this, ParameterLogging::LogVerbose,
                            "%s constructed for mode table index %u: %s\n", "ParameterSetManager",
                            static_cast<unsigned int>(m_modeTableIndex),
                            tableName != nullptr ? tableName : "");
}
