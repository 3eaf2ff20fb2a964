#include "base/Json.h"

#include "base/ApiError.h"
#include "base/Work.h"

#include <fmt/format.h>
#include <simdjson.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

namespace kestrel::index {

namespace {

constexpr std::size_t kMaximumDepth = 500;
constexpr std::size_t kMaximumKeys = 10'000;
constexpr std::size_t kMaximumValues = 1'000'000;
constexpr std::size_t kManyValues = 10'000; // from here on their memory is charged
constexpr std::size_t kBytesPerValue = 64;
constexpr std::size_t kShortText = 16UL * 1024;
constexpr std::uint64_t kWideInteger = 1; // subtype of the binary values that hold digits
constexpr std::size_t kSearchedKeys = 24; // objects with more keys find them through a table

/// Checks the limits by looking at brackets and commas only, so that a hostile body costs no more than one
/// pass.
void checkStructure(std::string_view text) {
    struct Level {
        bool object;
        std::size_t commas;
    };
    std::vector<Level> levels;
    std::size_t values = 0;
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
            ++values;
        } else if (c == '}' || c == ']') {
            if (!levels.empty()) levels.pop_back();
        } else if (c == ',') {
            ++values;
            if (!levels.empty() && levels.back().object && ++levels.back().commas >= kMaximumKeys)
                throw ApiError(400, "x_content_parse_exception",
                               fmt::format("a JSON object has more than [{}] keys", kMaximumKeys));
        }
    }
    // A parsed value takes far more memory than its two or three bytes of text.
    if (values > kMaximumValues)
        throw ApiError(400, "x_content_parse_exception",
                       fmt::format("JSON holds more than [{}] values", kMaximumValues));
    if (values > kManyValues) takeMemory(values * kBytesPerValue);
}

/// Builds a value from the parser's events. The library's own builder compares each new key of an object with
/// all earlier ones; this one keeps a table for large objects. Of duplicate keys the last one counts.
class Builder final : public nlohmann::json_sax<Json> {
public:
    explicit Builder(bool keepWideIntegers) : mKeepWideIntegers(keepWideIntegers) {}

    Json take() { return std::move(mRoot); }

    bool null() override { return value(nullptr); }
    bool boolean(bool given) override { return value(given); }
    bool number_integer(number_integer_t given) override { return value(given); }
    bool number_unsigned(number_unsigned_t given) override { return value(given); }
    bool number_float(number_float_t given, const string_t& text) override {
        const bool whole = text.find_first_of(".eE") == std::string::npos;
        if (whole && mKeepWideIntegers) return value(Json::binary({text.begin(), text.end()}, kWideInteger));
        return value(given);
    }
    bool string(string_t& given) override { return value(std::move(given)); }
    bool binary(binary_t&) override { return false; }

    bool start_object(std::size_t) override { return open(Json::object()); }
    bool end_object() override { return close(); }
    bool start_array(std::size_t) override { return open(Json::array()); }
    bool end_array() override { return close(); }
    bool key(string_t& name) override {
        mLevels.back().next = &member(mLevels.back(), name);
        return true;
    }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& e) override {
        // Throwing the reference itself would slice the exception.
        if (const auto* parse = dynamic_cast<const Json::parse_error*>(&e)) throw *parse;
        if (const auto* range = dynamic_cast<const Json::out_of_range*>(&e)) throw *range;
        throw std::invalid_argument(e.what());
    }

private:
    using Members = Json::object_t::Container;
    struct Level {
        Json::array_t* elements; ///< of an array
        Members* members;        ///< of an object
        Json* next = nullptr;    ///< object: where the value of the last key goes
        std::unique_ptr<std::unordered_map<std::string, std::size_t>> places = nullptr;
    };

    static Json& member(Level& level, std::string& name) {
        Members& members = *level.members;
        if (members.size() < kSearchedKeys) {
            const auto known = std::find_if(members.begin(), members.end(),
                                            [&](const auto& entry) { return entry.first == name; });
            if (known != members.end()) return known->second;
        } else {
            if (!level.places) {
                level.places = std::make_unique<std::unordered_map<std::string, std::size_t>>();
                for (std::size_t i = 0; i < members.size(); ++i)
                    level.places->emplace(members[i].first, i);
            }
            const auto [place, added] = level.places->emplace(name, members.size());
            if (!added) return members[place->second].second;
        }
        members.emplace_back(std::move(name), nullptr);
        return members.back().second;
    }

    Json& place(Json&& given) {
        if (mLevels.empty()) return mRoot = std::move(given);
        Level& level = mLevels.back();
        if (level.next != nullptr) return *level.next = std::move(given);
        return level.elements->emplace_back(std::move(given));
    }
    bool value(Json&& given) {
        place(std::move(given));
        return true;
    }
    bool open(Json&& container) {
        Json& placed = place(std::move(container));
        if (placed.is_object())
            mLevels.push_back({nullptr, &placed.get_ref<Json::object_t&>()});
        else
            mLevels.push_back({&placed.get_ref<Json::array_t&>(), nullptr});
        return true;
    }
    bool close() {
        mLevels.pop_back();
        return true;
    }

    bool mKeepWideIntegers;
    Json mRoot;
    std::vector<Level> mLevels;
};

/// Passes a parsed value to the builder.
void pass(simdjson::dom::element value, Builder& builder) {
    using Type = simdjson::dom::element_type;
    std::string text;
    switch (value.type()) {
    case Type::OBJECT:
        builder.start_object(0);
        for (const auto [key, inner] : simdjson::dom::object(value)) {
            text = key;
            builder.key(text);
            pass(inner, builder);
        }
        builder.end_object();
        break;
    case Type::ARRAY:
        builder.start_array(0);
        for (const simdjson::dom::element inner : simdjson::dom::array(value))
            pass(inner, builder);
        builder.end_array();
        break;
    case Type::STRING:
        text = std::string_view(value);
        builder.string(text);
        break;
    case Type::INT64: {
        const std::int64_t number = value;
        if (number < 0)
            builder.number_integer(number);
        else
            builder.number_unsigned(static_cast<std::uint64_t>(number));
        break;
    }
    case Type::UINT64:
        builder.number_unsigned(value);
        break;
    case Type::DOUBLE:
        builder.number_float(value, "."); // no whole number: those beyond 64 bits never come here
        break;
    case Type::BOOL:
        builder.boolean(value);
        break;
    case Type::NULL_VALUE:
        builder.null();
        break;
    }
}

/// Most texts are short and have nothing special about them: for those simdjson needs a fraction of the time.
/// Whatever it refuses, integers beyond 64 bits included, is left to the other parser and its messages.
std::optional<Json> buildShort(std::string_view text) {
    // So short a text cannot exceed any limit but that of the depth.
    static_assert(kShortText / 2 < std::min(kMaximumKeys, kManyValues));
    if (text.size() > kShortText) return std::nullopt;
    thread_local simdjson::dom::parser parser(kShortText);
    if (parser.max_depth() != kMaximumDepth &&
        parser.allocate(kShortText, kMaximumDepth) != simdjson::SUCCESS)
        return std::nullopt;
    simdjson::dom::element root;
    if (parser.parse(text.data(), text.size()).get(root) != simdjson::SUCCESS) return std::nullopt;
    Builder builder(true);
    pass(root, builder);
    return builder.take();
}

Json build(std::string_view text, bool keepWideIntegers) {
    Builder builder(keepWideIntegers);
    Json::sax_parse(text, &builder);
    return builder.take();
}

Json buildChecked(std::string_view text, bool keepWideIntegers) {
    // A parser may accept both, but the document is stored as it was sent.
    if (text.starts_with("\xEF\xBB\xBF") || text.find('\0') != std::string_view::npos)
        throw ApiError(400, "x_content_parse_exception", "a byte order mark or a NUL is no part of JSON");
    if (auto built = buildShort(text)) return std::move(*built);
    checkStructure(text);
    try {
        return build(text, keepWideIntegers);
    } catch (const Json::exception& e) {
        throw ApiError(400, "x_content_parse_exception", e.what());
    }
}

bool holdsWideInteger(const Json& value) {
    if (value.is_structured())
        return std::any_of(value.begin(), value.end(),
                           [](const Json& inner) { return holdsWideInteger(inner); });
    return isWideInteger(value);
}

void write(const Json& value, std::string& text) {
    if (isWideInteger(value)) {
        text += wideDigits(value);
    } else if (value.is_object()) {
        text += '{';
        for (const auto& [key, inner] : value.items()) {
            if (text.back() != '{') text += ',';
            text += jsonString(key);
            text += ':';
            write(inner, text);
        }
        text += '}';
    } else if (value.is_array()) {
        text += '[';
        for (const Json& inner : value) {
            if (text.back() != '[') text += ',';
            write(inner, text);
        }
        text += ']';
    } else {
        text += value.dump();
    }
}

} // namespace

Json parseJson(std::string_view text) {
    return buildChecked(text, false);
}

Json parseDocument(std::string_view text) {
    return buildChecked(text, true);
}

Json parseStored(std::string_view text) {
    auto built = buildShort(text);
    return built ? std::move(*built) : build(text, true);
}

std::string valueText(const Json& value) {
    if (!holdsWideInteger(value)) return value.dump(-1, ' ', false, Json::error_handler_t::replace);
    std::string text;
    write(value, text);
    return text;
}

std::string documentText(const Json& document) {
    std::string text = valueText(document);
    checkStructure(text);
    return text;
}

bool isWideInteger(const Json& value) {
    return value.is_binary();
}

std::string_view wideDigits(const Json& value) {
    const auto& bytes = value.get_binary();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string jsonString(std::string_view text) {
    return Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace kestrel::index
