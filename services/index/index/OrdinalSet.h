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

/// The documents that hold one value. Most values are held by a single document, which costs no memory of its
/// own; a few are kept in a sorted vector, many in a compressed bitmap.
class OrdinalSet {
public:
    void add(Ordinal ordinal);
    void remove(Ordinal ordinal);
    std::size_t size() const;
    bool contains(Ordinal ordinal) const;
    Bitmap toBitmap() const;
    std::size_t countWithin(const Bitmap& other) const;

    template <typename Visit>
    void forEach(Visit&& visit) const {
        if (!several_) {
            if (single_ != none) visit(single_);
        } else if (several_->many) {
            for (const Ordinal ordinal : *several_->many)
                visit(ordinal);
        } else {
            for (const Ordinal ordinal : several_->few)
                visit(ordinal);
        }
    }

private:
    static constexpr Ordinal none = UINT32_MAX;
    static constexpr std::size_t fewLimit = 32;

    struct Several {
        std::vector<Ordinal> few;
        std::unique_ptr<Bitmap> many; ///< set: few is empty
    };

    Ordinal single_ = none;
    std::unique_ptr<Several> several_;
};

} // namespace kestrel
