#pragma once

#include "engine/Mapping.h"

#include <cstdint>
#include <vector>

namespace kestrel::index {

/// Numbers and booleans in a form whose integer order is their own order.
using SortableNumber = std::int64_t;
using NumberContent = std::vector<SortableNumber>;

SortableNumber sortable(double value);
double fromSortable(SortableNumber value);

/// What a JSON value is as a number of a field.
struct NumberReading {
    enum class Kind {
        Exact,
        Cut, ///< an integer field keeps the whole part
        OutOfRange,
        NotANumber,
    };
    Kind kind = Kind::Exact;
    SortableNumber value = 0; ///< exact and cut

    bool usable() const { return kind == Kind::Exact || kind == Kind::Cut; }
};

/// Reads a number or a text that is one. Documents, queries and sorting all read numbers here.
NumberReading readNumber(const Field& field, const Json& value);

/// The numbers at the field's path of a document, whatever arrays and objects they lie in.
NumberContent numbersAt(const Json& document, const Field& field);

} // namespace kestrel::index
