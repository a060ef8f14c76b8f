// SPDX-License-Identifier: Apache-2.0
// The platform allocator: zero-filled blocks with allocation tags, and a test seam that fails them.
#pragma once

#include <cstddef>
#include <cstdint>

/// Allocation tags that the framework passes through to the platform.
enum VornAllocTag : uint32_t
{
    VornTagAllocObject = 9,
    VornTagAllocData = 13,
    VornTagRelease = 20,
};

/// Allocates size zero-filled bytes. Returns null when the platform has no memory (or the test
/// seam says so). A size of 0 still gives a distinct block. Free it with VornFree.
void* VornCalloc(size_t size, uint32_t tag);

/// Frees a block from VornCalloc; null is ignored.
void VornFree(void* pointer, uint32_t tag);

namespace Vorn {
namespace Testing {

/// Makes the allocator fail: the next `successes` allocations work, every later one returns null
/// until ResetAllocationFailure. A negative value never fails.
void FailAllocationsAfter(int successes);
void ResetAllocationFailure();

/// Bytes currently held through VornCalloc, and the highest value since the last ResetPeak.
size_t AllocatedBytes();
size_t PeakAllocatedBytes();
void ResetPeakAllocatedBytes();

/// Allocations made through VornCalloc since the process started.
size_t AllocationCount();

} // namespace Testing
} // namespace Vorn
