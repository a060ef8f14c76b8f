// SPDX-License-Identifier: Apache-2.0
// KnobbyHandler: the destructor that anchors the interface's vtable in the library.
#include "parameterparser/livetuning/knobbyhandler.h"

KnobbyHandler::~KnobbyHandler() = default;
