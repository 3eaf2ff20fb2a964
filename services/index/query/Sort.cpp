#include "query/Sort.h"

#include "base/ApiError.h"
#include "base/Work.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace kestrel::index {

namespace {

constexpr std::int64_t kMissing = std::numeric_limits<std::int64_t>::max();

SortSpec parseOne(const Json& sort) {
    if (sort.is_string()) {
        const std::string field = sort;
        return {field, field == "_score", field != "_score", false};
    }
    if (!sort.is_object() || sort.size() != 1)
        throw parsingError("[sort] malformed: an object with one field is needed for each level");
    SortSpec spec{sort.begin().key()};
    spec.descending = spec.field == "_score";
    Json options = sort.begin().value();
    if (options.is_string()) options = Json{{"order", options}};
    if (!options.is_object()) throw parsingError(fmt::format("[sort] on [{}] malformed", spec.field));
    std::string mode;
    for (const auto& [key, value] : options.items()) {
        if (key == "order" && (value == "asc" || value == "desc"))
            spec.descending = value == "desc";
        else if (key == "mode" && (value == "min" || value == "max"))
            mode = value;
        else if (key == "unmapped_type")
            spec.unmappedIsFine = true;
        else if (key != "missing" || value != "_last")
            throw illegalArgument(
                fmt::format("[sort] on [{}] does not support [{}: {}]", spec.field, key, value.dump()));
    }
    spec.smallest = mode.empty() ? !spec.descending : mode == "min";
    return spec;
}

} // namespace

std::vector<SortSpec> parseSort(const Json& sort) {
    std::vector<SortSpec> specs;
    if (!sort.is_array()) return {parseOne(sort)};
    for (const Json& one : sort)
        specs.push_back(parseOne(one));
    return specs;
}

std::optional<SortColumn> SortColumn::make(const IndexView& view, DocumentStore& store, const SortSpec& spec,
                                           const std::vector<Ordinal>& documents,
                                           const std::vector<float>& scores) {
    SortColumn column;
    column.mDescending = spec.descending;
    takeMemory(documents.size() * sizeof(std::int64_t));
    column.mKeys.assign(documents.size(), kMissing);
    if (spec.field == "_score" || spec.field == "_doc") {
        const bool score = spec.field == "_score";
        column.mKind = score ? Kind::Floating : Kind::Document;
        for (std::size_t i = 0; i < documents.size(); ++i)
            column.mKeys[i] = column.directed(score ? sortable(static_cast<double>(scores[i]))
                                                    : static_cast<std::int64_t>(documents[i]));
        return column;
    }
    if (spec.field == "_id")
        throw illegalArgument(
            "Fielddata access on the _id field is disallowed, you can re-enable it by updating the "
            "dynamic cluster setting: indices.id_field_data.enabled");
    const auto id = view.mapping().idOf(spec.field);
    if (!id || view.mapping().at(*id).space != 0) {
        if (spec.unmappedIsFine) return column;
        return std::nullopt;
    }
    const Field& field = view.mapping().at(*id);
    switch (field.type) {
    case FieldType::Integer:
    case FieldType::Floating:
        column.mKind = field.type == FieldType::Integer ? Kind::Integer : Kind::Floating;
        column.fillNumbers(view, store, *id, spec, documents);
        return column;
    case FieldType::Keyword:
    case FieldType::Boolean:
        column.mKind = Kind::Text;
        if (view.data(*id) != nullptr) column.fillKeywords(*view.data<KeywordData>(*id), spec, documents);
        return column;
    case FieldType::Text:
        throw illegalArgument(
            fmt::format("Fielddata is disabled on [{0}] in [{1}]. Text fields are not optimised for "
                        "operations that require per-document field data like aggregations and "
                        "sorting, so these operations are disabled by default. Please use a keyword "
                        "field instead. Alternatively, set fielddata=true on [{0}] in order to load "
                        "field data by uninverting the inverted index. Note that this can use "
                        "significant memory.",
                        spec.field, view.index().name()));
    default:
        throw illegalArgument(
            fmt::format("can't sort on field [{}] of type [{}]", spec.field, field.typeName));
    }
}

void SortColumn::fillNumbers(const IndexView& view, DocumentStore& store, FieldId field, const SortSpec& spec,
                             const std::vector<Ordinal>& documents) {
    const auto* data = view.data<NumberData>(field);
    if (data == nullptr) return;
    const NumberReader several = numberReader(view, store);
    Patience patience;
    for (std::size_t i = 0; i < documents.size(); ++i) {
        patience.check();
        if (!data->present().contains(documents[i])) continue;
        if (!data->several().contains(documents[i])) {
            mKeys[i] = directed(data->single(documents[i]));
            continue;
        }
        const NumberContent values = several(documents[i], field);
        const auto [low, high] = std::minmax_element(values.begin(), values.end());
        if (!values.empty()) mKeys[i] = directed(spec.smallest ? *low : *high);
    }
}

void SortColumn::fillKeywords(const KeywordData& data, const SortSpec& spec,
                              const std::vector<Ordinal>& documents) {
    const Bitmap wanted(documents.size(), documents.data());
    struct Held {
        std::uint32_t value;
        std::size_t position;
    };
    std::vector<Held> held;
    std::vector<std::uint32_t> values;
    Patience patience;
    for (std::uint32_t value = 0; value < data.values().size(); ++value) {
        patience.check();
        const std::size_t before = held.size();
        data.documents(value).forEach([&](Ordinal ordinal) {
            if (!wanted.contains(ordinal)) return;
            const auto place = std::lower_bound(documents.begin(), documents.end(), ordinal);
            held.push_back({value, static_cast<std::size_t>(place - documents.begin())});
        });
        if (held.size() > before) values.push_back(value);
    }
    std::sort(values.begin(), values.end(),
              [&](std::uint32_t a, std::uint32_t b) { return data.values().at(a) < data.values().at(b); });
    std::vector<std::int64_t> ranks(data.values().size());
    for (std::size_t rank = 0; rank < values.size(); ++rank) {
        ranks[values[rank]] = static_cast<std::int64_t>(rank);
        mTexts.emplace_back(data.values().at(values[rank]));
    }
    for (const Held& entry : held) {
        std::int64_t& key = mKeys[entry.position];
        const std::int64_t candidate = directed(ranks[entry.value]);
        const bool wantsSmallerKey = spec.smallest != mDescending;
        if (key == kMissing || (wantsSmallerKey ? candidate < key : candidate > key)) key = candidate;
    }
}

Json SortColumn::shown(std::int64_t key) const {
    if (key == kMissing) {
        if (mKind == Kind::Text) return nullptr;
        if (mKind == Kind::Floating) return mDescending ? "-Infinity" : "Infinity";
        return mDescending ? std::numeric_limits<std::int64_t>::min() : kMissing;
    }
    const std::int64_t value = directed(key);
    if (mKind == Kind::Text) return mTexts[static_cast<std::size_t>(value)];
    if (mKind == Kind::Floating) return fromSortable(value);
    return value;
}

std::size_t SortColumn::bytes() const {
    std::size_t bytes = mKeys.capacity() * sizeof(std::int64_t);
    for (const std::string& text : mTexts)
        bytes += text.capacity() + sizeof(std::string);
    return bytes;
}

} // namespace kestrel::index
