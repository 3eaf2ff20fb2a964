#include "index/OrdinalSet.h"

namespace kestrel {

void OrdinalSet::add(Ordinal ordinal) {
    if (!several_) {
        if (single_ == none || single_ == ordinal) {
            single_ = ordinal;
            return;
        }
        several_ = std::make_unique<Several>();
        several_->few.push_back(single_);
        single_ = none;
    }
    if (several_->many) {
        several_->many->add(ordinal);
        return;
    }
    std::vector<Ordinal>& few = several_->few;
    const auto place = std::lower_bound(few.begin(), few.end(), ordinal);
    if (place != few.end() && *place == ordinal) return;
    few.insert(place, ordinal);
    if (few.size() <= fewLimit) return;
    several_->many = std::make_unique<Bitmap>(few.size(), few.data());
    std::vector<Ordinal>().swap(few);
}

void OrdinalSet::remove(Ordinal ordinal) {
    if (!several_) {
        if (single_ == ordinal) single_ = none;
    } else if (several_->many) {
        several_->many->remove(ordinal);
    } else {
        std::erase(several_->few, ordinal);
    }
}

std::size_t OrdinalSet::size() const {
    if (!several_) return single_ == none ? 0 : 1;
    return several_->many ? several_->many->cardinality() : several_->few.size();
}

bool OrdinalSet::contains(Ordinal ordinal) const {
    if (!several_) return single_ == ordinal;
    if (several_->many) return several_->many->contains(ordinal);
    return std::binary_search(several_->few.begin(), several_->few.end(), ordinal);
}

Bitmap OrdinalSet::toBitmap() const {
    if (several_ && several_->many) return *several_->many;
    Bitmap bitmap;
    forEach([&](Ordinal ordinal) { bitmap.add(ordinal); });
    return bitmap;
}

std::size_t OrdinalSet::countWithin(const Bitmap& other) const {
    if (several_ && several_->many) return several_->many->and_cardinality(other);
    std::size_t count = 0;
    forEach([&](Ordinal ordinal) { count += other.contains(ordinal) ? 1U : 0U; });
    return count;
}

} // namespace kestrel
