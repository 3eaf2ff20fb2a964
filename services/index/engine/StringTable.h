#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel::index {

class SnapshotReader;
class SnapshotWriter;

/// Numbers distinct strings in order of arrival. All strings share one arena and the hash table needs four
/// bytes a slot, which keeps millions of terms and identifiers small.
class StringTable {
public:
    static constexpr std::uint32_t kAbsent = UINT32_MAX;

    std::uint32_t find(std::string_view text) const;
    std::uint32_t findOrAdd(std::string_view text);
    std::string_view at(std::uint32_t number) const {
        return std::string_view(mArena).substr(mOffsets[number], mOffsets[number + 1] - mOffsets[number]);
    }
    std::uint32_t size() const { return static_cast<std::uint32_t>(mOffsets.size() - 1); }

    void save(SnapshotWriter& writer) const;
    void load(SnapshotReader& reader);

private:
    std::size_t slotOf(std::string_view text) const;
    void grow();

    std::string mArena;
    std::vector<std::uint64_t> mOffsets{0};
    std::vector<std::uint32_t> mSlots;
};

} // namespace kestrel::index
