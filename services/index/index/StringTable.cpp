#include "index/StringTable.h"

#include <functional>

namespace kestrel {

std::size_t StringTable::slotOf(std::string_view text) const {
    const std::size_t mask = slots_.size() - 1;
    std::size_t slot = std::hash<std::string_view>{}(text)&mask;
    while (slots_[slot] != absent && at(slots_[slot]) != text)
        slot = (slot + 1) & mask;
    return slot;
}

std::uint32_t StringTable::find(std::string_view text) const {
    return slots_.empty() ? absent : slots_[slotOf(text)];
}

std::uint32_t StringTable::findOrAdd(std::string_view text) {
    // A load of at most three quarters keeps probe sequences short.
    if (slots_.empty() || (static_cast<std::size_t>(size()) + 1) * 4 > slots_.size() * 3) grow();
    std::uint32_t& slot = slots_[slotOf(text)];
    if (slot == absent) {
        slot = size();
        arena_.append(text);
        offsets_.push_back(arena_.size());
    }
    return slot;
}

void StringTable::grow() {
    slots_.assign(slots_.empty() ? 16 : slots_.size() * 2, absent);
    for (std::uint32_t number = 0; number < size(); ++number)
        slots_[slotOf(at(number))] = number;
}

} // namespace kestrel
