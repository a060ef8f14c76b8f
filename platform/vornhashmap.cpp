// SPDX-License-Identifier: Apache-2.0
// The platform hash map over std::unordered_map with a lock.
#include "platform/vornhashmap.h"

#include <mutex>
#include <new>
#include <string>
#include <unordered_map>

namespace Vorn {
namespace Hashmap {

struct Map
{
    uint32_t keySize;
    std::mutex mutex;
    std::unordered_map<std::string, void*> entries;
};

namespace {

std::string KeyOf(Map const* map, void const* key)
{
    return std::string(static_cast<char const*>(key), map->keySize);
}

} // namespace

int Create(Handle* map, uint32_t keySize, uint32_t bucketCount, uint32_t flags)
{
    if (map == nullptr || keySize == 0 || flags != 0)
        return BadArgument;
    auto* created = new (std::nothrow) Map{keySize, {}, {}};
    if (created == nullptr)
        return NoMemory;
    if (bucketCount != 0)
        created->entries.reserve(bucketCount);
    *map = created;
    return Ok;
}

int Get(Handle map, void const* key, void** value)
{
    if (map == nullptr || key == nullptr || value == nullptr)
        return BadArgument;
    std::lock_guard<std::mutex> lock(map->mutex);
    auto found = map->entries.find(KeyOf(map, key));
    if (found == map->entries.end())
        return NotFound;
    *value = found->second;
    return Ok;
}

int Put(Handle map, void const* key, void* value)
{
    if (map == nullptr || key == nullptr)
        return BadArgument;
    std::lock_guard<std::mutex> lock(map->mutex);
    map->entries[KeyOf(map, key)] = value;
    return Ok;
}

int Foreach(Handle map, Visitor visitor, void* context, bool remove)
{
    if (map == nullptr || visitor == nullptr)
        return BadArgument;
    std::lock_guard<std::mutex> lock(map->mutex);
    for (auto& entry : map->entries)
        visitor(entry.first.data(), entry.second, context);
    if (remove)
        map->entries.clear();
    return Ok;
}

void Destroy(Handle map)
{
    delete map;
}

} // namespace Hashmap
} // namespace Vorn
