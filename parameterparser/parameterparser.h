// SPDX-License-Identifier: Apache-2.0
// The whole public API of the library in one include.
#pragma once

#include "parameterparser/imodetable.h"
#include "parameterparser/iparameterdataapi.h"
#include "parameterparser/livetuning/parameterknobbycom.h"
#include "parameterparser/livetuning/parameterknobbyworker.h"
#include "parameterparser/modeunion.h"
#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parametercontrolvalues.h"
#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/parametersetmanager.h"
#include "parameterparser/parameterutils.h"
#include "parameterparser/parsercrc.h"
#include "parameterparser/plist.h"
#include "parameterparser/versionunion.h"
