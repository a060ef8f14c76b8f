// SPDX-License-Identifier: Apache-2.0
// ParameterSetManager: mode tables and the mode tree lookups.
#include <algorithm>
#include <cstring>
#include <new>

#include "platform/vornalloc.h"
#include "platform/vornosutils.h"

#include "parameterparser/modeentry.h"
#include "parameterparser/modeslot.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parametersetmanager.h"
#include "parameterparser/parameterutils.h"

namespace {

// The largest mode value that has a name.
constexpr unsigned int MaxModeValue = ModeEffect;
// Most active branches that GetActiveModes reports.
constexpr unsigned int MaxReportedActiveModes = 5;
constexpr unsigned int ModePathLength = 128;
constexpr unsigned int ActiveModesLength = 4096;
constexpr unsigned int PathItemLength = 10;
constexpr unsigned int StepTextLength = 12;

// Unsigned value of a run of decimal digits; the caller has checked them.
unsigned int ParseDigits(char const* text, size_t count)
{
    unsigned int value = 0;
    for (size_t i = 0; i < count; ++i)
        value = value * 10 + static_cast<unsigned int>(text[i] - '0');
    return value;
}

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

} // namespace

ModeSlot* ParameterSetManager::GetModeEntry(unsigned int modeId)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->GetModeEntry(modeId);

    unsigned int const tableIndex = ModeId::TableIndex(modeId);
    unsigned int const slotIndex = ModeId::SlotIndex(modeId);
    if (tableIndex >= m_modeTables.Count()) {
        ParameterLogging::Write(
            this, ParameterLogging::LogError,
            "%s called with  Mode ID (%u) Table Index >= mode table count (%u)\n", "GetModeEntry",
            modeId, m_modeTables.Count());
        return nullptr;
    }
    ParameterModeTable* table = m_modeTables[tableIndex];
    if (table == nullptr || slotIndex >= table->m_modeCount) {
        ParameterLogging::Write(
            this, ParameterLogging::LogError,
            "%s called with Mode ID Value (%u) that exceeds the mode table entries (%u)\n",
            "GetModeEntry", modeId, table != nullptr ? table->m_modeCount : 0U);
        return nullptr;
    }
    return &table->modes[slotIndex];
}

ParameterModeTable* ParameterSetManager::GetModeTable(unsigned int modeTableIndex) const
{
    PList<ParameterModeTable*> const& tables = MainManager()->m_modeTables;
    return modeTableIndex < tables.Count() ? tables[modeTableIndex] : nullptr;
}

unsigned int ParameterSetManager::GetModeTableCount()
{
    return m_modeTables.Count();
}

bool ParameterSetManager::GetModeTableNames(PList<char const*>& names)
{
    // A derived manager has no tables of its own: the names are the main manager's.
    PList<ParameterModeTable*> const& tables = MainManager()->m_modeTables;
    if (tables.Count() == 0)
        return false;
    for (unsigned int i = 0; i < tables.Count(); ++i)
        names.Add(tables[i] != nullptr ? tables[i]->name : nullptr);
    return true;
}

void ParameterSetManager::FreeModeTables()
{
    for (unsigned int i = 0; i < m_modeTables.Count(); ++i)
        delete m_modeTables[i];
    m_modeTables.Clear();
}

void ParameterSetManager::LogModeTableBinding()
{
    if (m_mainSetManager == nullptr)
        return;
    ParameterSetManager* main = MainManager();
    unsigned int const count = main->m_modeTables.Count();
    // Logged through this object: these are the only messages that show a derived manager's own
    // identifier and switches.
    if (m_modeTableIndex >= count) {
        ParameterLogging::Write(this, ParameterLogging::LogError,
                                "%s called mode table index (%u) >= mode table count (%u)\n",
                                "ParameterSetManager", static_cast<unsigned int>(m_modeTableIndex),
                                count);
        return;
    }
    char const* tableName = main->m_modeTables[m_modeTableIndex]->name;
    ParameterLogging::Write(this, ParameterLogging::LogVerbose,
                            "%s constructed for mode table index %u: %s\n", "ParameterSetManager",
                            static_cast<unsigned int>(m_modeTableIndex),
                            tableName != nullptr ? tableName : "");
}

bool ParameterSetManager::CreateDefaultModeTable()
{
    auto* slots = static_cast<ModeSlot*>(VornCalloc(sizeof(ModeSlot), VornTagAllocData));
    auto* root = new (std::nothrow) ModeEntry(true, true);
    auto* table = slots != nullptr && root != nullptr ? new (std::nothrow)
                                                            ParameterModeTable(nullptr, slots, 1)
                                                      : nullptr;
    if (table == nullptr) {
        delete root;
        VornFree(slots, VornTagRelease);
        SetError("ReadModeSection: Failed to allocate the default mode table");
        return false;
    }
    root->Initialize(0, 0, 0, nullptr);
    table->rootMode = root;
    slots[0].mode = root;
    m_modeTables.Add(table);
    return true;
}

ModeEntry* ParameterSetManager::GetModeEntry(unsigned char modeTableIndex,
                                             TuningMode const* modeBranch, unsigned int modeCount)
{
    ParameterSetManager* main = MainManager();
    if (modeTableIndex >= main->m_modeTables.Count()) {
        ParameterLogging::Write(main, ParameterLogging::LogError,
                                "%s called with mode table index (%u) >= mode table count (%u)\n",
                                "GetModeEntry", static_cast<unsigned int>(modeTableIndex),
                                main->m_modeTables.Count());
        return nullptr;
    }
    ParameterModeTable* table = main->m_modeTables[modeTableIndex];
    if (table == nullptr || table->rootMode == nullptr)
        return nullptr;
    // A tool that walks the tree sees the modules of the branch as a client asking for it would:
    // in file mode they are read now.
    if (main->m_symbolTable != nullptr && main->IsFileMode())
        static_cast<void>(
            main->LoadMode(modeTableIndex, modeBranch, modeCount, "Knobby->GetModeEntry"));
    ModeEntry* node = table->rootMode;
    if (modeBranch == nullptr)
        return node;

    // Step 0 is the root. A run of steps of one mode value names several nested nodes of that
    // mode in no particular order, so the run is matched as a whole.
    unsigned int i = 1;
    while (i < modeCount) {
        if (!main->ValidateMode("GetModeEntry", modeBranch, i))
            break;
        unsigned int run = 1;
        while (i + run < modeCount && modeBranch[i + run].mode == modeBranch[i].mode)
            ++run;
        node = node->FindMode(&modeBranch[i], run, 0);
        if (node == nullptr)
            return nullptr;
        i += run;
    }
    return node;
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

bool ParameterSetManager::ValidateMode(char const* caller, TuningMode const* modeBranch,
                                       unsigned int index)
{
    uint32_t const value = modeBranch[index].mode;
    // Every step of every lookup passes here: the message buffer is only touched on a fault.
    char message[ErrorStringLength];
    if (value > MaxModeValue) {
        Vorn::OsUtils::SNPrintF(message, sizeof(message),
                                "%s Error: Invalid Mode value (%u) found in modeBranch[%u]. "
                                "Expected range: %u to %u",
                                caller, value, index, 0U, MaxModeValue);
        SetError(message);
        return false;
    }
    if (value == ModeDefault && index != 0) {
        Vorn::OsUtils::SNPrintF(message, sizeof(message),
                                "%s Error: Default mode found in modeBranch at an index > 0 (%u). "
                                "Index 0 must be Default, but only index 0 may be Default",
                                caller, index);
        SetError(message);
        return false;
    }
    return true;
}

bool ParameterSetManager::GetModeBranchFromPath(char const* path, PList<TuningMode>& modeBranch)
{
    if (path == nullptr)
        return false;
    size_t const length = std::strlen(path);
    size_t pos = 0;
    while (pos < length) {
        char item[PathItemLength] = {};
        unsigned int const taken =
            ParameterUtils::GetSubString(path + pos, '|', item, sizeof(item));
        if (taken == 0)
            break;
        int const dot = ParameterUtils::GetStringPos(item, '.');
        for (unsigned int c = 0; c < taken; ++c) {
            if (static_cast<int>(c) != dot && (item[c] < '0' || item[c] > '9'))
                return false;
        }
        TuningMode step = {0, 0, 0};
        if (dot > 0) {
            auto const dotPos = static_cast<size_t>(dot);
            step.mode = ParseDigits(item, dotPos);
            step.subMode =
                static_cast<uint16_t>(ParseDigits(item + dotPos + 1, taken - dotPos - 1));
        } else {
            // Without a mode part the item is read from its second character on, as a sub-mode
            // of Default: "12" is 0.2.
            step.subMode = static_cast<uint16_t>(ParseDigits(item + 1, taken - 1));
        }
        modeBranch.Add(step);
        // An item cut at 9 characters loses its tenth as if that were the separator.
        pos += taken + 1;
    }
    return modeBranch.Count() != 0;
}

void ParameterSetManager::GetPathFromModeBranch(TuningMode const* modeBranch,
                                                unsigned int modeCount, char* path,
                                                unsigned int length)
{
    if (modeBranch == nullptr || modeCount == 0 || path == nullptr)
        return;
    for (unsigned int i = 0; i < modeCount; ++i) {
        if (!ValidateMode("GetPathFromModeBranch", modeBranch, i))
            break;
        if (i > 0)
            Vorn::OsUtils::StrLCat(path, "|", length);
        char step[StepTextLength] = {};
        Vorn::OsUtils::SNPrintF(step, sizeof(step), "%u.%u", modeBranch[i].mode,
                                static_cast<unsigned int>(modeBranch[i].subMode));
        Vorn::OsUtils::StrLCat(path, step, length);
    }
}

unsigned int ParameterSetManager::GetChildModes(unsigned char modeTableIndex, char const* modePath,
                                                unsigned char* result, unsigned int resultLength)
{
    if (m_mainSetManager != nullptr)
        return MainManager()->GetChildModes(modeTableIndex, modePath, result, resultLength);

    ModeEntry* node = GetModeEntry(modeTableIndex, modePath);
    if (node == nullptr) {
        if (modeTableIndex >= m_modeTables.Count())
            ParameterLogging::Write(
                this, ParameterLogging::LogError,
                "%s called with mode table index (%u) >= mode table count (%u)\n", "GetChildModes",
                static_cast<unsigned int>(modeTableIndex), m_modeTables.Count());
        else if (m_modeTables[modeTableIndex] != nullptr)
            node = m_modeTables[modeTableIndex]->rootMode;
    }

    unsigned int pos = 0;
    if (result == nullptr)
        resultLength = 0;
    // The children are the node's own: a link lends modules, not sub-modes.
    for (ModeEntry* child = node != nullptr ? node->firstChild : nullptr; child != nullptr;
         child = child->nextSibling) {
        if (child != node->firstChild)
            WriteResultByte(',', result, resultLength, pos, this);
        unsigned int const modeValue = child->mode.Parts.mode;
        char const* modeName = ModeEntry::GetModeName(modeValue);
        (void)ParameterUtils::WriteString(modeName, result, resultLength, pos, false, this);
        if (modeValue == ModeDefault)
            continue;
        WriteResultByte('.', result, resultLength, pos, this);
        char const* subModeName = child->GetSubModeName();
        if (subModeName != nullptr) {
            (void)ParameterUtils::WriteString(subModeName, result, resultLength, pos, false, this);
        } else if (pos < resultLength) {
            // The number is formatted in place; its terminator is overwritten by what follows.
            bool ok = false;
            pos += ParameterUtils::DoubleToString(child->mode.Parts.subMode,
                                                  reinterpret_cast<char*>(result + pos),
                                                  resultLength - pos, 0, ok);
        }
    }
    WriteResultByte('\0', result, resultLength, pos, this);
    return pos;
}

void ParameterSetManager::GetActiveModes(unsigned char modeTableIndex, char* result,
                                         unsigned int resultLength)
{
    if (m_mainSetManager != nullptr) {
        MainManager()->GetActiveModes(modeTableIndex, result, resultLength);
        return;
    }
    if (modeTableIndex >= m_modeTables.Count() || result == nullptr || resultLength == 0)
        return;
    ParameterModeTable* table = m_modeTables[modeTableIndex];
    if (table == nullptr)
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
