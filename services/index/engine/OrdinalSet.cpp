#include "engine/OrdinalSet.h"

namespace kestrel::index {

void OrdinalSet::add(Ordinal ordinal) {
    if (!mSeveral) {
        if (mSingle == kNone || mSingle == ordinal) {
            mSingle = ordinal;
            return;
        }
        mSeveral = std::make_unique<Several>();
        mSeveral->few.push_back(mSingle);
        mSingle = kNone;
    }
    if (mSeveral->many) {
        mSeveral->many->add(ordinal);
        return;
    }
    std::vector<Ordinal>& few = mSeveral->few;
    const auto place = std::lower_bound(few.begin(), few.end(), ordinal);
    if (place != few.end() && *place == ordinal) return;
    few.insert(place, ordinal);
    if (few.size() <= kFewLimit) return;
    mSeveral->many = std::make_unique<Bitmap>(few.size(), few.data());
    std::vector<Ordinal>().swap(few);
}

void OrdinalSet::remove(Ordinal ordinal) {
    if (!mSeveral) {
        if (mSingle == ordinal) mSingle = kNone;
    } else if (mSeveral->many) {
        mSeveral->many->remove(ordinal);
    } else {
        std::erase(mSeveral->few, ordinal);
    }
}

std::size_t OrdinalSet::removeAll(const Bitmap& ordinals) {
    const std::size_t before = size();
    if (!mSeveral) {
        if (mSingle != kNone && ordinals.contains(mSingle)) mSingle = kNone;
    } else if (mSeveral->many) {
        *mSeveral->many -= ordinals;
    } else {
        std::erase_if(mSeveral->few, [&](Ordinal ordinal) { return ordinals.contains(ordinal); });
    }
    return before - size();
}

std::size_t OrdinalSet::size() const {
    if (!mSeveral) return mSingle == kNone ? 0 : 1;
    return mSeveral->many ? mSeveral->many->cardinality() : mSeveral->few.size();
}

bool OrdinalSet::contains(Ordinal ordinal) const {
    if (!mSeveral) return mSingle == ordinal;
    if (mSeveral->many) return mSeveral->many->contains(ordinal);
    return std::binary_search(mSeveral->few.begin(), mSeveral->few.end(), ordinal);
}

Bitmap OrdinalSet::toBitmap() const {
    if (mSeveral && mSeveral->many) return *mSeveral->many;
    Bitmap bitmap;
    forEach([&](Ordinal ordinal) { bitmap.add(ordinal); });
    return bitmap;
}

std::size_t OrdinalSet::countWithin(const Bitmap& other) const {
    if (mSeveral && mSeveral->many) return mSeveral->many->and_cardinality(other);
    std::size_t count = 0;
    forEach([&](Ordinal ordinal) { count += other.contains(ordinal) ? 1U : 0U; });
    return count;
}

} // namespace kestrel::index
