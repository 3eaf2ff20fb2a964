#include "engine/Numbers.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

namespace kestrel::index {

namespace {

using Kind = NumberReading::Kind;

struct IntegerRange {
    std::string_view type;
    std::int64_t low, high;
};

constexpr IntegerRange kIntegerRanges[] = {
    {"byte", -128, 127},
    {"short", -32768, 32767},
    {"integer", std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()},
};
constexpr double kLongEnd = 9223372036854775808.0;
constexpr double kHalfFloatEnd = 65520.0;

NumberReading inRange(const Field& field, std::int64_t number, Kind kind) {
    for (const IntegerRange& range : kIntegerRanges)
        if (range.type == field.typeName && (number < range.low || number > range.high))
            return {Kind::OutOfRange};
    return {kind, number};
}

NumberReading wholePart(const Field& field, double number) {
    if (!std::isfinite(number)) return {Kind::NotANumber};
    if (number < -kLongEnd || number >= kLongEnd) return {Kind::OutOfRange};
    return inRange(field, static_cast<std::int64_t>(number),
                   number == std::floor(number) ? Kind::Exact : Kind::Cut);
}

NumberReading decimal(const Field& field, double number) {
    if (!std::isfinite(number)) return {Kind::NotANumber};
    if (field.typeName == "double") return {Kind::Exact, sortable(number)};
    const bool half = field.typeName == "half_float";
    if (half && std::abs(number) >= kHalfFloatEnd) return {Kind::OutOfRange};
    const auto single = static_cast<float>(number);
    if (!std::isfinite(single)) return {Kind::OutOfRange};
    return {Kind::Exact, sortable(static_cast<double>(single))};
}

template <typename Number>
std::errc parse(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end != text.data() + text.size() ? std::errc::invalid_argument : error;
}

NumberReading fromText(const Field& field, std::string_view text) {
    if (field.type == FieldType::Integer) {
        std::int64_t number = 0;
        const std::errc error = parse(text, number);
        if (error == std::errc()) return inRange(field, number, Kind::Exact);
        if (error == std::errc::result_out_of_range) return {Kind::OutOfRange};
    }
    double number = 0;
    const std::errc error = parse(text, number);
    if (error == std::errc::result_out_of_range) return {Kind::OutOfRange};
    if (error != std::errc()) return {Kind::NotANumber};
    return field.type == FieldType::Integer ? wholePart(field, number) : decimal(field, number);
}

void collect(const Json& value, std::string_view path, const Field& field, NumberContent& numbers) {
    if (value.is_array()) {
        for (const Json& element : value)
            collect(element, path, field, numbers);
    } else if (value.is_object()) {
        for (const auto& [key, inner] : value.items()) {
            if (path == key)
                collect(inner, {}, field, numbers);
            else if (path.size() > key.size() && path.starts_with(key) && path[key.size()] == '.')
                collect(inner, path.substr(key.size() + 1), field, numbers);
        }
    } else if (path.empty()) {
        const NumberReading number = readNumber(field, value);
        if (number.usable()) numbers.push_back(number.value);
    }
}

} // namespace

SortableNumber sortable(double value) {
    const auto bits = std::bit_cast<std::int64_t>(value == 0 ? 0.0 : value);
    return bits ^ ((bits >> 63) & std::numeric_limits<std::int64_t>::max());
}

double fromSortable(SortableNumber value) {
    return std::bit_cast<double>(value ^ ((value >> 63) & std::numeric_limits<std::int64_t>::max()));
}

NumberReading readNumber(const Field& field, const Json& value) {
    if (isWideInteger(value)) return fromText(field, wideDigits(value));
    if (value.is_string()) return fromText(field, value.get_ref<const std::string&>());
    if (!value.is_number()) return {Kind::NotANumber};
    if (field.type != FieldType::Integer) return decimal(field, value.get<double>());
    if (value.is_number_unsigned() && value.get<std::uint64_t>() > std::uint64_t{INT64_MAX})
        return {Kind::OutOfRange};
    if (value.is_number_integer()) return inRange(field, value.get<std::int64_t>(), Kind::Exact);
    return wholePart(field, value.get<double>());
}

NumberContent numbersAt(const Json& document, const Field& field) {
    NumberContent numbers;
    collect(document, field.path, field, numbers);
    return numbers;
}

} // namespace kestrel::index
