#include "kestrelml/exchange/WholeFile.h"

#include "kestrelml/platform/Paths.h"

#include <Poco/Process.h>

#include <cerrno>
#include <system_error>

namespace kestrelml::detail {

namespace fs = std::filesystem;

WholeFile::WholeFile(const std::string& path) : mTarget(platform::pathFromUtf8(path)) {
    std::error_code ignored;
    const fs::file_status status = fs::status(mTarget, ignored);
    // A link goes on pointing to the file that it names.
    if (fs::is_regular_file(status)) mTarget = fs::canonical(mTarget, ignored);
    mWritten = mTarget;
    if (fs::is_directory(status)) {
        mReason = EISDIR;
        return;
    }
    errno = 0;
    // Renaming would put a new file even in the place of one that is write-protected.
    if (fs::is_regular_file(status) && !std::ofstream(mTarget, std::ios::app).is_open()) {
        mReason = errno;
        return;
    }
    if (!fs::exists(status) || fs::is_regular_file(status))
        mWritten += "." + std::to_string(Poco::Process::id()) + ".part";
    errno = 0;
    mStream.open(mWritten, std::ios::binary | std::ios::trunc);
    if (!mStream.is_open()) mReason = errno;
}

WholeFile::~WholeFile() {
    if (isOpen()) discard();
}

std::string WholeFile::failure() const {
    return mReason == 0 ? "" : std::generic_category().message(mReason);
}

bool WholeFile::flush() {
    errno = 0;
    mStream.flush();
    if (mStream.good()) return true;
    if (mReason == 0) mReason = errno == 0 ? EIO : errno;
    return false;
}

bool WholeFile::commit() {
    if (!flush()) {
        discard();
        return false;
    }
    mStream.close();
    if (mWritten == mTarget) return true;
    std::error_code error;
    fs::rename(mWritten, mTarget, error);
    if (!error) return true;
    mReason = error.value();
    fs::remove(mWritten, error);
    return false;
}

void WholeFile::discard() {
    mStream.close();
    std::error_code ignored;
    if (mWritten != mTarget) fs::remove(mWritten, ignored);
}

} // namespace kestrelml::detail
