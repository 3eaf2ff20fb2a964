#include "query/Search.h"

#include "base/ApiError.h"
#include "query/Aggregations.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <numeric>
#include <string_view>
#include <utility>

namespace kestrel::index {

namespace {

/// Longer times are as good as none, and may be beyond what the clock can count.
constexpr std::chrono::duration<double> kLongest = std::chrono::hours(24);

std::size_t sizeMember(const std::string& key, const Json& value) {
    if (!value.is_number_integer()) throw parsingError(fmt::format("Unknown key for a VALUE in [{}].", key));
    if (value.is_number_unsigned() && value.get<std::uint64_t>() > std::uint64_t{INT32_MAX})
        throw parsingError(fmt::format("[{}]: Numeric value ({}) out of range of int", key, value.dump()));
    if (value.get<std::int64_t>() < 0)
        throw illegalArgument(
            fmt::format("[{}] parameter cannot be negative but was [{}]", key, value.dump()));
    return value.get<std::size_t>();
}

/// The limit best documents, best first; equal scores in document order.
std::vector<std::pair<Ordinal, float>> best(const Scored& scored, std::size_t limit) {
    const auto before = [](const auto& a, const auto& b) {
        return a.second != b.second ? a.second > b.second : a.first < b.first;
    };
    std::vector<std::pair<Ordinal, float>> ranked;
    if (limit < scored.scores.size()) {
        ranked.resize(limit);
        std::partial_sort_copy(scored.scores.begin(), scored.scores.end(), ranked.begin(), ranked.end(),
                               before);
    } else {
        ranked = scored.scores;
    }
    // Of the documents with the base score only the first ones are needed.
    auto own = scored.scores.begin();
    std::size_t added = 0;
    for (auto it = scored.documents.begin(); it != scored.documents.end() && added < limit; ++it) {
        while (own != scored.scores.end() && own->first < *it)
            ++own;
        if (own != scored.scores.end() && own->first == *it) continue;
        ranked.emplace_back(*it, scored.base);
        ++added;
    }
    std::sort(ranked.begin(), ranked.end(), before);
    ranked.resize(std::min(limit, ranked.size()));
    return ranked;
}

bool usesScore(const std::vector<SortSpec>& sort) {
    return std::any_of(sort.begin(), sort.end(), [](const SortSpec& spec) { return spec.field == "_score"; });
}

/// The shortest text that reads back as the same number, with a decimal point.
std::string scoreText(float score) {
    std::string text = fmt::format("{}", score);
    if (text.find_first_of(".e") == std::string::npos) text += ".0";
    return text;
}

std::vector<float> scoresOf(const Query& query, const Bitmap& documents,
                            const std::vector<Ordinal>& ordinals) {
    const Scored scored = query.score(documents);
    std::vector<float> scores;
    auto own = scored.scores.begin();
    for (const Ordinal ordinal : ordinals) {
        while (own != scored.scores.end() && own->first < ordinal)
            ++own;
        scores.push_back(own != scored.scores.end() && own->first == ordinal ? own->second : scored.base);
    }
    return scores;
}

void rankByScore(const IndexView& view, const Query& query, std::size_t limit, Bitmap& documents,
                 Found& found) {
    Scored scored = query.score(view.live(0));
    for (const auto& [ordinal, score] : best(scored, limit)) {
        found.rows.push_back(view.row(ordinal));
        found.scores.push_back(score);
    }
    if (!found.scores.empty()) found.maximumScore = found.scores.front();
    documents = std::move(scored.documents);
}

/// False when the index lacks a sort field: then nothing is found.
bool rankByFields(const IndexView& view, DocumentStore& store, const SearchRequest& request,
                  const Query& query, const Bitmap& documents, std::size_t limit, Found& found) {
    const std::vector<Ordinal> ordinals(documents.begin(), documents.end());
    const std::vector<float> scores =
        usesScore(request.sort) ? scoresOf(query, documents, ordinals) : std::vector<float>();
    for (const SortSpec& spec : request.sort) {
        auto column = SortColumn::make(view, store, spec, ordinals, scores);
        if (!column) return false;
        found.columns.push_back(std::move(*column));
    }
    std::vector<std::uint32_t> order(ordinals.size());
    std::iota(order.begin(), order.end(), 0U);
    const auto kept = static_cast<std::ptrdiff_t>(std::min(limit, order.size()));
    std::partial_sort(order.begin(), order.begin() + kept, order.end(),
                      [&](std::uint32_t a, std::uint32_t b) {
                          for (const SortColumn& column : found.columns)
                              if (column.key(a) != column.key(b)) return column.key(a) < column.key(b);
                          return a < b;
                      });
    order.resize(static_cast<std::size_t>(kept));
    for (const std::uint32_t position : order) {
        found.rows.push_back(view.row(ordinals[position]));
        for (const SortColumn& column : found.columns)
            found.keys.push_back(column.key(position));
    }
    return true;
}

/// Gives the documents that the query finds, and brings the first of them in order.
Bitmap rank(const IndexView& view, DocumentStore& store, const SearchRequest& request, std::size_t limit,
            Found& found) {
    const QueryPtr query = QueryCompiler(view, store).compile(request.query);
    Bitmap documents;
    if (request.sort.empty() && limit > 0) {
        rankByScore(view, *query, limit, documents, found);
        return documents;
    }
    documents = query->matches(view.live(0));
    if (!request.sort.empty() && !rankByFields(view, store, request, *query, documents, limit, found))
        return {};
    return documents;
}

} // namespace

ShownSource ShownSource::parse(const Json& value) {
    if (value.is_boolean()) return {.isShown = value, .members = {}};
    ShownSource source;
    for (const Json& name : value.is_array() ? value : Json::array({value})) {
        if (!name.is_string() || name.get_ref<const std::string&>().find_first_of(".*") != std::string::npos)
            throw parsingError(fmt::format(
                "[_source] takes true, false or names of members without dots or wildcards, not [{}]",
                valueText(name)));
        source.members.insert(name);
    }
    return source;
}

std::string ShownSource::render(const std::string& document) const {
    if (members.empty()) return document;
    Json held = parseStored(document);
    Json shown = Json::object();
    auto& kept = shown.get_ref<Json::object_t&>();
    for (auto& [name, value] : held.get_ref<Json::object_t&>()) {
        // "a.b" is the member "b" of the object "a".
        if (members.contains(std::string_view(name).substr(0, name.find('.'))))
            kept.emplace_back(name, std::move(value));
    }
    return valueText(shown);
}

SearchRequest SearchRequest::parse(const Json& body) {
    SearchRequest request;
    if (body.is_null()) return request;
    if (!body.is_object()) throw parsingError("Expected [START_OBJECT] at the start of the search");
    for (const auto& [key, value] : body.items()) {
        if (key == "query") {
            request.query = value;
        } else if (key == "aggs" || key == "aggregations") {
            request.aggregations = value;
        } else if (key == "sort") {
            request.sort = parseSort(value);
        } else if (key == "from") {
            request.from = sizeMember(key, value);
        } else if (key == "size") {
            request.size = sizeMember(key, value);
        } else if (key == "timeout" && value.is_string()) {
            request.setTimeout(value);
        } else if (key == "_source") {
            request.source = ShownSource::parse(value);
        } else if (key == "track_total_hits" && value.is_boolean()) {
            request.trackTotal = value ? std::optional<std::size_t>(SIZE_MAX) : std::nullopt;
        } else if (key == "track_total_hits") {
            request.trackTotal = sizeMember(key, value);
        } else {
            throw parsingError(fmt::format("Unknown key for a {} in [{}].",
                                           value.is_object()  ? "START_OBJECT"
                                           : value.is_array() ? "START_ARRAY"
                                                              : "VALUE",
                                           key));
        }
    }
    const bool onlyScore =
        request.sort.size() == 1 && request.sort.front().field == "_score" && request.sort.front().descending;
    if (onlyScore) request.sort.clear();
    return request;
}

void SearchRequest::setTimeout(const std::string& text) {
    if (text == "-1") return until.reset();
    const auto time = parseTime(text, "timeout");
    until = Work::Clock::now() + std::chrono::duration_cast<Work::Clock::duration>(std::min(time, kLongest));
}

std::chrono::duration<double> parseTime(const std::string& text, const std::string& setting) {
    static constexpr std::pair<std::string_view, double> kUnits[] = {
        {"nanos", 1e-9}, {"micros", 1e-6}, {"ms", 1e-3}, {"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}};
    double amount = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), amount);
    const std::string_view unit(end, static_cast<std::size_t>(text.data() + text.size() - end));
    // Written so that it refuses "nan", which is neither above nor below anything.
    if (error == std::errc() && amount > 0)
        for (const auto& [name, factor] : kUnits)
            if (unit == name) return std::chrono::duration<double>(amount * factor);
    throw illegalArgument(
        fmt::format("failed to parse setting [{}] with value [{}] as a time value", setting, text));
}

Found search(const IndexPtr& index, DocumentStore& store, const SearchRequest& request,
             std::size_t limit) try {
    Found found;
    found.index = index;
    const IndexView view(*index);
    try {
        const Work::Until until(request.until);
        const Bitmap documents = rank(view, store, request, limit, found);
        found.total = documents.cardinality();
        if (!request.aggregations.is_null())
            found.aggregations = aggregate(view, request.aggregations, documents);
    } catch (const TimedOut&) {
        found.timedOut = true;
        if (!request.aggregations.is_null())
            found.aggregations = aggregate(view, request.aggregations, Bitmap());
    }
    return found;
} catch (const ApiError& e) {
    // Parsing errors are reported without the index.
    if (e.type() == "parsing_exception") throw;
    throw e.asSearchFailure(index->name());
} catch (const DamagedRow& e) {
    index->setAside(e.row());
    throw;
}

std::vector<RowId> matchingRows(const IndexPtr& index, DocumentStore& store, const Json& query) try {
    const IndexView view(*index);
    std::vector<RowId> rows;
    for (const Ordinal ordinal : QueryCompiler(view, store).compile(query)->matches(view.live(0)))
        rows.push_back(view.row(ordinal));
    return rows;
} catch (const ApiError& e) {
    if (e.type() == "parsing_exception") throw;
    throw e.asSearchFailure(index->name());
} catch (const DamagedRow& e) {
    index->setAside(e.row());
    throw;
}

std::uint64_t count(const IndexPtr& index, DocumentStore& store, const Json& query) try {
    const IndexView view(*index);
    return QueryCompiler(view, store).compile(query)->matches(view.live(0)).cardinality();
} catch (const ApiError& e) {
    if (e.type() == "parsing_exception") throw;
    throw e.asSearchFailure(index->name());
} catch (const DamagedRow& e) {
    index->setAside(e.row());
    throw;
}

std::string renderHit(const Found& found, std::size_t position, const StoredDocument& document,
                      const ShownSource& source) {
    std::string hit = fmt::format(R"({{"_index":{},"_id":{},"_score":)", jsonString(found.index->name()),
                                  jsonString(document.id));
    hit += found.scores.empty() ? "null" : scoreText(found.scores[position]);
    if (source.isShown) hit += R"(,"_source":)" + source.render(document.source);
    if (!found.columns.empty()) {
        Json sort = Json::array();
        for (std::size_t column = 0; column < found.columns.size(); ++column)
            sort.push_back(found.columns[column].shown(found.keys[position * found.columns.size() + column]));
        hit += R"(,"sort":)" + sort.dump();
    }
    return hit + "}";
}

std::string renderHits(std::uint64_t total, const SearchRequest& request, std::optional<float> maximumScore,
                       const std::vector<std::string>& hits) {
    std::string rendered = R"("hits":{)";
    if (request.trackTotal) {
        const bool exact = total <= *request.trackTotal;
        rendered += fmt::format(R"("total":{{"value":{},"relation":"{}"}},)",
                                exact ? total : std::uint64_t{*request.trackTotal}, exact ? "eq" : "gte");
    }
    rendered += R"("max_score":)" + (maximumScore ? scoreText(*maximumScore) : "null");
    rendered += fmt::format(R"(,"hits":[{}]}})", fmt::join(hits, ","));
    return rendered;
}

} // namespace kestrel::index
