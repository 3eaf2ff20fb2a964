#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace kestrel::index {

/// A shared mutex that starves neither side: readers that arrive while a writer waits let it go first, and
/// all readers that waited for a writer go before the next one. Not recursive, not even for readers.
class FairSharedMutex {
public:
    void lock_shared() {
        std::unique_lock guard(mMutex);
        if (mWriting || mWritersWaiting > 0) {
            const std::uint64_t arrived = mPhase;
            ++mReadersWaiting;
            mReadersGo.wait(guard, [&] { return mPhase != arrived; });
            --mReadersEntering;
        }
        ++mReaders;
    }

    bool writerWaits() const {
        const std::lock_guard guard(mMutex);
        return mWritersWaiting > 0;
    }

    void unlock_shared() {
        const std::lock_guard guard(mMutex);
        if (--mReaders == 0 && mReadersEntering == 0) mWriterGoes.notify_one();
    }

    void lock() {
        std::unique_lock guard(mMutex);
        ++mWritersWaiting;
        mWriterGoes.wait(guard, [&] { return !mWriting && mReaders == 0 && mReadersEntering == 0; });
        --mWritersWaiting;
        mWriting = true;
    }

    void unlock() {
        const std::lock_guard guard(mMutex);
        mWriting = false;
        // All readers that waited for this writer enter before the next writer does.
        mReadersEntering += mReadersWaiting;
        mReadersWaiting = 0;
        ++mPhase;
        mReadersGo.notify_all();
        if (mReadersEntering == 0) mWriterGoes.notify_one();
    }

private:
    mutable std::mutex mMutex;
    std::condition_variable mReadersGo;
    std::condition_variable mWriterGoes;
    std::uint64_t mPhase = 0;
    std::uint32_t mReaders = 0;
    std::uint32_t mReadersWaiting = 0;
    std::uint32_t mReadersEntering = 0;
    std::uint32_t mWritersWaiting = 0;
    bool mWriting = false;
};

} // namespace kestrel::index
