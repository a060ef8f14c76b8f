// SPDX-License-Identifier: Apache-2.0
// TunedFile: a tuning file with the values tuned in a manager written back into its own bytes.
#pragma once

#include <string>
#include <vector>

class ParameterSetManager;

namespace ParamCtl {

/// What TuneFile found to write.
struct TunedChanges
{
    unsigned int values = 0;  ///< numbers written
    unsigned int records = 0; ///< module records with at least one of them
    /// Changes the file cannot hold, "<module> in <mode>: <path>: <reason>": a member its schema
    /// lacks, a value outside the file's type for it, an element past the file's count.
    std::vector<std::string> refused;
};

/// Writes into bytes, the file tuned was loaded from, every number that a module of tuned holds
/// differently from a fresh load of bytes, each where the file's own schema puts it and in the
/// file's encoding of that member (type code, width, four-byte flag), then puts the checksum
/// right. Modules not loaded are not read: a value is set only on a loaded module, which then
/// stays loaded. What the file cannot hold is
/// listed in changes.refused and written nowhere; every other byte stays as it was. False with
/// reason when bytes cannot be tuned at all: a version below 6.0.0 (its modules have no names a
/// build can find) or no schema in the file. tuned must not change while this runs (hold its
/// live tuning worker off).
[[nodiscard]] bool TuneFile(std::vector<unsigned char>& bytes, ParameterSetManager& tuned,
                            TunedChanges& changes, std::string& reason);

/// Writes bytes to path through a temporary file beside it, renamed over path once complete, so
/// that path holds either its old contents or all of the new ones. False with reason (the system
/// error) otherwise; the temporary file is then removed.
[[nodiscard]] bool WriteFileAtomically(std::string const& path,
                                       std::vector<unsigned char> const& bytes,
                                       std::string& reason);

} // namespace ParamCtl
