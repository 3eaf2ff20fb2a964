#pragma once

#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>

namespace kestrelml::detail {

/// A file that appears under its name when it is whole, and not before: until `commit` it stands beside its
/// place, and what was there stays. Devices and pipes are written to as they stand.
class WholeFile {
public:
    /// @param path UTF-8.
    explicit WholeFile(const std::string& path);
    WholeFile(const WholeFile&) = delete;
    WholeFile& operator=(const WholeFile&) = delete;
    /// Removes what was not committed.
    ~WholeFile();

    bool isOpen() const { return mBuffer.is_open(); }
    std::ostream& stream() { return mStream; }
    /// Why the file cannot be opened or written; empty while it can.
    std::string failure() const;
    /// Writes what is buffered. False when it cannot be written.
    [[nodiscard]] bool flush();
    /// Puts the file in its place. False when it could not be written to its end; then it is gone.
    [[nodiscard]] bool commit();

private:
    /// Keeps the system's first reason for a failure: until a stream is asked for its state, other calls may
    /// have replaced it.
    class Buffer : public std::filebuf {
    public:
        int reason() const { return mReason; }
        void failedFor(int reason) { mReason = reason; }

    protected:
        int_type overflow(int_type c) override;
        std::streamsize xsputn(const char* text, std::streamsize size) override;
        int sync() override;

    private:
        /// Calls `write` and remembers why it failed.
        template <typename Write>
        bool isDone(Write write);

        int mReason = 0;
    };

    void discard();

    std::filesystem::path mTarget;
    std::filesystem::path mWritten; ///< Same as `mTarget` for a device.
    Buffer mBuffer;
    std::ostream mStream{&mBuffer};
};

} // namespace kestrelml::detail
