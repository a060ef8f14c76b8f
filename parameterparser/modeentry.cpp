// SPDX-License-Identifier: Apache-2.0
// ModeEntry: the node operations of a mode tree.
#include "parameterparser/modeentry.h"

#include <cstring>

#include "parameterparser/modeslot.h"
#include "parameterparser/moduledata.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/parametermodetable.h"
#include "parameterparser/parametermodule.h"

namespace {

// A file may link nodes in a circle; a walk stops after this many links rather than run forever.
constexpr unsigned int MaxLinkHops = 64;

// The node a link slot names. The slot is packed, so its pointer is copied out byte-wise.
ModeEntry* ReadLink(ModeEntry** link)
{
    ModeEntry* target = nullptr;
    std::memcpy(&target, static_cast<void*>(link), sizeof(target));
    return target;
}

// Reference messages go through the manager of the module's record; a module without one logs
// through the default sink.
IParameterLoggingAPI* LoggerOf(ParameterModule const* module)
{
    return module->data != nullptr ? module->data->Logger() : nullptr;
}

char const* NameOf(ParameterModule const* module)
{
    return module->moduleName != nullptr ? module->moduleName : "";
}

char const* PathOf(ParameterModule const* module)
{
    return module->data != nullptr && module->data->ModePath != nullptr ? module->data->ModePath
                                                                        : "";
}

// Holds the activeModeMutex of the table that module's record names, for the span of one count
// change. A record whose table cannot be found is logged and the change goes on unlocked, as a
// count must still be kept.
class ReferenceLock
{
public:
    explicit ReferenceLock(ParameterModule const* module)
    {
        ParameterModeTable* table =
            module->data != nullptr ? module->data->GetModeTable() : nullptr;
        if (table != nullptr) {
            m_mutex = &table->activeModeMutex;
            m_mutex->lock();
            return;
        }
        ParameterLogging::Write(
            LoggerOf(module), ParameterLogging::LogError,
            "Attempt to lock Active Mode Mutex failed, mode table not found for ModeID: %u\n",
            module->data != nullptr ? module->data->ModeId : 0U);
    }
    ~ReferenceLock()
    {
        if (m_mutex != nullptr)
            m_mutex->unlock();
    }

    ReferenceLock(ReferenceLock const&) = delete;
    ReferenceLock& operator=(ReferenceLock const&) = delete;

private:
    std::recursive_mutex* m_mutex = nullptr;
};

// Appends the decimal digits of value at path[used], as many as fit before the terminator, and
// returns the new length. Every module record of a load writes its mode path, so this stays
// clear of the formatted-print machinery.
size_t AppendNumber(char* path, size_t used, size_t length, unsigned int value)
{
    char digits[10];
    size_t count = 0;
    do {
        digits[count++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    while (count > 0 && used + 1 < length)
        path[used++] = digits[--count];
    path[used] = '\0';
    return used;
}

} // namespace

ModeEntry::ModeEntry(bool loadedFlag, bool residentFlag)
    : loaded(loadedFlag), resident(residentFlag)
{
}

ModeEntry::~ModeEntry()
{
    // The subtree and the later siblings go without recursion, so that neither a deep tree nor
    // a long row of siblings from a damaged file can exhaust the stack. Each node is unhooked
    // from its children and siblings before it is deleted, so its own destructor finds nothing.
    ModeEntry* pending = firstChild;
    if (pending != nullptr)
        ChildChainEnd()->nextSibling = nextSibling;
    else
        pending = nextSibling;
    firstChild = nullptr;
    lastChild = nullptr;
    nextSibling = nullptr;
    while (pending != nullptr) {
        ModeEntry* node = pending;
        if (node->firstChild != nullptr) {
            node->ChildChainEnd()->nextSibling = node->nextSibling;
            pending = node->firstChild;
        } else {
            pending = node->nextSibling;
        }
        node->firstChild = nullptr;
        node->lastChild = nullptr;
        node->nextSibling = nullptr;
        delete node;
    }
}

ModeEntry* ModeEntry::ChildChainEnd()
{
    ModeEntry* last = lastChild != nullptr ? lastChild : firstChild;
    while (last != nullptr && last->nextSibling != nullptr)
        last = last->nextSibling;
    return last;
}

void ModeEntry::Initialize(unsigned int id, ModeUnion const& step, ModeEntry** linkSlot)
{
    modeId = id;
    mode = step;
    link = linkSlot;
}

void ModeEntry::Initialize(unsigned int id, unsigned short modeValue, unsigned short subModeValue,
                           ModeEntry** linkSlot)
{
    modeId = id;
    mode = ModeUnion();
    mode.Parts.mode = modeValue;
    mode.Parts.subMode = subModeValue;
    link = linkSlot;
}

void ModeEntry::AddMode(ModeEntry* child)
{
    if (child == nullptr)
        return;
    child->parent = this;
    if (lastChild == nullptr)
        firstChild = child;
    else
        lastChild->nextSibling = child;
    lastChild = child;
}

ModeEntry* ModeEntry::FindMode(TuningMode const* step)
{
    if (step == nullptr)
        return nullptr;
    ModeEntry* start = ResolveLink();
    for (ModeEntry* child = start->firstChild; child != nullptr; child = child->nextSibling) {
        if (child->mode.Parts.mode == step->mode && child->mode.Parts.subMode == step->subMode)
            return child;
    }
    return nullptr;
}

ModeEntry* ModeEntry::FindMode(TuningMode const* steps, unsigned int count, unsigned int depth)
{
    if (steps == nullptr || count == 0)
        return nullptr;
    ModeEntry* start = ResolveLink();
    // Each step may sit on any level of the run, so every step is tried below every level.
    for (unsigned int i = 0; i < count; ++i) {
        // A step equal to an earlier one leads to the same child and the same answer.
        bool repeated = false;
        for (unsigned int j = 0; j < i && !repeated; ++j)
            repeated = steps[j].mode == steps[i].mode && steps[j].subMode == steps[i].subMode;
        if (repeated)
            continue;
        ModeEntry* child = start->FindMode(&steps[i]);
        if (child == nullptr)
            continue;
        if (depth + 1 >= count)
            return child;
        ModeEntry* found = child->FindMode(steps, count, depth + 1);
        if (found != nullptr)
            return found;
    }
    return nullptr;
}

void ModeEntry::GetModePath(char* path, unsigned int length)
{
    if (path == nullptr || length == 0)
        return;
    // Steps are written from the root down. The ancestors are found again for every level
    // rather than by recursion, and the walk stops once the buffer is full, so a damaged file's
    // deep tree costs neither stack nor much time.
    unsigned int depth = 0;
    for (ModeEntry* node = this; node != nullptr; node = node->parent)
        ++depth;
    size_t used = std::strlen(path);
    for (unsigned int level = 0; level < depth; ++level) {
        ModeEntry* node = this;
        for (unsigned int up = level + 1; up < depth; ++up)
            node = node->parent;
        if (used + 1 >= length)
            return;
        if (used > 0) {
            path[used++] = '|';
            path[used] = '\0';
        }
        used = AppendNumber(path, used, length, node->mode.Parts.mode);
        if (used + 1 < length) {
            path[used++] = '.';
            path[used] = '\0';
        }
        used = AppendNumber(path, used, length, node->mode.Parts.subMode);
    }
}

bool ModeEntry::IsParent(ModeEntry* other)
{
    if (other == nullptr)
        return false;
    for (ModeEntry* node = parent; node != nullptr; node = node->parent) {
        if (node == other)
            return true;
    }
    return false;
}

ModeEntry* ModeEntry::ResolveLink()
{
    ModeEntry* node = this;
    for (unsigned int hops = 0; hops < MaxLinkHops && node->link != nullptr; ++hops) {
        ModeEntry* target = ReadLink(node->link);
        if (target == nullptr || target == node)
            break;
        node = target;
    }
    return node;
}

ModeEntry* ModeEntry::OwnerOf(ParameterModule const* module)
{
    if (module == nullptr || module->data == nullptr || module->data->Mode == nullptr)
        return nullptr;
    // The slot array is packed: the node pointer is copied out rather than read in place.
    ModeSlot slot;
    std::memcpy(&slot, module->data->Mode, sizeof(slot));
    return slot.mode;
}

bool ModeEntry::AddModule(ParameterModule* module)
{
    if (module == nullptr)
        return false;
    // The first module of a name in a node is the one that serves it; try_emplace leaves an
    // existing entry as it is.
    auto result = modules.try_emplace(module->moduleNameHash);
    if (result.second) {
        result.first->second.module = module;
        result.first->second.refCount.store(0);
    }
    return true;
}

ParameterModule* ModeEntry::FindModule(unsigned long nameHash)
{
    ModeEntry* target = ResolveLink();
    auto found = target->modules.find(nameHash);
    return found != target->modules.end() ? found->second.module : nullptr;
}

void ModeEntry::AddReference(ParameterModule const* module)
{
    if (module == nullptr)
        return;
    ReferenceLock lock(module);
    auto found = modules.find(module->moduleNameHash);
    if (found == modules.end()) {
        ParameterLogging::Write(LoggerOf(module), ParameterLogging::LogError,
                                "Attempt to add reference to a non-existant module.  Mode: %d, "
                                "SubMode: %d, Module %s\n",
                                mode.Parts.mode, mode.Parts.subMode, NameOf(module));
        return;
    }
    if (OwnerOf(found->second.module) != this) {
        ParameterLogging::Write(LoggerOf(module), ParameterLogging::LogError,
                                "Attempt to add module reference from wrong mode.  Mode: %d, "
                                "SubMode: %d, Module %s, ModePath: %s\n",
                                mode.Parts.mode, mode.Parts.subMode, NameOf(module),
                                PathOf(module));
        return;
    }
    found->second.refCount.fetch_add(1);
}

void ModeEntry::ReleaseReference(ParameterModule const* module)
{
    if (module == nullptr)
        return;
    ReferenceLock lock(module);
    auto found = modules.find(module->moduleNameHash);
    if (found == modules.end() || found->second.module == nullptr ||
        found->second.module->data == nullptr || found->second.module->data->Mode == nullptr) {
        ParameterLogging::Write(LoggerOf(module), ParameterLogging::LogError,
                                "Attempt to release a non-existant module.  Mode: %d, SubMode: %d, "
                                "Module %s\n",
                                mode.Parts.mode, mode.Parts.subMode, NameOf(module));
        return;
    }
    if (OwnerOf(found->second.module) != this) {
        ParameterLogging::Write(LoggerOf(module), ParameterLogging::LogError,
                                "Attempt to release module reference from wrong mode.  Mode: %d, "
                                "SubMode: %d, Module %s, ModePath: %s\n",
                                mode.Parts.mode, mode.Parts.subMode, NameOf(module),
                                PathOf(module));
        return;
    }
    // Counts change only under the table's lock, so the test and the decrement cannot be split
    // by another release.
    if (found->second.refCount.load() <= 0) {
        ParameterLogging::Write(LoggerOf(module), ParameterLogging::LogError,
                                "Attempt to release unreferenced module.  Mode: %d, SubMode: %d, "
                                "Module %s\n",
                                mode.Parts.mode, mode.Parts.subMode, NameOf(module));
        return;
    }
    found->second.refCount.fetch_sub(1);
}

void ModeEntry::ReleaseReferences()
{
    for (auto& entry : modules) {
        ParameterModule const* module = entry.second.module;
        if (OwnerOf(module) != this)
            continue;
        int32_t const count = entry.second.refCount.load();
        if (count > 0)
            ParameterLogging::Write(LoggerOf(module), ParameterLogging::LogError,
                                    "ReleaseReferences called with unreleased module: %s, RefCnt: "
                                    "%u\n",
                                    NameOf(module), static_cast<unsigned int>(count));
        entry.second.refCount.store(0);
    }
}

void ModeEntry::ReleaseModules(PList<ParameterModule*>& list)
{
    while (list.Count() != 0) {
        ParameterModule* module = list[0];
        ModeEntry* owner = OwnerOf(module);
        if (owner != nullptr)
            owner->ReleaseReference(module);
        list.Remove(0);
    }
}

void ModeEntry::GetModules(PList<ParameterModule*>& list, bool includeLocal, bool includeShared,
                           PipelineType* pipeline)
{
    ModeEntry* target = ResolveLink();
    ReleaseModules(list);
    for (auto const& entry : target->modules) {
        ParameterModule* module = entry.second.module;
        if (module == nullptr)
            continue;
        if (pipeline != nullptr && module->mode.Parts.pipeline != *pipeline + 1)
            continue;
        ModeEntry* owner = OwnerOf(module);
        bool const local = owner == target;
        if ((local && !includeLocal) || (!local && !includeShared))
            continue;
        list.Add(module);
        if (owner != nullptr)
            owner->AddReference(module);
    }
}

unsigned int ModeEntry::GetReferenceCount(ParameterModule const* module)
{
    auto entry = modules.begin();
    if (module != nullptr) {
        entry = modules.find(module->moduleNameHash);
        if (entry == modules.end())
            return 0;
    }
    // With a module the sum starts at its entry and runs on to the end of the map in map order;
    // it is that module's count alone only when its entry is the last local one.
    unsigned int sum = 0;
    for (; entry != modules.end(); ++entry) {
        if (OwnerOf(entry->second.module) != this)
            continue;
        int32_t const count = entry->second.refCount.load();
        if (count > 0)
            sum += static_cast<unsigned int>(count);
    }
    return sum;
}

bool ModeEntry::IsActive()
{
    // Only an owner's entry is ever counted (AddReference refuses the others), so any count
    // above 0 is a local module in use; the eviction asks this for every candidate under the
    // active list's lock, so it skips the owner test.
    for (auto const& entry : modules) {
        if (entry.second.refCount.load() > 0)
            return true;
    }
    return false;
}

bool ModeEntry::HasLocalModules()
{
    for (auto const& entry : modules) {
        if (OwnerOf(entry.second.module) == this)
            return true;
    }
    return false;
}

ParameterModule* ModeEntry::ReplaceModule(ParameterModule* module)
{
    if (module == nullptr)
        return nullptr;
    // The entry keeps its place in the map, so a walk of the map in order sees the new module
    // where the old one stood.
    auto const found = modules.find(module->moduleNameHash);
    if (found == modules.end()) {
        ModuleReference& reference = modules[module->moduleNameHash];
        reference.module = module;
        reference.refCount.store(0);
        return nullptr;
    }
    ParameterModule* const previous = found->second.module;
    found->second.module = module;
    found->second.refCount.store(0);
    return previous;
}

char const* ModeEntry::GetSubModeName()
{
    return GetSubModeName(mode.Parts.mode, mode.Parts.subMode);
}
