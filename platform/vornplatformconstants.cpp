// SPDX-License-Identifier: Apache-2.0
// Platform constants.
#include "platform/vornplatformconstants.h"

namespace Vorn {

char const* OverrideSettingsPath = "/var/cache/camera";
char const* const PathSeparator = "/";

} // namespace Vorn
