#pragma once

#include "engine/Numbers.h"

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace kestrel::index {

struct TermCount {
    std::string term;
    std::uint32_t count;
};

struct TextContent {
    std::vector<TermCount> terms;
    std::uint32_t length = 0;
};
using KeywordContent = std::vector<std::string>; ///< distinct values
using VectorContent = std::vector<float>;

struct PreparedField {
    FieldId field;
    std::variant<TextContent, KeywordContent, NumberContent, VectorContent> content;
};

/// What the index keeps of a document.
struct PreparedDocument {
    struct Child {
        SpaceId space;
        std::vector<PreparedField> fields;
    };
    std::vector<PreparedField> fields;
    std::vector<Child> children; ///< one for each nested object
};

} // namespace kestrel::index
