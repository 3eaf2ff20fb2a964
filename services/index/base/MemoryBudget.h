#pragma once

#include <atomic>
#include <cstddef>

namespace kestrel::index {

/// The memory that all requests together may use for their bodies, parsed documents and answers.
class MemoryBudget {
public:
    explicit MemoryBudget(std::size_t bytes) : mLimit(bytes) {}

    /// The share of one request; returned when the request ends.
    class Lease {
    public:
        explicit Lease(MemoryBudget& budget) : mBudget(budget) {}
        ~Lease() { mBudget.mTaken -= mBytes; }
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;

        /// Throws an ApiError with status 429 when there is not enough left.
        void take(std::size_t bytes);
        std::size_t bytes() const { return mBytes; }

    private:
        MemoryBudget& mBudget;
        std::size_t mBytes = 0;
    };

private:
    const std::size_t mLimit;
    std::atomic<std::size_t> mTaken{0};
};

} // namespace kestrel::index
