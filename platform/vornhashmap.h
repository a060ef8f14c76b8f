// SPDX-License-Identifier: Apache-2.0
// The platform hash map: fixed-size byte keys to opaque values, safe to use from several threads.
#pragma once

#include <cstdint>

namespace Vorn {
namespace Hashmap {

struct Map;
using Handle = Map*;

/// Results of the map operations.
enum Result : int
{
    Ok = 0,
    NotFound = 1,
    BadArgument = 2,
    NoMemory = 3,
};

/// Creates a map whose keys are keySize bytes. bucketCount is a hint (0: default); flags are
/// reserved and must be 0. On success *map is set and Ok returned.
int Create(Handle* map, uint32_t keySize, uint32_t bucketCount, uint32_t flags);

/// Finds key; Ok with *value set when found, NotFound otherwise.
int Get(Handle map, void const* key, void** value);

/// Inserts or replaces the value of key.
int Put(Handle map, void const* key, void* value);

/// Called for each entry with its key, value and the caller's context.
using Visitor = void (*)(void const* key, void* value, void* context);

/// Visits every entry under the map's lock; with remove set each entry is taken out after its
/// visit, so the visitor may free the value.
int Foreach(Handle map, Visitor visitor, void* context, bool remove);

/// Destroys the map (not the values). Null is ignored.
void Destroy(Handle map);

} // namespace Hashmap
} // namespace Vorn
