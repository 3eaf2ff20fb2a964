#include "base/Json.h"

#include "base/ApiError.h"

#include <fmt/format.h>

#include <vector>

namespace kestrel::index {

namespace {

constexpr std::size_t kMaximumDepth = 500;
constexpr std::size_t kMaximumKeys = 10'000;

/// Looks over the brackets of the text, without understanding more of it, so that a hostile body costs one
/// pass.
void checkStructure(std::string_view text) {
    struct Level {
        bool object;
        std::size_t commas;
    };
    std::vector<Level> levels;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\')
                ++i;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '{' || c == '[') {
            if (levels.size() == kMaximumDepth)
                throw ApiError(400, "x_content_parse_exception",
                               fmt::format("JSON is nested more than [{}] levels deep", kMaximumDepth));
            levels.push_back({c == '{', 0});
        } else if (c == '}' || c == ']') {
            if (!levels.empty()) levels.pop_back();
        } else if (c == ',' && !levels.empty() && levels.back().object &&
                   ++levels.back().commas >= kMaximumKeys) {
            throw ApiError(400, "x_content_parse_exception",
                           fmt::format("a JSON object has more than [{}] keys", kMaximumKeys));
        }
    }
}

} // namespace

Json parseJson(std::string_view text) {
    // The parser would skip the one and stop at the other, but they would be stored with the document.
    if (text.starts_with("\xEF\xBB\xBF") || text.find('\0') != std::string_view::npos)
        throw ApiError(400, "x_content_parse_exception", "a byte order mark or a NUL is no part of JSON");
    checkStructure(text);
    try {
        return Json::parse(text);
    } catch (const Json::exception& e) {
        throw ApiError(400, "x_content_parse_exception", e.what());
    }
}

std::string jsonString(std::string_view text) {
    return Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace kestrel::index
