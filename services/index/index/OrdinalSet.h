#pragma once

#include <roaring/roaring.hh>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kestrel {

using Ordinal = std::uint32_t;
using Bitmap = Roaring;

/// The documents that hold one value. Most values are held by few documents: those stay in a sorted vector,
/// larger sets in a compressed bitmap.
class OrdinalSet {
public:
    void add(Ordinal ordinal);
    void remove(Ordinal ordinal);
    std::size_t size() const { return bitmap_ ? bitmap_->cardinality() : few_.size(); }
    bool contains(Ordinal ordinal) const;
    Bitmap toBitmap() const;
    std::size_t countWithin(const Bitmap& other) const;

    template <typename Visit>
    void forEach(Visit&& visit) const {
        if (bitmap_)
            for (const Ordinal ordinal : *bitmap_)
                visit(ordinal);
        else
            for (const Ordinal ordinal : few_)
                visit(ordinal);
    }

private:
    static constexpr std::size_t fewLimit = 32;

    std::vector<Ordinal> few_;
    std::unique_ptr<Bitmap> bitmap_;
};

} // namespace kestrel
