#include "query/Aggregations.h"

#include "base/ApiError.h"
#include "base/Work.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kestrel::index {

namespace {

constexpr std::size_t kDefaultBuckets = 10;
constexpr std::size_t kMaximumBuckets = 65'536;
constexpr int kMaximumDepth = 30;

ApiError tooManyBuckets(std::size_t wanted) {
    return {
        400,
        "too_many_buckets_exception",
        fmt::format(
            "Trying to create too many buckets. Must be less than or equal to: [{}] but was [{}]. This limit "
            "can be set by changing the [search.max_buckets] cluster level setting.",
            kMaximumBuckets, wanted),
        {{"max_buckets", kMaximumBuckets}}};
}

/// The values that each document holds: what KeywordData has, seen from the documents.
class ValuesOfDocuments {
public:
    ValuesOfDocuments(const KeywordData& data, Ordinal end) : mStarts(std::size_t{end} + 1) {
        takeMemory(mStarts.size() * sizeof(std::uint32_t));
        const auto forEachEntry = [&](auto&& visit) {
            Patience patience;
            for (std::uint32_t value = 0; value < data.values().size(); ++value)
                data.documents(value).forEach([&](Ordinal ordinal) {
                    patience.check();
                    visit(ordinal, value);
                });
        };
        forEachEntry([&](Ordinal ordinal, std::uint32_t) { ++mStarts[ordinal + 1]; });
        for (std::size_t i = 1; i < mStarts.size(); ++i)
            mStarts[i] += mStarts[i - 1];
        takeMemory(mStarts.back() * sizeof(std::uint32_t));
        mValues.resize(mStarts.back());
        std::vector<std::uint32_t> next(mStarts.begin(), mStarts.end() - 1);
        forEachEntry([&](Ordinal ordinal, std::uint32_t value) { mValues[next[ordinal]++] = value; });
    }

    template <typename Visit>
    void forEach(Ordinal ordinal, Visit&& visit) const {
        for (std::uint32_t i = mStarts[ordinal]; i < mStarts[ordinal + 1]; ++i)
            visit(mValues[i]);
    }

private:
    std::vector<std::uint32_t> mStarts; ///< by document, where its values begin
    std::vector<std::uint32_t> mValues;
};

class Aggregator {
public:
    explicit Aggregator(const IndexView& view) : mView(view) {}

    /// insideBucket: there are many such sets of documents, each of them small.
    Json all(const Json& aggregations, SpaceId space, const Bitmap& documents, int depth, bool insideBucket) {
        if (!aggregations.is_object()) throw parsingError("[aggs] must be an object");
        if (depth > kMaximumDepth) throw illegalArgument("aggregations are nested too deeply");
        Json result = Json::object();
        for (const auto& [name, body] : aggregations.items())
            result[name] = one(name, body, space, documents, depth, insideBucket);
        return result;
    }

private:
    /// A value with the number of documents that hold it.
    template <typename Value>
    struct Counted {
        Value value;
        std::uint64_t count;
    };
    template <typename Value>
    using Counts = std::vector<Counted<Value>>;

    Json one(const std::string& name, const Json& body, SpaceId space, const Bitmap& documents, int depth,
             bool insideBucket) {
        std::string kind;
        Json inner = Json::object();
        if (!body.is_object()) throw parsingError(fmt::format("aggregation [{}] must be an object", name));
        for (const auto& [key, value] : body.items()) {
            if (key == "aggs" || key == "aggregations")
                inner = value;
            else if (key != "terms" && key != "nested")
                throw parsingError(fmt::format("Unknown aggregation type [{}]", key));
            else if (!kind.empty())
                throw parsingError(fmt::format(
                    "Found two aggregation type definitions in [{}]: [{}] and [{}]", name, kind, key));
            else
                kind = key;
        }
        if (kind.empty()) throw parsingError(fmt::format("Missing definition for aggregation [{}]", name));
        const Json& options = body.at(kind);
        if (!options.is_object())
            throw parsingError(
                fmt::format("Expected [START_OBJECT] under [{}] of aggregation [{}]", kind, name));
        if (kind == "nested") return nested(options, inner, space, documents, depth, insideBucket);
        return terms(options, inner, space, documents, depth, insideBucket);
    }

    Json nested(const Json& options, const Json& inner, SpaceId space, const Bitmap& documents, int depth,
                bool insideBucket) {
        const Json path = options.value("path", Json());
        if (!path.is_string()) throw illegalArgument("[nested] aggregation requires a 'path'");
        const Field* field = mView.mapping().find(path.get_ref<const std::string&>());
        Bitmap children;
        SpaceId childSpace = space;
        if (field != nullptr && field->type == FieldType::Nested && space == 0) {
            childSpace = field->ownSpace;
            children =
                insideBucket ? childrenOfFew(documents, childSpace) : childrenOf(documents, childSpace);
        }
        Json result = {{"doc_count", children.cardinality()}};
        result.update(all(inner, childSpace, children, depth + 1, insideBucket));
        return result;
    }

    Bitmap childrenOf(const Bitmap& documents, SpaceId space) const {
        Bitmap children;
        Patience patience;
        for (const Ordinal child : mView.live(space)) {
            patience.check();
            if (documents.contains(mView.parent(space, child))) children.add(child);
        }
        return children;
    }

    /// The same for a few documents, without a look at every child that there is.
    Bitmap childrenOfFew(const Bitmap& documents, SpaceId space) const {
        Bitmap children;
        for (const Ordinal document : documents) {
            Ordinal first = 0;
            for (Ordinal end = mView.end(space); first < end;) { // parents ascend
                const Ordinal middle = first + (end - first) / 2;
                if (mView.parent(space, middle) < document)
                    first = middle + 1;
                else
                    end = middle;
            }
            for (; first < mView.end(space) && mView.parent(space, first) == document; ++first)
                children.add(first);
        }
        return children & mView.live(space);
    }

    Json terms(const Json& options, const Json& inner, SpaceId space, const Bitmap& documents, int depth,
               bool insideBucket) {
        std::string path;
        std::size_t size = kDefaultBuckets;
        for (const auto& [key, value] : options.items()) {
            if (key == "field" && value.is_string())
                path = value;
            else if (key == "size" && value.is_number_integer() && value.get<std::int64_t>() > 0)
                size = value.get<std::size_t>();
            else
                throw illegalArgument(
                    fmt::format("[terms] aggregation does not support [{}: {}]", key, value.dump()));
        }
        if (size > kMaximumBuckets) throw tooManyBuckets(size);

        const auto id = mView.mapping().idOf(path);
        if (!id || mView.mapping().at(*id).space != space)
            return buckets<std::uint32_t>({}, size, {}, {}, {});
        const Field& field = mView.mapping().at(*id);
        // Fields of types that cannot be counted are refused whether a document holds them now or not.
        if (mView.data(*id) == nullptr && field.type != FieldType::Text && field.type != FieldType::Vector)
            return buckets<std::uint32_t>({}, size, {}, {}, {});
        const auto innerOf = [&, this](const Bitmap& within) {
            return inner.empty() ? Json::object() : all(inner, space, within, depth + 1, true);
        };
        if (field.type == FieldType::Keyword || field.type == FieldType::Boolean) {
            const auto& data = *mView.data<KeywordData>(*id);
            return buckets<std::uint32_t>(
                insideBucket ? countByDocument(data, *id, documents) : countByValue(data, documents), size,
                [&](std::uint32_t a, std::uint32_t b) { return data.values().at(a) < data.values().at(b); },
                [&](std::uint32_t value) { return keywordKey(field, std::string(data.values().at(value))); },
                [&](std::uint32_t value) {
                    return inner.empty() ? Json::object()
                                         : innerOf(data.documents(value).toBitmap() & documents);
                });
        }
        if (field.type == FieldType::Integer || field.type == FieldType::Floating) {
            const std::map<SortableNumber, Bitmap> byValue =
                documentsByNumber(*mView.data<NumberData>(*id), field, documents);
            Counts<SortableNumber> counts;
            for (const auto& [value, held] : byValue)
                counts.push_back({value, held.cardinality()});
            return buckets<SortableNumber>(
                std::move(counts), size, std::less<>(),
                [&](SortableNumber value) {
                    return Json{
                        {"key", field.type == FieldType::Integer ? Json(value) : Json(fromSortable(value))}};
                },
                [&](SortableNumber value) { return innerOf(byValue.at(value)); });
        }
        if (field.type == FieldType::Text)
            throw illegalArgument(
                fmt::format("Fielddata is disabled on [{0}] in [{1}]. Text fields are not optimised "
                            "for operations that require per-document field data like aggregations "
                            "and sorting, so these operations are disabled by default. Please use a "
                            "keyword field instead.",
                            path, mView.index().name()));
        throw illegalArgument(fmt::format("Field [{}] of type [{}] is not supported for aggregation [terms]",
                                          path, field.typeName));
    }

    /// The answer of a terms aggregation: the most frequent values first, equal ones in the order of the
    /// values.
    template <typename Value>
    Json buckets(Counts<Value> counts, std::size_t size, const std::function<bool(Value, Value)>& before,
                 const std::function<Json(Value)>& keyOf, const std::function<Json(Value)>& innerOf) {
        const auto shown = static_cast<std::ptrdiff_t>(std::min(size, counts.size()));
        std::partial_sort(counts.begin(), counts.begin() + shown, counts.end(),
                          [&](const auto& a, const auto& b) {
                              return a.count != b.count ? a.count > b.count : before(a.value, b.value);
                          });
        mBuckets += static_cast<std::size_t>(shown);
        if (mBuckets > kMaximumBuckets) throw tooManyBuckets(mBuckets);
        Json entries = Json::array();
        for (auto counted = counts.begin(); counted != counts.begin() + shown; ++counted) {
            checkStillWanted();
            Json entry = keyOf(counted->value);
            entry["doc_count"] = counted->count;
            entry.update(innerOf(counted->value));
            entries.push_back(std::move(entry));
        }
        std::uint64_t others = 0;
        for (auto counted = counts.begin() + shown; counted != counts.end(); ++counted)
            others += counted->count;
        return {{"doc_count_error_upper_bound", 0},
                {"sum_other_doc_count", others},
                {"buckets", std::move(entries)}};
    }

    static Json keywordKey(const Field& field, const std::string& text) {
        if (field.type == FieldType::Boolean)
            return {{"key", text == "true" ? 1 : 0}, {"key_as_string", text}};
        return {{"key", text}};
    }

    static Counts<std::uint32_t> countByValue(const KeywordData& data, const Bitmap& documents) {
        Counts<std::uint32_t> counts;
        Patience patience;
        for (std::uint32_t value = 0; value < data.values().size(); ++value) {
            patience.check();
            if (const std::uint64_t count = data.documents(value).countWithin(documents))
                counts.push_back({value, count});
        }
        return counts;
    }

    /// The same for a few documents, without a look at every value that there is.
    Counts<std::uint32_t> countByDocument(const KeywordData& data, FieldId field, const Bitmap& documents) {
        const SpaceId space = mView.mapping().at(field).space;
        const ValuesOfDocuments& held = mHeld.try_emplace(field, data, mView.end(space)).first->second;
        std::vector<std::uint32_t> values;
        for (const Ordinal ordinal : documents)
            held.forEach(ordinal, [&](std::uint32_t value) { values.push_back(value); });
        std::sort(values.begin(), values.end());
        Counts<std::uint32_t> counts;
        for (const std::uint32_t value : values) {
            if (counts.empty() || counts.back().value != value) counts.push_back({value, 0});
            ++counts.back().count;
        }
        return counts;
    }

    static std::map<SortableNumber, Bitmap> documentsByNumber(const NumberData& data, const Field& field,
                                                              const Bitmap& documents) {
        const Bitmap held = documents & data.present();
        if (held.and_cardinality(data.several()) > 0)
            throw illegalArgument(
                fmt::format("[terms] aggregation on [{}]: documents hold several numbers", field.path));
        std::map<SortableNumber, Bitmap> byValue;
        Patience patience;
        for (const Ordinal ordinal : held) {
            patience.check();
            byValue[data.single(ordinal)].add(ordinal);
        }
        return byValue;
    }

    const IndexView& mView;
    std::size_t mBuckets = 0;
    std::map<FieldId, ValuesOfDocuments> mHeld; ///< of fields that are counted inside buckets
};

} // namespace

Json aggregate(const IndexView& view, const Json& aggregations, const Bitmap& documents) {
    return Aggregator(view).all(aggregations, 0, documents, 0, false);
}

} // namespace kestrel::index
