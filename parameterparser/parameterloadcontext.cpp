// SPDX-License-Identifier: Apache-2.0
// The per-load state of module loads: decode work and schema differences.
#include "parameterparser/parameterloadcontext.h"

namespace {

// A load runs to its end on the thread that started it, so the readers find its state here
// rather than in every field's parameters, which generated code copies from structure to
// structure.
thread_local ParameterLoadContext* t_current = nullptr;

} // namespace

ParameterLoadContext::ParameterLoadContext(uint64_t fileLength)
    : m_outer(t_current), m_allowance(fileLength * MaxDecodedElementsPerFileByte)
{
    t_current = this;
}

ParameterLoadContext::~ParameterLoadContext()
{
    t_current = m_outer;
}

ParameterLoadContext* ParameterLoadContext::Current()
{
    return t_current;
}

bool ParameterLoadContext::Spend(uint64_t count)
{
    if (count > m_allowance - m_decoded) {
        // Counted only as far as the first refusal needs telling apart from the later ones.
        if (m_refusals < 2)
            ++m_refusals;
        return false;
    }
    m_decoded += count;
    return true;
}

bool ParameterLoadContext::NoteDifference(ParameterDefinitionStructure const* structure)
{
    auto const found = m_differences.find(structure);
    if (found != m_differences.end())
        return !found->second;
    m_differences.emplace(structure, false);
    return true;
}

bool ParameterLoadContext::TakeSummary(ParameterDefinitionStructure const* structure)
{
    auto const found = m_differences.find(structure);
    if (found == m_differences.end() || found->second)
        return false;
    found->second = true;
    return true;
}
