// SPDX-License-Identifier: Apache-2.0
// Platform constants: where the camera stack keeps its override settings.
#pragma once

namespace Vorn {

/// Folder of the override settings file. A variable rather than a constant so that tests can point
/// it at a temporary folder; products leave it alone.
extern char const* OverrideSettingsPath;

/// Separator between folder and file name.
extern char const* const PathSeparator;

} // namespace Vorn
