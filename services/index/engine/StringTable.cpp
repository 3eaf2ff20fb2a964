#include "engine/StringTable.h"

#include "engine/SnapshotFile.h"

#include <functional>

namespace kestrel::index {

std::size_t StringTable::slotOf(std::string_view text) const {
    const std::size_t mask = mSlots.size() - 1;
    std::size_t slot = std::hash<std::string_view>{}(text)&mask;
    while (mSlots[slot] != kAbsent && at(mSlots[slot]) != text)
        slot = (slot + 1) & mask;
    return slot;
}

std::uint32_t StringTable::find(std::string_view text) const {
    return mSlots.empty() ? kAbsent : mSlots[slotOf(text)];
}

std::uint32_t StringTable::findOrAdd(std::string_view text) {
    // A load factor of at most 3/4 keeps probe sequences short.
    if (mSlots.empty() || (static_cast<std::size_t>(size()) + 1) * 4 > mSlots.size() * 3) grow();
    std::uint32_t& slot = mSlots[slotOf(text)];
    if (slot == kAbsent) {
        slot = size();
        mArena.append(text);
        mOffsets.push_back(mArena.size());
    }
    return slot;
}

void StringTable::grow() {
    mSlots.assign(mSlots.empty() ? 16 : mSlots.size() * 2, kAbsent);
    for (std::uint32_t number = 0; number < size(); ++number)
        mSlots[slotOf(at(number))] = number;
}

void StringTable::save(SnapshotWriter& writer) const {
    writer.text(mArena);
    writer.column(mOffsets);
    writer.column(mSlots);
}

void StringTable::load(SnapshotReader& reader) {
    mArena = reader.text();
    reader.column(mOffsets);
    reader.column(mSlots);
    if (mOffsets.empty() || mOffsets.back() != mArena.size() || size() > mSlots.size())
        throw SnapshotError("a table of texts in a snapshot is damaged");
}

} // namespace kestrel::index
