// SPDX-License-Identifier: Apache-2.0
// The whole public API of the library in one include: the set managers and their generated
// modules, the store beneath them, live tuning, the statistics services, the log a host routes
// the library's lines with, and the library's version.
#pragma once

#include "platform/vornlog.h"

#include "parametermodules/concretesetmanager.h"
#include "parameterparser/imodetable.h"
#include "parameterparser/iparameterdataapi.h"
#include "parameterparser/iparameterlivetuning.h"
#include "parameterparser/livetuning/parameterknobbycom.h"
#include "parameterparser/livetuning/parameterknobbyhost.h"
#include "parameterparser/livetuning/parameterknobbyworker.h"
#include "parameterparser/modeunion.h"
#include "parameterparser/parameterbinaryfile.h"
#include "parameterparser/parametercontrolvalues.h"
#include "parameterparser/parameterdefinitions.h"
#include "parameterparser/parameterfilesymboltable.h"
#include "parameterparser/parameterlogging.h"
#include "parameterparser/parameterparserinfo.h"
#include "parameterparser/parameterparserversion.h"
#include "parameterparser/parametersetmanager.h"
#include "parameterparser/parameterutils.h"
#include "parameterparser/parsercrc.h"
#include "parameterparser/plist.h"
#include "parameterparser/versionunion.h"
#include "stats/statsalgo/common/statsalgosettings.h"
#include "stats/statsalgo/common/vornstatsdefs.h"
#include "stats/statsalgo/common/vornstatsroidata.h"
#include "stats/statsalgo/common/vornstatsroipriority.h"
#include "stats/statsalgo/common/vornstatsroistability.h"

#include "paramgen/ImageSensorModuleSetManager.h"
#include "paramgen/TuningSetManager.h"
#include "paramgen/bitmlSetManager.h"
#include "paramgen/fdSetManager.h"
