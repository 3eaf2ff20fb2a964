#pragma once

/// @file
/// Entry points of the host's component framework. The library registers no components: all do nothing and
/// return 0.

#include "kestrelml/core/Export.h"

extern "C" {
KSNN_API int KCFStartup();
KSNN_API int KCFShutdown();
KSNN_API int KCFRegisterPlugin();
KSNN_API int KCFRegisterComponent();
KSNN_API int KCFGetClassFactory();
KSNN_API int KCFCanUnloadNow();
}
