#include "kestrelml/host/KsNNDBSearchService.h"

std::wstring KsNNDBSearchService::servicePath;
const wchar_t* const KsNNDBSearchService::serviceFileName = L"bin\\elasticsearch-service.bat";
bool KsNNDBSearchService::isRunning = false;

bool KsNNDBSearchService::RunDBSearchService(const wchar_t*, bool) {
    return true;
}

bool KsNNDBSearchService::StopDBSearchService() {
    return true;
}
