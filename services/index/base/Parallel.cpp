#include "base/Parallel.h"

#include "base/Work.h"

#include <algorithm>
#include <thread>
#include <vector>

namespace kestrel::index {

void inParallel(std::size_t count, std::size_t smallest,
                const std::function<void(std::size_t first, std::size_t last)>& part) {
    constexpr std::size_t kLongestPiece = 65536;
    const std::size_t processors = std::max(1U, std::thread::hardware_concurrency());
    for (std::size_t first = 0; first < count;) {
        checkStillWanted();
        const std::size_t round = std::min(count - first, processors * kLongestPiece);
        const std::size_t piece = std::max(smallest, (round + processors - 1) / processors);
        const std::size_t end = first + round;
        std::vector<std::jthread> others;
        for (std::size_t next = first + piece; next < end; next += piece)
            others.emplace_back([&part, next, last = std::min(next + piece, end)] { part(next, last); });
        part(first, std::min(first + piece, end));
        first = end;
    }
}

} // namespace kestrel::index
