// SPDX-License-Identifier: Apache-2.0
// The platform allocator: calloc with a size header, for byte accounting and failure injection.
#include "platform/vornalloc.h"

#include <atomic>
#include <cstdlib>

namespace {

// Each block carries its size ahead of the caller's bytes, padded to keep max_align_t alignment.
constexpr size_t HeaderSize = alignof(std::max_align_t);

std::atomic<int> g_successesLeft{-1};
std::atomic<size_t> g_allocatedBytes{0};
std::atomic<size_t> g_peakBytes{0};
std::atomic<size_t> g_allocationCount{0};

bool ShouldFail()
{
    int left = g_successesLeft.load(std::memory_order_relaxed);
    while (left >= 0) {
        if (left == 0)
            return true;
        if (g_successesLeft.compare_exchange_weak(left, left - 1, std::memory_order_relaxed))
            return false;
    }
    return false;
}

void RaisePeak(size_t current)
{
    size_t peak = g_peakBytes.load(std::memory_order_relaxed);
    while (current > peak &&
           !g_peakBytes.compare_exchange_weak(peak, current, std::memory_order_relaxed)) {
    }
}

} // namespace

void* VornCalloc(size_t size, uint32_t /*tag*/)
{
    if (ShouldFail() || size > SIZE_MAX - HeaderSize)
        return nullptr;
    auto* block = static_cast<unsigned char*>(std::calloc(1, size + HeaderSize));
    if (block == nullptr)
        return nullptr;
    *reinterpret_cast<size_t*>(block) = size;
    g_allocationCount.fetch_add(1, std::memory_order_relaxed);
    RaisePeak(g_allocatedBytes.fetch_add(size, std::memory_order_relaxed) + size);
    return block + HeaderSize;
}

void VornFree(void* pointer, uint32_t /*tag*/)
{
    if (pointer == nullptr)
        return;
    unsigned char* block = static_cast<unsigned char*>(pointer) - HeaderSize;
    g_allocatedBytes.fetch_sub(*reinterpret_cast<size_t*>(block), std::memory_order_relaxed);
    std::free(block);
}

namespace Vorn {
namespace Testing {

void FailAllocationsAfter(int successes)
{
    g_successesLeft.store(successes < 0 ? -1 : successes, std::memory_order_relaxed);
}

void ResetAllocationFailure()
{
    g_successesLeft.store(-1, std::memory_order_relaxed);
}

size_t AllocatedBytes()
{
    return g_allocatedBytes.load(std::memory_order_relaxed);
}

size_t AllocationCount()
{
    return g_allocationCount.load(std::memory_order_relaxed);
}

size_t PeakAllocatedBytes()
{
    return g_peakBytes.load(std::memory_order_relaxed);
}

void ResetPeakAllocatedBytes()
{
    g_peakBytes.store(g_allocatedBytes.load(std::memory_order_relaxed), std::memory_order_relaxed);
}

} // namespace Testing
} // namespace Vorn
