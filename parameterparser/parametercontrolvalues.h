// SPDX-License-Identifier: Apache-2.0
// Control and trigger values: the numbers a host hands to the live tuning service for a client.
#pragma once

#include <cstdint>
#include <ctime>

#include "parameterparser/parameterexport.h"
#include "parameterparser/plist.h"

/// One numeric value with the identifier the host and the tuning tool agree on. Twelve bytes with
/// no gap, in memory and on the wire.
#pragma pack(push, 1)
struct PARAMETERPARSER_API ParameterCTValue
{
    uint32_t identifier;
    double value;

    /// Formats the value as "<identifier>=<value>" ("%u=%f" in the C locale, whatever the
    /// process's), cut to length with its terminator. Returns the characters written (0 for a
    /// null text or length 0).
    unsigned int ToString(char* text, unsigned int length) const;
};
#pragma pack(pop)

static_assert(sizeof(ParameterCTValue) == 12, "ParameterCTValue is 12 bytes on the wire");

/// What the host answered for one instance (one hardware unit, say) of a module: the instance's
/// name and an owned copy of its values. Create and Destroy allocate through the platform.
class PARAMETERPARSER_API ParameterTriggerIDValues
{
public:
    /// A record for the instance name (copied) with no values. Null when memory runs out.
    static ParameterTriggerIDValues* Create(char const* name);

    /// Frees the record and everything it owns; null is ignored.
    static void Destroy(ParameterTriggerIDValues* values);

    ParameterTriggerIDValues(ParameterTriggerIDValues const&) = delete;
    ParameterTriggerIDValues& operator=(ParameterTriggerIDValues const&) = delete;

    /// Replaces the values by a copy of count values. The old array is freed first. Null values
    /// or a count of 0 leave no values; when memory runs out no values are left either, and
    /// false is returned. Count() always describes the array that is held.
    bool SetValues(ParameterCTValue const* values, unsigned int count);

    /// The instance name; never null.
    char const* Name() const { return m_name; }
    unsigned int Count() const { return m_count; }
    /// The held values, null when Count() is 0.
    ParameterCTValue const* Values() const { return m_values; }

private:
    ParameterTriggerIDValues() = default;
    ~ParameterTriggerIDValues();

    char* m_name = nullptr;
    unsigned int m_count = 0;
    ParameterCTValue* m_values = nullptr;
};

/// A pending trigger request of a client: one module in one mode path and pipeline, the
/// instances the host answered so far (owned), and the clock() reading at its creation, from
/// which the service decides when to answer. Create and Destroy allocate through the platform.
class PARAMETERPARSER_API ParameterTriggerValues
{
public:
    /// A request for the three texts (copied; null reads as empty) with no instances and the
    /// current clock() reading. Null when memory runs out.
    static ParameterTriggerValues* Create(char const* modePath, char const* module,
                                          char const* pipeline);

    /// Frees the request with all its instances; null is ignored.
    static void Destroy(ParameterTriggerValues* request);

    ParameterTriggerValues(ParameterTriggerValues const&) = delete;
    ParameterTriggerValues& operator=(ParameterTriggerValues const&) = delete;

    /// True if the three texts equal this request's in length and bytes (null reads as empty).
    bool Matches(char const* modePath, char const* module, char const* pipeline) const;

    /// Appends a new instance record with a copy of the values. Instances are not merged: a
    /// second call with the same name adds a second record. False (and nothing added) when
    /// memory runs out.
    bool AddInstance(char const* name, ParameterCTValue const* values, unsigned int count);

    /// The first instance whose name equals name in length and bytes; null if none. Borrowed.
    ParameterTriggerIDValues* Find(char const* name) const;

    char const* ModePath() const { return m_modePath; }
    char const* Module() const { return m_module; }
    char const* Pipeline() const { return m_pipeline; }
    clock_t CreatedAt() const { return m_created; }
    /// The instances in the order they were added; the request owns them.
    PList<ParameterTriggerIDValues*> const& Instances() const { return m_instances; }

private:
    ParameterTriggerValues() = default;
    ~ParameterTriggerValues();

    char* m_modePath = nullptr;
    char* m_module = nullptr;
    char* m_pipeline = nullptr;
    PList<ParameterTriggerIDValues*> m_instances;
    clock_t m_created = 0;
};
