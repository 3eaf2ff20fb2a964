#include "query/Aggregations.h"

#include "base/ApiError.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

namespace kestrel::index {

namespace {

constexpr std::size_t kDefaultBuckets = 10;
constexpr std::size_t kMaximumBuckets = 65'536;
constexpr int kMaximumDepth = 30;

struct Bucket {
    Json key;
    Bitmap documents;
    std::uint64_t count;
};

class Aggregator {
public:
    explicit Aggregator(const IndexView& view) : mView(view) {}

    Json all(const Json& aggregations, SpaceId space, const Bitmap& documents, int depth) const {
        if (!aggregations.is_object()) throw parsingError("[aggs] must be an object");
        if (depth > kMaximumDepth) throw illegalArgument("aggregations are nested too deeply");
        Json result = Json::object();
        for (const auto& [name, body] : aggregations.items())
            result[name] = one(name, body, space, documents, depth);
        return result;
    }

private:
    Json one(const std::string& name, const Json& body, SpaceId space, const Bitmap& documents,
             int depth) const {
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
        if (kind == "nested") return nested(body.at("nested"), inner, space, documents, depth);
        return terms(body.at("terms"), inner, space, documents, depth);
    }

    Json nested(const Json& options, const Json& inner, SpaceId space, const Bitmap& documents,
                int depth) const {
        const std::string path = options.value("path", std::string());
        const Field* field = mView.mapping().find(path);
        Bitmap children;
        SpaceId childSpace = space;
        if (field != nullptr && field->type == FieldType::nested && space == 0) {
            childSpace = field->ownSpace;
            for (const Ordinal child : mView.live(childSpace))
                if (documents.contains(mView.parent(childSpace, child))) children.add(child);
        }
        Json result = {{"doc_count", children.cardinality()}};
        result.update(all(inner, childSpace, children, depth + 1));
        return result;
    }

    Json terms(const Json& options, const Json& inner, SpaceId space, const Bitmap& documents,
               int depth) const {
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
        if (size > kMaximumBuckets)
            throw illegalArgument(
                fmt::format("Trying to create too many buckets. Must be less than or equal to: [{}] "
                            "but was [{}].",
                            kMaximumBuckets, size));
        std::vector<Bucket> buckets = bucketsOf(path, space, documents, !inner.empty());
        // Buckets come in the order of their keys; equal counts keep it.
        std::stable_sort(buckets.begin(), buckets.end(),
                         [](const Bucket& a, const Bucket& b) { return a.count > b.count; });
        std::uint64_t others = 0;
        Json shown = Json::array();
        for (Bucket& bucket : buckets) {
            if (shown.size() == size) {
                others += bucket.count;
                continue;
            }
            Json entry = std::move(bucket.key);
            entry["doc_count"] = bucket.count;
            entry.update(all(inner, space, bucket.documents, depth + 1));
            shown.push_back(std::move(entry));
        }
        return {{"doc_count_error_upper_bound", 0},
                {"sum_other_doc_count", others},
                {"buckets", std::move(shown)}};
    }

    std::vector<Bucket> bucketsOf(const std::string& path, SpaceId space, const Bitmap& documents,
                                  bool keep) const {
        const auto id = mView.mapping().idOf(path);
        if (!id || mView.mapping().at(*id).space != space || mView.data(*id) == nullptr) return {};
        const Field& field = mView.mapping().at(*id);
        if (field.type == FieldType::keyword || field.type == FieldType::boolean)
            return keywordBuckets(*mView.data<KeywordData>(*id), field, documents, keep);
        if (field.type == FieldType::integer || field.type == FieldType::floating)
            return numberBuckets(*mView.data<NumberData>(*id), field, documents);
        if (field.type == FieldType::text)
            throw illegalArgument(
                fmt::format("Fielddata is disabled on [{0}] in [{1}]. Text fields are not optimised "
                            "for operations that require per-document field data like aggregations "
                            "and sorting, so these operations are disabled by default. Please use a "
                            "keyword field instead.",
                            path, mView.index().name()));
        throw illegalArgument(fmt::format("Field [{}] of type [{}] is not supported for aggregation [terms]",
                                          path, field.typeName));
    }

    static std::vector<Bucket> keywordBuckets(const KeywordData& data, const Field& field,
                                              const Bitmap& documents, bool keep) {
        std::vector<std::uint32_t> values;
        for (std::uint32_t value = 0; value < data.values().size(); ++value)
            if (data.documents(value).countWithin(documents) > 0) values.push_back(value);
        std::sort(values.begin(), values.end(), [&](std::uint32_t a, std::uint32_t b) {
            return data.values().at(a) < data.values().at(b);
        });
        std::vector<Bucket> buckets;
        for (const std::uint32_t value : values) {
            const std::string text(data.values().at(value));
            Json key = field.type == FieldType::boolean
                           ? Json{{"key", text == "true" ? 1 : 0}, {"key_as_string", text}}
                           : Json{{"key", text}};
            const OrdinalSet& held = data.documents(value);
            buckets.push_back(
                {std::move(key), keep ? held.toBitmap() & documents : Bitmap(), held.countWithin(documents)});
        }
        return buckets;
    }

    static std::vector<Bucket> numberBuckets(const NumberData& data, const Field& field,
                                             const Bitmap& documents) {
        std::map<SortableNumber, Bitmap> byValue;
        const Bitmap held = documents & data.present();
        if (held.and_cardinality(data.several()) > 0)
            throw illegalArgument(
                fmt::format("[terms] aggregation on [{}]: documents hold several numbers", field.path));
        for (const Ordinal ordinal : held)
            byValue[data.single(ordinal)].add(ordinal);
        std::vector<Bucket> buckets;
        for (auto& [value, ordinals] : byValue) {
            const Json key = field.type == FieldType::integer ? Json(value) : Json(fromSortable(value));
            const std::uint64_t count = ordinals.cardinality();
            buckets.push_back({{{"key", key}}, std::move(ordinals), count});
        }
        return buckets;
    }

    const IndexView& mView;
};

} // namespace

Json aggregate(const IndexView& view, const Json& aggregations, const Bitmap& documents) {
    return Aggregator(view).all(aggregations, 0, documents, 0);
}

} // namespace kestrel::index
