#pragma once

/// @file
/// Launcher of the index service, kept for hosts that call it: the service is installed and run on its own.

#include "kestrelml/core/Export.h"

#include <string>

class KSNN_API KsNNDBSearchService {
public:
    /// Both do nothing and return true.
    static bool RunDBSearchService(const wchar_t* arguments, bool wait);
    static bool StopDBSearchService();

    static std::wstring servicePath;
    static const wchar_t* const serviceFileName;
    static bool isRunning;
};
