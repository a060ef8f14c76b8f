// SPDX-License-Identifier: Apache-2.0
// ParameterSharedArrayRegistry: one object per duplicate group and reading place, published by its
// first reader, handed to later readers and freed by its last holder.
#include "parameterparser/parametersharedarrayregistry.h"

#include <mutex>
#include <new>

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

void ParameterSharedArrayRegistry::Adopt(bool isModule, unsigned int count,
                                         PList<DupObjInfo*>* lists)
{
    Groups& side = Side(isModule);
    side.count = count;
    side.lists = lists;
}

void ParameterSharedArrayRegistry::Clear()
{
    // Without a data table both sides name the same lists.
    if (m_data.lists == m_symbols.lists)
        m_data.lists = nullptr;
    for (Groups* side : {&m_symbols, &m_data}) {
        if (side->lists != nullptr) {
            for (unsigned int group = 0; group < side->count; ++group) {
                for (unsigned int i = 0; i < side->lists[group].Count(); ++i)
                    delete side->lists[group][i];
            }
            delete[] side->lists;
        }
        *side = Groups();
    }
    m_objects.clear();
}

PList<DupObjInfo*> const* ParameterSharedArrayRegistry::Records(bool isModule,
                                                                unsigned int group) const
{
    Groups const& side = Side(isModule);
    if (side.lists == nullptr || group == 0 || group >= side.count)
        return nullptr;
    return &side.lists[group];
}

DupObjInfo* ParameterSharedArrayRegistry::FindRecord(bool isModule, unsigned int group,
                                                     int loc) const
{
    PList<DupObjInfo*> const& records = Side(isModule).lists[group];
    for (unsigned int i = 0; i < records.Count(); ++i) {
        if (records[i] != nullptr && records[i]->Loc == loc)
            return records[i];
    }
    return nullptr;
}

DupObjInfo* ParameterSharedArrayRegistry::Take(bool isModule, unsigned int group, int loc,
                                               bool lock, uintptr_t elementType)
{
    std::shared_lock<std::shared_mutex> guard(m_lock, std::defer_lock);
    if (lock)
        guard.lock();
    // A record is handed out only with a reference on its object. An empty record is not: its
    // Object may be published the moment the lock goes, and a caller that read it then would
    // hold an object it has no reference on.
    DupObjInfo* info = FindRecord(isModule, group, loc);
    if (info == nullptr || info->Object == nullptr)
        return nullptr;
    // An array of another kind of element is not this reader's to use.
    if (elementType != AnyElementType && info->ElementType != elementType)
        return nullptr;
    // The count rises under the shared lock, so it is atomic.
    info->RefCount.fetch_add(1);
    return info;
}

DupObjInfo* ParameterSharedArrayRegistry::Store(DupObjInfo& record, void* object,
                                                unsigned int elementCount, uintptr_t elementType)
{
    record.Object = object;
    record.Count = elementCount;
    record.ElementType = elementType;
    record.RefCount.fetch_add(1);
    m_objects[object] = &record;
    return &record;
}

DupObjInfo* ParameterSharedArrayRegistry::Publish(bool isModule, unsigned int id,
                                                  unsigned int group, void* object, int loc,
                                                  unsigned int elementCount, uintptr_t elementType)
{
    std::lock_guard<std::shared_mutex> guard(m_lock);
    // The search under the write lock must not count: a record found here is not handed out.
    DupObjInfo* info = FindRecord(isModule, group, loc);
    if (info != nullptr) {
        // Another reader published first; the caller's copy stays private.
        if (info->Object != nullptr)
            return nullptr;
        if (info->RefCount.load() > 0)
            ParameterLogging::Write(m_log, ParameterLogging::LogError,
                                    "SetDuplicateObject called on existing object with nullptr "
                                    "Object and RefCount %u: ID: %d, DupID: %d, Loc: %s:%d, "
                                    "ignored\n",
                                    info->RefCount.load(), static_cast<int>(id),
                                    static_cast<int>(group), isModule ? "Symbol" : "Data", loc);
        return Store(*info, object, elementCount, elementType);
    }

    info = new (std::nothrow) DupObjInfo(loc);
    if (info == nullptr)
        return nullptr;
    PList<DupObjInfo*>& records = Side(isModule).lists[group];
    unsigned int const before = records.Count();
    records.Add(info);
    if (records.Count() == before) {
        // The list could not grow: the object stays private to its reader.
        delete info;
        return nullptr;
    }
    return Store(*info, object, elementCount, elementType);
}

bool ParameterSharedArrayRegistry::Release(void* object, unsigned int* sharedCount)
{
    if (object == nullptr)
        return false;
    std::lock_guard<std::shared_mutex> guard(m_lock);
    DupObjInfo* info = Find(object);
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

DupObjInfo* ParameterSharedArrayRegistry::Find(void* object) const
{
    auto const found = m_objects.find(object);
    return found != m_objects.end() ? found->second : nullptr;
}
