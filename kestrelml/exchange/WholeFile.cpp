#include "kestrelml/exchange/WholeFile.h"

#include "kestrelml/platform/Paths.h"

#include <Poco/Process.h>

#include <cerrno>
#include <system_error>

namespace kestrelml::detail {

namespace fs = std::filesystem;

template <typename Write>
bool WholeFile::Buffer::isDone(Write write) {
    errno = 0;
    if (write()) return true;
    if (mReason == 0) mReason = errno == 0 ? EIO : errno;
    return false;
}

WholeFile::Buffer::int_type WholeFile::Buffer::overflow(int_type c) {
    int_type result = traits_type::eof();
    isDone([&] { return (result = std::filebuf::overflow(c)) != traits_type::eof(); });
    return result;
}

std::streamsize WholeFile::Buffer::xsputn(const char* text, std::streamsize size) {
    std::streamsize written = 0;
    isDone([&] { return (written = std::filebuf::xsputn(text, size)) == size; });
    return written;
}

int WholeFile::Buffer::sync() {
    return isDone([&] { return std::filebuf::sync() == 0; }) ? 0 : -1;
}

WholeFile::WholeFile(const std::string& path) : mTarget(platform::pathFromUtf8(path)) {
    std::error_code ignored;
    const fs::file_status status = fs::status(mTarget, ignored);
    // A link goes on pointing to the file that it names.
    if (fs::is_regular_file(status)) mTarget = fs::canonical(mTarget, ignored);
    mWritten = mTarget;
    if (fs::is_directory(status)) {
        mBuffer.failedFor(EISDIR);
        return;
    }
    errno = 0;
    // Renaming would put a new file even in the place of one that is write-protected.
    if (fs::is_regular_file(status) && !std::ofstream(mTarget, std::ios::app).is_open()) {
        mBuffer.failedFor(errno);
        return;
    }
    if (!fs::exists(status) || fs::is_regular_file(status))
        mWritten += "." + std::to_string(Poco::Process::id()) + ".part";
    errno = 0;
    if (mBuffer.open(mWritten, std::ios::out | std::ios::binary | std::ios::trunc) == nullptr)
        mBuffer.failedFor(errno);
}

WholeFile::~WholeFile() {
    if (isOpen()) discard();
}

std::string WholeFile::failure() const {
    return mBuffer.reason() == 0 ? "" : std::generic_category().message(mBuffer.reason());
}

bool WholeFile::flush() {
    mStream.flush();
    return mStream.good();
}

bool WholeFile::commit() {
    if (!flush()) {
        discard();
        return false;
    }
    errno = 0;
    if (mBuffer.close() == nullptr) { // some systems tell only now that there was no room
        mBuffer.failedFor(errno == 0 ? EIO : errno);
        discard();
        return false;
    }
    if (mWritten == mTarget) return true;
    std::error_code error;
    fs::rename(mWritten, mTarget, error);
    if (!error) return true;
    mBuffer.failedFor(error.value());
    fs::remove(mWritten, error);
    return false;
}

void WholeFile::discard() {
    mBuffer.close();
    std::error_code ignored;
    if (mWritten != mTarget) fs::remove(mWritten, ignored);
}

} // namespace kestrelml::detail
