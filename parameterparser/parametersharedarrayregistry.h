// SPDX-License-Identifier: Apache-2.0
// ParameterSharedArrayRegistry: the objects that entries of one duplicate group share, counted per
// holder, behind one reader-writer lock.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <shared_mutex>
#include <unordered_map>

#include "parameterparser/parameterexport.h"
#include "parameterparser/plist.h"

class IParameterLoggingAPI;

/// One object that several entries share: a block read once and handed to every reader of the
/// same duplicate group at the same place of the generated code (Loc). Object is null while no
/// loaded module holds it; the record itself lives as long as its table.
struct PARAMETERPARSER_API DupObjInfo
{
    explicit DupObjInfo(int loc) : Loc(loc) {}

    DupObjInfo(DupObjInfo const&) = delete;
    DupObjInfo& operator=(DupObjInfo const&) = delete;

    /// Drops one reference. True when none is left: Object is then cleared and the caller frees
    /// the object it held; false while other holders remain.
    static bool Release(DupObjInfo* info);

    void* Object = nullptr;
    int Loc;
    std::atomic<uint32_t> RefCount{0};
    uint32_t Count = 0;        ///< elements of Object, as its first reader loaded them
    uintptr_t ElementType = 0; ///< the kind of those elements, an identity of the reader's
};

/// The shared objects of one file's tables. Each side, symbol (isModule) and data, has its
/// duplicate groups; a group holds one record per Loc, and each record the object its first
/// reader published. One map finds a record by its object's address, and one reader-writer lock
/// guards the lists and the map: takers share it, publishers and releasers hold it alone. The
/// callers validate group numbers: a group passed here is one of Records().
class PARAMETERPARSER_API ParameterSharedArrayRegistry
{
public:
    /// The element kind that matches every record.
    static constexpr uintptr_t AnyElementType = ~static_cast<uintptr_t>(0);

    /// log receives the registry's messages; null logs everything.
    explicit ParameterSharedArrayRegistry(IParameterLoggingAPI* log) : m_log(log) {}
    ~ParameterSharedArrayRegistry() { Clear(); }

    ParameterSharedArrayRegistry(ParameterSharedArrayRegistry const&) = delete;
    ParameterSharedArrayRegistry& operator=(ParameterSharedArrayRegistry const&) = delete;

    /// Takes over the group lists of one side, which holds none: count is groups + 1 (slot 0
    /// unused), lists an array of count lists made with new[], null without groups.
    void Adopt(bool isModule, unsigned int count, PList<DupObjInfo*>* lists);
    /// Lets the data side name the symbol side's groups: in a file without a data table, data
    /// identifiers name symbol entries.
    void ShareSymbolGroups() { m_data = m_symbols; }
    /// Frees every record and group list of both sides and forgets every published object.
    void Clear();

    /// Groups + 1 of one side (slot 0 unused), and its lists (null without groups). Borrowed.
    unsigned int GroupCount(bool isModule) const { return Side(isModule).count; }
    PList<DupObjInfo*> const* Lists(bool isModule) const { return Side(isModule).lists; }
    /// The records of one group; null for group 0 or a group that does not exist. Borrowed.
    PList<DupObjInfo*> const* Records(bool isModule, unsigned int group) const;
    /// The number of objects published and not released.
    size_t PublishedCount() const { return m_objects.size(); }

    /// The record of loc in group when it holds an object of elementType (any kind with
    /// AnyElementType), with its RefCount raised for the caller; null otherwise. With lock the
    /// lock is held for reading; a failed lock throws std::system_error.
    DupObjInfo* Take(bool isModule, unsigned int group, int loc, bool lock, uintptr_t elementType);

    /// Publishes object (elementCount elements of kind elementType) as the object of loc in
    /// group, holding the lock for writing, and returns its record with one reference for the
    /// caller. Null when another reader has published first or memory runs out: the caller keeps
    /// object as its private copy. id names the entry in the message of a record that has no
    /// object but still counts holders.
    DupObjInfo* Publish(bool isModule, unsigned int id, unsigned int group, void* object, int loc,
                        unsigned int elementCount, uintptr_t elementType);

    /// Drops one reference on object under the write lock. True when the caller must free it: it
    /// is not (or no longer) shared, or this was its last reference, whose element count then
    /// goes to sharedCount (if given). False for null and while other holders remain.
    bool Release(void* object, unsigned int* sharedCount);

    /// The record of a published object; null if object is not shared now. Takes no lock: callers
    /// hold the lock for writing or run alone. Borrowed.
    DupObjInfo* Find(void* object) const;

private:
    /// The duplicate groups of one side.
    struct Groups
    {
        unsigned int count = 1;
        PList<DupObjInfo*>* lists = nullptr;
    };

    Groups& Side(bool isModule) { return isModule ? m_symbols : m_data; }
    Groups const& Side(bool isModule) const { return isModule ? m_symbols : m_data; }
    /// The record of loc in group, without a lock and without counting.
    DupObjInfo* FindRecord(bool isModule, unsigned int group, int loc) const;
    /// Makes object the published object of record, counts the caller's reference on it, and
    /// finds the record by the object's address from now on.
    DupObjInfo* Store(DupObjInfo& record, void* object, unsigned int elementCount,
                      uintptr_t elementType);

    IParameterLoggingAPI* m_log;
    Groups m_symbols;
    Groups m_data;
    std::unordered_map<void*, DupObjInfo*> m_objects;
    std::shared_mutex m_lock;
};
