#pragma once

#include "engine/Mapping.h"

#include <cstdint>
#include <vector>

namespace kestrel::index {

/// Numbers and booleans mapped to integers that sort as they do.
using SortableNumber = std::int64_t;
using NumberContent = std::vector<SortableNumber>;

SortableNumber sortable(double value);
double fromSortable(SortableNumber value);

/// A JSON value read as a number of a field.
struct NumberReading {
    enum class Kind {
        Exact,
        Cut, ///< an integer field keeps the integer part
        OutOfRange,
        NotANumber,
    };
    Kind kind = Kind::Exact;
    SortableNumber value = 0; ///< set for exact and cut

    bool usable() const { return kind == Kind::Exact || kind == Kind::Cut; }
};

/// Reads a number, or a text that is one. Used for documents, queries and sorting alike.
NumberReading readNumber(const Field& field, const Json& value);

/// All numbers at the field's path in a document, in nested arrays and objects too.
NumberContent numbersAt(const Json& document, const Field& field);

} // namespace kestrel::index
