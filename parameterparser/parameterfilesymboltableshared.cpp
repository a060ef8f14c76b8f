// SPDX-License-Identifier: Apache-2.0
// ParameterFileSymbolTable's shared objects: one object per duplicate group and reading place,
// published by its first reader, handed to later readers and freed by its last holder, all
// under the table's reader-writer lock.
#include <cerrno>
#include <new>
#include <system_error>

#include "platform/vornosutils.h"

#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterlogging.h"

bool DupObjInfo::Release(DupObjInfo* info)
{
    if (info == nullptr)
        return false;
    // A count that is already 0 belongs to a record whose object was released before: that
    // object is not shared any more, so its holder frees it.
    uint32_t count = info->RefCount.load();
    while (count != 0 && !info->RefCount.compare_exchange_weak(count, count - 1)) {
    }
    if (count > 1)
        return false;
    info->Object = nullptr;
    return true;
}

class ParameterFileSymbolTable::LockGuard
{
public:
    LockGuard(pthread_rwlock_t& lock, bool write) : m_lock(lock)
    {
        for (;;) {
            int const result =
                write ? pthread_rwlock_wrlock(&m_lock) : pthread_rwlock_rdlock(&m_lock);
            if (result == 0)
                return;
            // Too many readers at once is transient: wait for one to leave.
            if (result == EAGAIN)
                continue;
            // A lock this thread holds already, or a broken lock: nothing guarded may go on.
            throw std::system_error(result, std::generic_category(),
                                    "ParameterFileSymbolTable lock");
        }
    }
    ~LockGuard() { pthread_rwlock_unlock(&m_lock); }

    LockGuard(LockGuard const&) = delete;
    LockGuard& operator=(LockGuard const&) = delete;

private:
    pthread_rwlock_t& m_lock;
};

void ParameterFileSymbolTable::LogInvalidCall(bool publish, bool isModule, unsigned int id,
                                              void* object, int loc) const
{
    EntryTable const& side = Side(isModule);
    // SetDupObject names the object and prints the place as the side and the dup type
    // ("Loc: Data:12"); GetDupObject prints the dup type alone.
    char objectText[48] = "";
    char place[32];
    if (publish) {
        Vorn::OsUtils::SNPrintF(objectText, sizeof(objectText), "Obj: %p, ", object);
        Vorn::OsUtils::SNPrintF(place, sizeof(place), "%s:%d", isModule ? "Symbol" : "Data", loc);
    } else {
        Vorn::OsUtils::SNPrintF(place, sizeof(place), "%d", loc);
    }
    char duplicate[40] = "";
    if (side.lookup != nullptr && id <= side.count)
        Vorn::OsUtils::SNPrintF(duplicate, sizeof(duplicate), "EntryLookup[id].Dup: %u, ",
                                side.lookup[id].Duplicate);
    ParameterLogging::Write(
        Logger(), ParameterLogging::LogError,
        "%s called with invalid values, This: %p, IsModule: %d, ID: %u, "
        "%sDupCount: %u, LookupCnt: %u, DupEntries: %p, EntryLookup: %p, "
        "%sLoc: %s\n",
        publish ? "SetDupObject" : "GetDupObject", static_cast<void const*>(this), isModule ? 1 : 0,
        id, objectText, side.duplicateCount, side.count, static_cast<void const*>(side.duplicates),
        static_cast<void const*>(side.lookup), duplicate, place);
}

unsigned int ParameterFileSymbolTable::GroupOf(bool isModule, unsigned int id, bool& invalid) const
{
    EntryTable const& side = Side(isModule);
    invalid = false;
    if (side.lookup == nullptr || id > side.count) {
        invalid = true;
        return 0;
    }
    unsigned int const group = side.lookup[id].Duplicate;
    if (group != 0 && (side.duplicates == nullptr || group >= side.duplicateCount))
        invalid = true;
    return invalid ? 0 : group;
}

DupObjInfo* ParameterFileSymbolTable::FindRecord(bool isModule, unsigned int group, int loc) const
{
    PList<DupObjInfo*> const& records = Side(isModule).duplicates[group];
    for (unsigned int i = 0; i < records.Count(); ++i) {
        if (records[i] != nullptr && records[i]->Loc == loc)
            return records[i];
    }
    return nullptr;
}

PList<DupObjInfo*> const* ParameterFileSymbolTable::GetDuplicates(bool isModule,
                                                                  unsigned int group) const
{
    EntryTable const& side = Side(isModule);
    if (side.duplicates == nullptr || group == 0 || group >= side.duplicateCount)
        return nullptr;
    return &side.duplicates[group];
}

DupObjInfo* ParameterFileSymbolTable::GetDupObjectInternal(bool isModule, unsigned int id, int loc,
                                                           bool lock, uintptr_t elementType)
{
    bool invalid = false;
    unsigned int const group = GroupOf(isModule, id, invalid);
    if (invalid) {
        LogInvalidCall(false, isModule, id, nullptr, loc);
        return nullptr;
    }
    // A block that is not shared takes no lock at all.
    if (group == 0)
        return nullptr;

    // A record is handed out only with a reference on its object. An empty record is not: its
    // Object may be published the moment the lock goes, and a caller that read it then would
    // hold an object it has no reference on.
    auto search = [&]() -> DupObjInfo* {
        DupObjInfo* info = FindRecord(isModule, group, loc);
        if (info == nullptr || info->Object == nullptr)
            return nullptr;
        // An array of another kind of element is not this reader's to use.
        if (elementType != AnyElementType && info->ElementType != elementType)
            return nullptr;
        // The count rises under the shared lock, so it is atomic.
        info->RefCount.fetch_add(1);
        return info;
    };
    if (!lock)
        return search();
    LockGuard guard(m_lock, false);
    return search();
}

namespace {

// Makes object the published object of record, counts the caller's reference on it, and finds
// the record by the object's address from now on.
DupObjInfo* Publish(DupObjInfo& record, void* object, unsigned int elementCount,
                    uintptr_t elementType, std::unordered_map<void*, DupObjInfo*>& objects)
{
    record.Object = object;
    record.Count = elementCount;
    record.ElementType = elementType;
    record.RefCount.fetch_add(1);
    objects[object] = &record;
    return &record;
}

} // namespace

DupObjInfo* ParameterFileSymbolTable::SetDupObject(bool isModule, unsigned int id, void* object,
                                                   int loc, unsigned int elementCount,
                                                   uintptr_t elementType)
{
    bool invalid = false;
    unsigned int const group = GroupOf(isModule, id, invalid);
    char const* side = isModule ? "Symbol" : "Data";
    if (invalid) {
        LogInvalidCall(true, isModule, id, object, loc);
        return nullptr;
    }
    if (group == 0)
        return nullptr;

    LockGuard guard(m_lock, true);
    // The search under the write lock must not count: a record found here is not handed out.
    DupObjInfo* info = FindRecord(isModule, group, loc);
    if (info != nullptr) {
        // Another reader published first; the caller's copy stays private.
        if (info->Object != nullptr)
            return nullptr;
        if (info->RefCount.load() > 0)
            ParameterLogging::Write(Logger(), ParameterLogging::LogError,
                                    "SetDuplicateObject called on existing object with nullptr "
                                    "Object and RefCount %u: ID: %d, DupID: %d, Loc: %s:%d, "
                                    "ignored\n",
                                    info->RefCount.load(), static_cast<int>(id),
                                    static_cast<int>(group), side, loc);
        return Publish(*info, object, elementCount, elementType, m_objects);
    }

    info = new (std::nothrow) DupObjInfo(loc);
    if (info == nullptr)
        return nullptr;
    PList<DupObjInfo*>& records = Side(isModule).duplicates[group];
    unsigned int const before = records.Count();
    records.Add(info);
    if (records.Count() == before) {
        // The list could not grow: the object stays private to its reader.
        delete info;
        return nullptr;
    }
    return Publish(*info, object, elementCount, elementType, m_objects);
}

bool ParameterFileSymbolTable::ReleaseDupObject(void* object, unsigned int* sharedCount)
{
    if (object == nullptr)
        return false;
    LockGuard guard(m_lock, true);
    DupObjInfo* info = FindDupObject(object);
    if (info == nullptr)
        return true;
    if (!DupObjInfo::Release(info))
        return false;
    if (sharedCount != nullptr)
        *sharedCount = info->Count;
    // The record stays in its group with no object, ready for the next load.
    m_objects.erase(object);
    return true;
}

DupObjInfo* ParameterFileSymbolTable::FindDupObject(void* object)
{
    auto const found = m_objects.find(object);
    return found != m_objects.end() ? found->second : nullptr;
}

void ParameterFileSymbolTable::FreeDuplicates()
{
    // Without a data table both sides name the same lists.
    if (m_data.duplicates == m_symbols.duplicates)
        m_data.duplicates = nullptr;
    for (EntryTable* side : {&m_symbols, &m_data}) {
        if (side->duplicates != nullptr) {
            for (unsigned int group = 0; group < side->duplicateCount; ++group) {
                for (unsigned int i = 0; i < side->duplicates[group].Count(); ++i)
                    delete side->duplicates[group][i];
            }
            delete[] side->duplicates;
        }
        side->duplicates = nullptr;
        side->duplicateCount = 1;
    }
    m_objects.clear();
}
