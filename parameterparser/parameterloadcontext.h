// SPDX-License-Identifier: Apache-2.0
// ParameterLoadContext: what one module load keeps beside its parameters: the decode work it may
// still do, and the structures of the file's schema it found to differ from the compiled one.
#pragma once

#include <cstdint>
#include <unordered_map>

#include "parameterparser/parameterexport.h"

class ParameterDefinitionStructure;

/// Limit on hostile input: elements (numbers, structures, strings and characters) that one module
/// load may decode for every byte of its file. Every element of a file takes at least one byte of
/// it, so a file read once stays far below; only blocks read again and again (many pointers to one
/// data entry, trees whose levels all point at the next one) reach it, and what lies past it is
/// left empty.
constexpr uint64_t MaxDecodedElementsPerFileByte = 4;

/// The state of one module load, made on the loading thread for the length of the load. Readers
/// reach the innermost one through Current(); a load without one (a structure's Load called
/// directly) has no work limit and logs every difference where it is met.
class PARAMETERPARSER_API ParameterLoadContext
{
public:
    /// Enters a load that may decode MaxDecodedElementsPerFileByte elements for every byte of a
    /// file of fileLength bytes.
    explicit ParameterLoadContext(uint64_t fileLength);
    ~ParameterLoadContext();

    ParameterLoadContext(ParameterLoadContext const&) = delete;
    ParameterLoadContext& operator=(ParameterLoadContext const&) = delete;

    /// The load running on this thread; null outside one.
    static ParameterLoadContext* Current();

    /// Takes count elements from what the load may still decode. False, taking nothing, when they
    /// do not fit; FirstRefusal() is true for the first such refusal of the load only.
    [[nodiscard]] bool Spend(uint64_t count);
    bool FirstRefusal() const { return m_refusals == 1; }
    uint64_t Allowance() const { return m_allowance; }
    uint64_t Decoded() const { return m_decoded; }

    /// Records that the file's structure differs from the compiled type that reads it. True while
    /// the structure's own messages are still to be written: once the load has summed the
    /// structure up (TakeSummary), its later instances are read without a word.
    bool NoteDifference(ParameterDefinitionStructure const* structure);

    /// True once for a structure noted as different: its summary is then due, and the structure
    /// counts as summed up for the rest of the load.
    bool TakeSummary(ParameterDefinitionStructure const* structure);

private:
    ParameterLoadContext* m_outer;
    uint64_t m_allowance;
    uint64_t m_decoded = 0;
    unsigned int m_refusals = 0;
    /// Structures found to differ, and whether each was summed up. Empty, and never allocated,
    /// while the file matches the compiled schema.
    std::unordered_map<ParameterDefinitionStructure const*, bool> m_differences;
};
