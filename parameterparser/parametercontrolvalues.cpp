// SPDX-License-Identifier: Apache-2.0
// Control and trigger values.
#include "parameterparser/parametercontrolvalues.h"

#include <cstring>
#include <new>

#include "platform/vornalloc.h"
#include "platform/vornosutils.h"

#include "parameterparser/parameterclocale.h"

namespace {

// A zero-filled copy of text (null reads as empty); null when memory runs out.
char* CopyText(char const* text)
{
    if (text == nullptr)
        text = "";
    size_t const length = std::strlen(text);
    auto* copy = static_cast<char*>(VornCalloc(length + 1, VornTagAllocData));
    if (copy != nullptr)
        std::memcpy(copy, text, length + 1);
    return copy;
}

// Names compare by length and bytes, so a name is never matched by a prefix of itself.
bool SameText(char const* first, char const* second)
{
    if (first == nullptr)
        first = "";
    if (second == nullptr)
        second = "";
    size_t const length = std::strlen(first);
    return length == std::strlen(second) && std::memcmp(first, second, length) == 0;
}

} // namespace

unsigned int ParameterCTValue::ToString(char* text, unsigned int length) const
{
    if (text == nullptr || length == 0)
        return 0;
    // A client splits the list at "," and reads the point as the decimal point: the host's
    // locale must not turn 1.5 into "1,500000".
    ParameterCLocaleScope const cLocale;
    Vorn::OsUtils::SNPrintF(text, length, "%u=%f", static_cast<unsigned int>(identifier),
                            static_cast<double>(value));
    return static_cast<unsigned int>(std::strlen(text));
}

ParameterTriggerIDValues* ParameterTriggerIDValues::Create(char const* name)
{
    void* storage = VornCalloc(sizeof(ParameterTriggerIDValues), VornTagAllocObject);
    if (storage == nullptr)
        return nullptr;
    auto* record = new (storage) ParameterTriggerIDValues();
    record->m_name = CopyText(name);
    if (record->m_name == nullptr) {
        Destroy(record);
        return nullptr;
    }
    return record;
}

void ParameterTriggerIDValues::Destroy(ParameterTriggerIDValues* values)
{
    if (values == nullptr)
        return;
    values->~ParameterTriggerIDValues();
    VornFree(values, VornTagRelease);
}

ParameterTriggerIDValues::~ParameterTriggerIDValues()
{
    VornFree(m_values, VornTagRelease);
    VornFree(m_name, VornTagRelease);
}

bool ParameterTriggerIDValues::SetValues(ParameterCTValue const* values, unsigned int count)
{
    VornFree(m_values, VornTagRelease);
    m_values = nullptr;
    m_count = 0;
    if (values == nullptr || count == 0)
        return true;
    m_values = static_cast<ParameterCTValue*>(
        VornCalloc(static_cast<size_t>(count) * sizeof(ParameterCTValue), VornTagAllocData));
    if (m_values == nullptr)
        return false;
    std::memcpy(static_cast<void*>(m_values), values,
                static_cast<size_t>(count) * sizeof(ParameterCTValue));
    m_count = count;
    return true;
}

ParameterTriggerValues* ParameterTriggerValues::Create(char const* modePath, char const* module,
                                                       char const* pipeline)
{
    void* storage = VornCalloc(sizeof(ParameterTriggerValues), VornTagAllocObject);
    if (storage == nullptr)
        return nullptr;
    auto* request = new (storage) ParameterTriggerValues();
    request->m_modePath = CopyText(modePath);
    request->m_module = CopyText(module);
    request->m_pipeline = CopyText(pipeline);
    if (request->m_modePath == nullptr || request->m_module == nullptr ||
        request->m_pipeline == nullptr) {
        Destroy(request);
        return nullptr;
    }
    request->m_created = clock();
    return request;
}

void ParameterTriggerValues::Destroy(ParameterTriggerValues* request)
{
    if (request == nullptr)
        return;
    request->~ParameterTriggerValues();
    VornFree(request, VornTagRelease);
}

ParameterTriggerValues::~ParameterTriggerValues()
{
    for (unsigned int i = 0; i < m_instances.Count(); ++i)
        ParameterTriggerIDValues::Destroy(m_instances[i]);
    VornFree(m_pipeline, VornTagRelease);
    VornFree(m_module, VornTagRelease);
    VornFree(m_modePath, VornTagRelease);
}

bool ParameterTriggerValues::Matches(char const* modePath, char const* module,
                                     char const* pipeline) const
{
    return SameText(m_modePath, modePath) && SameText(m_module, module) &&
           SameText(m_pipeline, pipeline);
}

bool ParameterTriggerValues::AddInstance(char const* name, ParameterCTValue const* values,
                                         unsigned int count)
{
    ParameterTriggerIDValues* instance = ParameterTriggerIDValues::Create(name);
    if (instance == nullptr)
        return false;
    if (!instance->SetValues(values, count)) {
        ParameterTriggerIDValues::Destroy(instance);
        return false;
    }
    unsigned int const before = m_instances.Count();
    m_instances.Add(instance);
    // The list drops the element silently when it cannot grow.
    if (m_instances.Count() == before) {
        ParameterTriggerIDValues::Destroy(instance);
        return false;
    }
    return true;
}

ParameterTriggerIDValues* ParameterTriggerValues::Find(char const* name) const
{
    for (unsigned int i = 0; i < m_instances.Count(); ++i) {
        ParameterTriggerIDValues* instance = m_instances[i];
        if (instance != nullptr && SameText(instance->Name(), name))
            return instance;
    }
    return nullptr;
}
