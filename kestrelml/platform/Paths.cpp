#include "kestrelml/platform/Paths.h"

#include <algorithm>

#ifdef _WIN32
#include <windows.h>
#endif

namespace kestrelml::platform {

std::filesystem::path pathFromUtf8(const std::string& text) {
#ifdef _WIN32
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
#else
    return text; // bytes as they are: a file name on Linux need not be valid UTF-8
#endif
}

std::string withTrailingSeparator(std::string folder) {
    if (!folder.empty() && folder.back() != pathSeparator()) folder += pathSeparator();
    return folder;
}

std::string withForwardSlashes(std::string path) {
    std::replace(path.begin(), path.end(), pathSeparator(), '/');
    return path;
}

std::filesystem::path executableDirectory() {
#ifdef _WIN32
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    return std::filesystem::path(std::wstring(path, length)).parent_path();
#else
    return std::filesystem::read_symlink("/proc/self/exe").parent_path();
#endif
}

} // namespace kestrelml::platform
