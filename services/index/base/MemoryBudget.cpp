#include "base/MemoryBudget.h"

#include "base/ApiError.h"

#include <fmt/format.h>

namespace kestrel::index {

void MemoryBudget::Lease::take(std::size_t bytes) {
    const std::size_t before = mBudget.mTaken.fetch_add(bytes);
    if (bytes > mBudget.mLimit || before > mBudget.mLimit - bytes) {
        mBudget.mTaken -= bytes;
        throw ApiError(
            429, "circuit_breaking_exception",
            fmt::format("[parent] Data too large: [{}] bytes more for this request would be over the limit "
                        "of [{}] bytes for all requests together; try again later, or ask for less",
                        bytes, mBudget.mLimit),
            {{"bytes_wanted", before + bytes}, {"bytes_limit", mBudget.mLimit}, {"durability", "TRANSIENT"}});
    }
    mBytes += bytes;
}

} // namespace kestrel::index
