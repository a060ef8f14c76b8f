// SPDX-License-Identifier: Apache-2.0
// PList: a growable array of plain elements that never fails loudly.
#pragma once

#include <cstdlib>
#include <cstring>
#include <type_traits>

/// A growable array of trivially copyable elements. Storage comes from realloc and free; elements
/// are copied bytewise and never constructed or destroyed, so a list of pointers does not own
/// what they point to. The list grows by exactly one element per insert beyond its capacity, and
/// an out-of-range index reads a zeroed dummy instead of failing.
template <typename T> class PList
{
    static_assert(std::is_trivially_copyable<T>::value, "PList holds plain elements only");

public:
    PList() = default;
    ~PList() { std::free(m_items); }

    PList(PList const&) = delete;
    PList& operator=(PList const&) = delete;

    PList(PList&& other) noexcept
        : m_items(other.m_items), m_count(other.m_count), m_capacity(other.m_capacity)
    {
        other.m_items = nullptr;
        other.m_count = 0;
        other.m_capacity = 0;
    }

    PList& operator=(PList&& other) noexcept
    {
        if (this != &other) {
            std::free(m_items);
            m_items = other.m_items;
            m_count = other.m_count;
            m_capacity = other.m_capacity;
            other.m_items = nullptr;
            other.m_count = 0;
            other.m_capacity = 0;
        }
        return *this;
    }

    /// Inserts value at index, moving later elements up. When the list is full its capacity rises
    /// by one; if that allocation fails the element is dropped and the list stays as it was.
    /// index is not checked against Count().
    void Insert(unsigned int index, T value)
    {
        if (m_count >= m_capacity) {
            void* grown = std::realloc(static_cast<void*>(m_items), sizeof(T) * (m_capacity + 1));
            if (grown == nullptr)
                return;
            m_items = static_cast<T*>(grown);
            std::memset(static_cast<void*>(&m_items[m_capacity]), 0, sizeof(T));
            ++m_capacity;
        }
        if (m_items == nullptr)
            return;
        if (index < m_count)
            std::memmove(static_cast<void*>(&m_items[index + 1]), &m_items[index],
                         sizeof(T) * (m_count - index));
        std::memcpy(static_cast<void*>(&m_items[index]), &value, sizeof(T));
        ++m_count;
    }

    /// Appends value.
    void Add(T value) { Insert(m_count, value); }

    /// Removes the element at index (ignored when out of range); the capacity stays.
    void Remove(unsigned int index)
    {
        if (index >= m_count)
            return;
        std::memmove(static_cast<void*>(&m_items[index]), &m_items[index + 1],
                     sizeof(T) * (m_count - index - 1));
        --m_count;
    }

    /// First index of an element equal to value, -1 if none.
    int Find(T const& value) const
    {
        for (unsigned int i = 0; i < m_count; ++i) {
            if (m_items[i] == value)
                return static_cast<int>(i);
        }
        return -1;
    }

    /// The element at index, or a zeroed static dummy for an index at or past Count().
    T const& operator[](unsigned int index) const
    {
        if (index < m_count)
            return m_items[index];
        return Dummy();
    }

    T& operator[](unsigned int index)
    {
        if (index < m_count)
            return m_items[index];
        return Dummy();
    }

    unsigned int Count() const { return m_count; }
    unsigned int Capacity() const { return m_capacity; }
    T* Items() { return m_items; }
    T const* Items() const { return m_items; }

    /// Drops every element and releases the storage.
    void Clear()
    {
        std::free(m_items);
        m_items = nullptr;
        m_count = 0;
        m_capacity = 0;
    }

private:
    static T& Dummy()
    {
        static T dummy{};
        return dummy;
    }

    T* m_items = nullptr;
    unsigned int m_count = 0;
    unsigned int m_capacity = 0;
};
