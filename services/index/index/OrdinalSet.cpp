#include "index/OrdinalSet.h"

namespace kestrel {

void OrdinalSet::add(Ordinal ordinal) {
    if (bitmap_) {
        bitmap_->add(ordinal);
        return;
    }
    const auto place = std::lower_bound(few_.begin(), few_.end(), ordinal);
    if (place != few_.end() && *place == ordinal) return;
    if (few_.size() < fewLimit) {
        few_.insert(place, ordinal);
        return;
    }
    bitmap_ = std::make_unique<Bitmap>(few_.size(), few_.data());
    bitmap_->add(ordinal);
    std::vector<Ordinal>().swap(few_);
}

void OrdinalSet::remove(Ordinal ordinal) {
    if (bitmap_) {
        bitmap_->remove(ordinal);
        return;
    }
    const auto place = std::lower_bound(few_.begin(), few_.end(), ordinal);
    if (place != few_.end() && *place == ordinal) few_.erase(place);
}

bool OrdinalSet::contains(Ordinal ordinal) const {
    return bitmap_ ? bitmap_->contains(ordinal) : std::binary_search(few_.begin(), few_.end(), ordinal);
}

Bitmap OrdinalSet::toBitmap() const {
    return bitmap_ ? *bitmap_ : Bitmap(few_.size(), few_.data());
}

std::size_t OrdinalSet::countWithin(const Bitmap& other) const {
    if (bitmap_) return bitmap_->and_cardinality(other);
    return static_cast<std::size_t>(
        std::count_if(few_.begin(), few_.end(), [&](Ordinal ordinal) { return other.contains(ordinal); }));
}

} // namespace kestrel
