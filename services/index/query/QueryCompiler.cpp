#include "query/QueryCompiler.h"

#include "base/ApiError.h"
#include "base/Work.h"
#include "engine/Analyzer.h"
#include "query/BoolQuery.h"
#include "query/FuzzyExpander.h"
#include "query/SimpleQueries.h"
#include "query/TextQuery.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <initializer_list>
#include <optional>
#include <unordered_map>

namespace kestrel::index {

namespace {

constexpr int kMaximumDepth = 30;
constexpr std::size_t kMaximumExpansions = 50;
constexpr std::size_t kMaximumClauses = 65'536;
constexpr std::size_t kMaximumTerms = 65'536;
constexpr std::size_t kMaximumWords = 1024;
/// Documents that one query may read for values that are not in memory.
constexpr std::size_t kMaximumRead = 50'000;
/// Keeps scores far below the largest float.
constexpr double kMaximumBoost = 1e15;
constexpr std::string_view kCosineScript =
    R"(cosineSimilarity(params.semanticVector,"semanticImageVector")+1.0)";

QueryPtr matchNone() {
    return std::make_unique<ConstantQuery>(Bitmap(), 0.0F);
}

std::string asText(const Json& value) {
    return value.is_string() ? value.get<std::string>() : value.dump();
}

void requireKeys(const std::string& query, const Json& body, std::initializer_list<std::string_view> known) {
    if (!body.is_object())
        throw parsingError(fmt::format("[{}] query malformed, no start_object after query name", query));
    for (const auto& [key, value] : body.items())
        if (std::find(known.begin(), known.end(), key) == known.end())
            throw parsingError(fmt::format("[{}] query does not support [{}]", query, key));
}

/// The boost of a clause, multiplied by that of the clause around it.
float boosted(float outer, const Json& body) {
    const Json own = body.value("boost", Json(1.0));
    const double boost = own.is_number() ? static_cast<double>(outer) * own.get<double>() : -1;
    if (!(boost >= 0 && boost <= kMaximumBoost))
        throw illegalArgument(
            fmt::format("[boost] must be a number, not negative, and with the boosts around it at most "
                        "[{}] but was [{}]",
                        kMaximumBoost, own.dump()));
    return static_cast<float>(boost);
}

struct FieldClause {
    std::string path;
    Json value;
};

/// The one member of a query such as {"term": {path: value}}.
FieldClause singleField(const std::string& query, const Json& body) {
    if (!body.is_object() || body.empty())
        throw parsingError(fmt::format("[{}] query malformed, no field name", query));
    if (body.size() > 1)
        throw parsingError(fmt::format("[{}] query doesn't support multiple fields, found [{}] and [{}]",
                                       query, body.begin().key(), std::next(body.begin()).key()));
    return {body.begin().key(), body.begin().value()};
}

/// "minimum_should_match": a count, negative for "all but", or a percentage.
constexpr std::int64_t kManyClauses = 1'000'000'000;

std::size_t minimumMatch(const Json& value, std::size_t clauses) {
    std::string text = asText(value);
    const bool percent = text.ends_with('%');
    if (percent) text.pop_back();
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        throw illegalArgument(fmt::format("[minimum_should_match] cannot be read: [{}]", value.dump()));
    const auto total = static_cast<std::int64_t>(clauses);
    // Larger numbers have the same effect and could overflow.
    number = std::clamp<std::int64_t>(number, -kManyClauses, kManyClauses);
    if (percent) number = total * number / 100;
    if (number < 0) number += total;
    return static_cast<std::size_t>(std::max<std::int64_t>(number, 0));
}

/// "semanticVector" of a script's parameters.
std::vector<float> queryVector(const Json& params) {
    const Json values = params.is_object() ? params.value("semanticVector", Json()) : Json();
    std::vector<float> vector;
    double squares = 0;
    for (const Json& value : values.is_array() ? values : Json::array({nullptr})) {
        if (!value.is_number()) throw illegalArgument("[params.semanticVector] must be an array of numbers");
        vector.push_back(value.get<float>());
        squares += static_cast<double>(vector.back()) * static_cast<double>(vector.back());
    }
    if (!std::isfinite(static_cast<float>(squares)))
        throw illegalArgument("[params.semanticVector] holds numbers that are too large");
    return vector;
}

/// The number as the field stores it; nothing when no value of the field's type can equal it.
std::optional<SortableNumber> wantedNumber(const Field& field, const Json& value) {
    const NumberReading wanted = readNumber(field, value);
    if (wanted.kind == NumberReading::Kind::NotANumber) {
        const std::string text = asText(value);
        throw ApiError(400, "query_shard_exception",
                       fmt::format("failed to create query: For input string: \"{}\"", text),
                       {{"caused_by",
                         {{"type", "number_format_exception"},
                          {"reason", fmt::format("For input string: \"{}\"", text)}}}});
    }
    return wanted.kind == NumberReading::Kind::Exact ? std::optional(wanted.value) : std::nullopt;
}

} // namespace

NumberReader numberReader(const IndexView& view, DocumentStore& store) {
    return [&view, &store, read = std::size_t{0}](Ordinal ordinal, FieldId id) mutable -> NumberContent {
        const Field& field = view.mapping().at(id);
        if (++read > kMaximumRead)
            throw illegalArgument(fmt::format(
                "[{}] holds several numbers in more than [{}] of the documents that match so far, and they "
                "would have to be read one by one; narrow the query by other conditions",
                field.path, kMaximumRead));
        checkStillWanted();
        const auto document = store.read(view.row(ordinal));
        return document ? numbersAt(parseStored(document->source), field) : NumberContent();
    };
}

QueryPtr QueryCompiler::compile(const Json& query) const {
    return compile(query.is_null() ? Json{{"match_all", Json::object()}} : query, 0, 1.0F, 0);
}

QueryPtr QueryCompiler::compile(const Json& query, SpaceId space, float boost, int depth) const {
    if (depth > kMaximumDepth)
        throw illegalArgument(
            fmt::format("The nested depth of the query exceeds the maximum nested depth for "
                        "queries set in [indices.query.bool.max_nested_depth]: [{}]",
                        kMaximumDepth));
    if (++mClauses > kMaximumClauses)
        throw ApiError(400, "too_many_clauses", fmt::format("maxClauseCount is set to {}", kMaximumClauses));
    checkStillWanted();
    if (!query.is_object() || query.empty()) throw illegalArgument("query malformed, empty clause found");
    if (query.size() > 1)
        throw parsingError(fmt::format("[{}] malformed query, expected [END_OBJECT] but found [FIELD_NAME]",
                                       query.begin().key()));
    const std::string& kind = query.begin().key();
    const Json& body = query.begin().value();
    if (kind == "bool") return boolean(body, space, boost, depth);
    if (kind == "term") return term(body, space, boost);
    if (kind == "terms") return terms(body, space, boost);
    if (kind == "match") return match(body, space, boost);
    if (kind == "exists") return exists(body, space, boost);
    if (kind == "nested") return nested(body, space, boost, depth);
    if (kind == "script_score") return scriptScore(body, space, boost, depth);
    if (kind == "match_none") return matchNone();
    if (kind != "match_all") throw parsingError(fmt::format("unknown query [{}]", kind));
    requireKeys(kind, body, {"boost"});
    return std::make_unique<ConstantQuery>(mView.live(space), boosted(boost, body));
}

QueryPtr QueryCompiler::boolean(const Json& body, SpaceId space, float boost, int depth) const {
    requireKeys("bool", body, {"must", "should", "filter", "must_not", "minimum_should_match", "boost"});
    if (!body.contains("must") && !body.contains("should") && !body.contains("filter") &&
        !body.contains("must_not"))
        return std::make_unique<ConstantQuery>(mView.live(space), boosted(boost, body));
    const float inner = boosted(boost, body);
    const auto clauses = [&](const char* key) {
        std::vector<QueryPtr> compiled;
        if (!body.contains(key)) return compiled;
        const Json& value = body.at(key);
        if (!value.is_array()) {
            compiled.push_back(compile(value, space, inner, depth + 1));
            return compiled;
        }
        for (const Json& clause : value)
            compiled.push_back(compile(clause, space, inner, depth + 1));
        return compiled;
    };
    BoolQuery::Clauses parts{clauses("must"), clauses("should"), clauses("filter"), clauses("must_not")};
    const bool required = !parts.must.empty() || !parts.filter.empty();
    if (body.contains("minimum_should_match"))
        parts.minimumShouldMatch = minimumMatch(body.at("minimum_should_match"), parts.should.size());
    else if (!required && !parts.should.empty())
        parts.minimumShouldMatch = 1;
    // Without required clauses at least one optional clause has to match.
    if (!required && !parts.should.empty() && parts.minimumShouldMatch == 0) parts.minimumShouldMatch = 1;
    return std::make_unique<BoolQuery>(std::move(parts));
}

QueryPtr QueryCompiler::term(const Json& body, SpaceId space, float boost) const {
    FieldClause clause = singleField("term", body);
    if (clause.value.is_object()) {
        requireKeys("term", clause.value, {"value", "boost"});
        if (!clause.value.contains("value")) throw illegalArgument("value cannot be null");
        boost = boosted(boost, clause.value);
        clause.value = Json(clause.value.at("value"));
    }
    if (clause.value.is_array()) throw parsingError("[term] query does not support array of values");
    if (clause.value.is_null()) throw illegalArgument("value cannot be null");
    return fieldTerm(clause.path, clause.value, space, boost);
}

QueryPtr QueryCompiler::terms(const Json& body, SpaceId space, float boost) const {
    Json fields = body;
    if (fields.is_object() && fields.contains("boost")) {
        boost = boosted(boost, fields);
        fields.erase("boost");
    }
    const FieldClause clause = singleField("terms", fields);
    if (!clause.value.is_array())
        throw parsingError(
            fmt::format("[terms] query does not support [{}]: an array of values is needed", clause.path));
    if (clause.value.size() > kMaximumTerms)
        throw illegalArgument(fmt::format(
            "The number of terms [{}] used in the Terms Query request has exceeded the allowed maximum of "
            "[{}]. This maximum can be set by changing the [index.max_terms_count] index level setting.",
            clause.value.size(), kMaximumTerms));
    const auto id = mView.mapping().idOf(clause.path);
    if (id && mView.mapping().at(*id).isNumber() && mView.mapping().at(*id).space == space)
        return numberTerms(*id, clause.value, boost);
    Bitmap documents;
    for (const Json& value : clause.value) {
        checkStillWanted();
        documents |= fieldTerm(clause.path, value, space, 1.0F)->matches(mView.live(space));
    }
    return std::make_unique<ConstantQuery>(std::move(documents), boost);
}

QueryPtr QueryCompiler::fieldTerm(const std::string& path, const Json& value, SpaceId space,
                                  float boost) const {
    if (path == "_id") {
        if (space != 0) return matchNone();
        Bitmap documents;
        if (const auto ordinal = mView.ordinalOf(asText(value))) documents.add(*ordinal);
        return std::make_unique<ConstantQuery>(std::move(documents), boost);
    }
    const auto id = mView.mapping().idOf(path);
    if (!id || mView.mapping().at(*id).space != space) return matchNone();
    // The value is checked against the mapping even if no document has the field.
    switch (mView.mapping().at(*id).type) {
    case FieldType::Text:
        return textTerm(*id, asText(value), space, boost);
    case FieldType::Keyword:
        return keywordTerm(*id, asText(value), boost);
    case FieldType::Boolean: {
        const std::string text = asText(value);
        if (text != "true" && text != "false" && !text.empty())
            throw illegalArgument(
                fmt::format("Can't parse boolean value [{}], expected [true] or [false]", text));
        return keywordTerm(*id, text.empty() ? "false" : text, boost);
    }
    case FieldType::Integer:
    case FieldType::Floating:
        return numberTerms(*id, Json::array({value}), boost);
    case FieldType::Object:
    case FieldType::Nested:
        return matchNone();
    default:
        throw illegalArgument(fmt::format("Field [{}] of type [{}] does not support term queries", path,
                                          mView.mapping().at(*id).typeName));
    }
}

QueryPtr QueryCompiler::textTerm(FieldId field, const std::string& term, SpaceId space, float boost) const {
    if (mView.data(field) == nullptr) return matchNone();
    const auto& data = *mView.data<TextData>(field);
    const std::uint32_t number = data.terms().find(term);
    if (number == StringTable::kAbsent || data.documentFrequency(number) == 0) return matchNone();
    const float weight = Bm25(data.statistics()).weight(data.documentFrequency(number), boost);
    return std::make_unique<TextQuery>(mView, space, data, std::vector<TextQuery::Term>{{number, weight}});
}

QueryPtr QueryCompiler::keywordTerm(FieldId field, const std::string& value, float boost) const {
    if (mView.data(field) == nullptr) return matchNone();
    const auto& data = *mView.data<KeywordData>(field);
    const OrdinalSet* documents = data.find(value);
    if (documents == nullptr || documents->size() == 0) return matchNone();
    const Bm25 similarity(data.statistics());
    const float score = similarity.score(similarity.weight(documents->size(), boost), 1.0F, kLengthOfOne);
    return std::make_unique<ConstantQuery>(documents->toBitmap(), score);
}

QueryPtr QueryCompiler::numberTerms(FieldId field, const Json& values, float boost) const {
    std::vector<SortableNumber> wanted;
    for (const Json& value : values)
        if (const auto number = wantedNumber(mView.mapping().at(field), value)) wanted.push_back(*number);
    if (wanted.empty() || mView.data(field) == nullptr) return matchNone();
    std::sort(wanted.begin(), wanted.end());
    return std::make_unique<NumberQuery>(*mView.data<NumberData>(field), field, std::move(wanted),
                                         numberReader(mView, mStore), boost);
}

QueryPtr QueryCompiler::match(const Json& body, SpaceId space, float boost) const {
    FieldClause clause = singleField("match", body);
    std::optional<Fuzziness> fuzziness;
    bool all = false;
    if (clause.value.is_object()) {
        requireKeys("match", clause.value, {"query", "fuzziness", "operator", "boost"});
        if (!clause.value.contains("query")) throw parsingError("No text specified for text query");
        if (clause.value.contains("fuzziness"))
            fuzziness = Fuzziness::parse(asText(clause.value.at("fuzziness")));
        const std::string how = asText(clause.value.value("operator", Json("or")));
        if (how != "or" && how != "and" && how != "OR" && how != "AND")
            throw illegalArgument(fmt::format("No enum constant for operator [{}]", how));
        all = how == "and" || how == "AND";
        boost = boosted(boost, clause.value);
        clause.value = Json(clause.value.at("query"));
    }
    if (clause.value.is_array() || clause.value.is_object() || clause.value.is_null())
        throw parsingError("[match] unknown token after [query]");
    const auto id = mView.mapping().idOf(clause.path);
    if (!id || mView.mapping().at(*id).type != FieldType::Text)
        return fieldTerm(clause.path, clause.value, space, boost);
    if (mView.mapping().at(*id).space != space || mView.data(*id) == nullptr) return matchNone();

    const auto& data = *mView.data<TextData>(*id);
    const Bm25 similarity(data.statistics());
    std::vector<std::vector<TextQuery::Term>> words;
    const std::vector<std::string> text = analyze(asText(clause.value));
    if (text.size() > kMaximumWords)
        throw ApiError(
            400, "too_many_clauses",
            fmt::format("maxClauseCount is set to {}: the text has [{}] words", kMaximumWords, text.size()));
    for (const std::string& word : text) {
        const unsigned edits = fuzziness ? fuzziness->editsFor(codePoints(word).size()) : 0;
        const std::vector<Expansion> expansions = expandFuzzy(data, word, edits, kMaximumExpansions);
        // All spellings get the frequency of the most frequent one, so that rare misspellings do not rank
        // first.
        std::uint32_t frequency = 0;
        for (const Expansion& expansion : expansions)
            frequency = std::max(frequency, data.documentFrequency(expansion.term));
        words.emplace_back();
        for (const Expansion& expansion : expansions)
            words.back().push_back({expansion.term, similarity.weight(frequency, expansion.boost * boost)});
    }
    if (all) {
        BoolQuery::Clauses clauses;
        for (auto& word : words)
            clauses.must.push_back(std::make_unique<TextQuery>(mView, space, data, std::move(word)));
        return words.empty() ? matchNone() : std::make_unique<BoolQuery>(std::move(clauses));
    }
    std::vector<TextQuery::Term> merged;
    std::unordered_map<std::uint32_t, std::size_t> places;
    for (const auto& word : words) {
        for (const TextQuery::Term& term : word) {
            const auto [place, added] = places.try_emplace(term.term, merged.size());
            if (added)
                merged.push_back(term);
            else
                merged[place->second].weight += term.weight;
        }
    }
    if (merged.empty()) return matchNone();
    return std::make_unique<TextQuery>(mView, space, data, std::move(merged));
}

QueryPtr QueryCompiler::exists(const Json& body, SpaceId space, float boost) const {
    requireKeys("exists", body, {"field", "boost"});
    if (!body.contains("field") || !body.at("field").is_string())
        throw parsingError("[exists] must be provided with a [field]");
    const std::string path = body.at("field");
    Bitmap documents;
    const auto include = [&](FieldId id) {
        if (mView.mapping().at(id).space == space && mView.data(id) != nullptr)
            documents |= mView.data(id)->present();
    };
    if (const auto id = mView.mapping().idOf(path)) include(*id);
    for (const FieldId id : mView.mapping().below(path))
        include(id);
    return std::make_unique<ConstantQuery>(std::move(documents), boosted(boost, body));
}

QueryPtr QueryCompiler::nested(const Json& body, SpaceId space, float boost, int depth) const {
    requireKeys("nested", body, {"path", "query", "boost", "ignore_unmapped", "score_mode"});
    if (!body.contains("path") || !body.at("path").is_string())
        throw illegalArgument("[nested] requires 'path' field");
    if (!body.contains("query")) throw illegalArgument("[nested] requires 'query' field");
    if (body.value("score_mode", Json("avg")) != "avg")
        throw illegalArgument("[nested] supports the score_mode [avg] only");
    const std::string path = body.at("path");
    const Field* field = mView.mapping().find(path);
    if (field == nullptr || field->type != FieldType::Nested) {
        if (body.value("ignore_unmapped", Json(false)) == true) return matchNone();
        throw ApiError(
            400, "query_shard_exception",
            fmt::format("failed to create query: [nested] failed to find nested object under path [{}]",
                        path));
    }
    if (space != 0) throw illegalArgument("[nested] inside [nested] is not supported");
    return std::make_unique<NestedQuery>(
        mView, field->ownSpace, compile(body.at("query"), field->ownSpace, boosted(boost, body), depth + 1));
}

QueryPtr QueryCompiler::scriptScore(const Json& body, SpaceId space, float boost, int depth) const {
    requireKeys("script_score", body, {"query", "script", "boost"});
    if (!body.contains("query")) throw illegalArgument("[script_score] requires 'query' field");
    const Json script = body.value("script", Json());
    if (!script.is_object() || script.value("source", Json()) != kCosineScript)
        throw illegalArgument(
            fmt::format("this service runs a fixed set of scripts, and [{}] is not one of them",
                        script.is_object() ? script.value("source", Json()).dump() : script.dump()));
    std::vector<float> vector = queryVector(script.value("params", Json()));
    const auto id = mView.mapping().idOf("semanticImageVector");
    const bool mapped =
        id && mView.mapping().at(*id).type == FieldType::Vector && mView.mapping().at(*id).space == space;
    const VectorData* data = mapped ? mView.data<VectorData>(*id) : nullptr;
    const std::size_t dimensions = mapped ? mView.mapping().at(*id).dimensions : 0;
    if (dimensions != 0 && dimensions != vector.size())
        throw ApiError(
            400, "script_exception", "runtime error",
            {{"lang", "painless"},
             {"caused_by",
              {{"type", "illegal_argument_exception"},
               {"reason", fmt::format("The query vector has a different number of dimensions [{}] than the "
                                      "document vectors [{}].",
                                      vector.size(), dimensions)}}}});
    return std::make_unique<CosineQuery>(compile(body.at("query"), space, 1.0F, depth + 1), data,
                                         std::move(vector), 1.0F, boosted(boost, body));
}

} // namespace kestrel::index
