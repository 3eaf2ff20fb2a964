#include "kestrelml/platform/PrivateFolder.h"

#ifndef _WIN32
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace kestrelml::platform {

namespace fs = std::filesystem;

#ifdef _WIN32

// The temporary folder is the user's own.
fs::path privateTemporaryFolder(const std::string& name) {
    fs::path folder = fs::temp_directory_path() / name;
    fs::create_directory(folder);
    return folder;
}

#else

fs::path privateTemporaryFolder(const std::string& name) {
    fs::path folder = fs::temp_directory_path() / (name + "-" + std::to_string(geteuid()));
    if (mkdir(folder.c_str(), S_IRWXU) == 0) return folder;
    if (errno != EEXIST)
        throw fs::filesystem_error("cannot create a private folder", folder,
                                   {errno, std::generic_category()});

    struct stat found {};
    const bool ownedAndClosed = lstat(folder.c_str(), &found) == 0 && S_ISDIR(found.st_mode) &&
                                found.st_uid == geteuid() && (found.st_mode & (S_IRWXG | S_IRWXO)) == 0;
    if (!ownedAndClosed)
        throw fs::filesystem_error("not a folder that only its owner can read; remove it or set another one",
                                   folder, std::make_error_code(std::errc::permission_denied));
    return folder;
}

#endif

} // namespace kestrelml::platform
