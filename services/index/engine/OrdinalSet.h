#pragma once

#include <roaring/roaring.hh>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kestrel::index {

using Ordinal = std::uint32_t;
using Bitmap = Roaring;

/// The documents that hold one value. Most values are held by a single document, which costs no memory of its
/// own; a few are kept in a sorted vector, many in a compressed bitmap.
class OrdinalSet {
public:
    void add(Ordinal ordinal);
    void remove(Ordinal ordinal);
    /// Returns how many of them were in the set.
    std::size_t removeAll(const Bitmap& ordinals);
    std::size_t size() const;
    bool contains(Ordinal ordinal) const;
    Bitmap toBitmap() const;
    std::size_t countWithin(const Bitmap& other) const;

    /// The element of a set that never had more than one.
    Ordinal single() const { return mSeveral ? kNone : mSingle; }
    bool hasSeveral() const { return mSeveral != nullptr; }
    static constexpr Ordinal kNone = UINT32_MAX;

    template <typename Visit>
    void forEach(Visit&& visit) const {
        if (!mSeveral) {
            if (mSingle != kNone) visit(mSingle);
        } else if (mSeveral->many) {
            for (const Ordinal ordinal : *mSeveral->many)
                visit(ordinal);
        } else {
            for (const Ordinal ordinal : mSeveral->few)
                visit(ordinal);
        }
    }

private:
    static constexpr std::size_t kFewLimit = 32;

    struct Several {
        std::vector<Ordinal> few;
        std::unique_ptr<Bitmap> many; ///< set: few is empty
    };

    Ordinal mSingle = kNone;
    std::unique_ptr<Several> mSeveral;
};

} // namespace kestrel::index
