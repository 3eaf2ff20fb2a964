#pragma once

#include "base/Work.h"
#include "query/Sort.h"
#include "storage/WriteQueue.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kestrel::index {

/// What a hit shows of its document.
struct ShownSource {
    bool isShown = true;
    std::set<std::string, std::less<>> members; ///< empty: all

    /// Throws an ApiError when the value of "_source" is neither a boolean nor names of members.
    static ShownSource parse(const Json& value);
    std::string render(const std::string& document) const;
};

/// The checked body of a search.
struct SearchRequest {
    Json query;
    Json aggregations;
    std::vector<SortSpec> sort;
    std::size_t from = 0;
    std::size_t size = 10;
    ShownSource source;
    /// The total is exact up to this number; SIZE_MAX: always; nothing: no total is shown.
    std::optional<std::size_t> trackTotal = 10'000;
    /// When the search ends with what it has found by then.
    std::optional<Work::Clock::time_point> until;
    /// Throws an ApiError when the text is no time.
    void setTimeout(const std::string& text);

    static SearchRequest parse(const Json& body);
};

/// The hits in one index, in the order of the answer, without their sources.
struct Found {
    IndexPtr index;
    std::uint64_t total = 0;
    std::vector<RowId> rows;
    std::vector<float> scores;      ///< empty when the hits are sorted by fields
    std::vector<std::int64_t> keys; ///< sort keys, columns.size() for each row
    std::vector<SortColumn> columns;
    std::optional<float> maximumScore;
    Json aggregations;
    bool timedOut = false; ///< the request's time was up: what is missing is not known
};

/// "1.5s": a positive time with its unit. Throws an ApiError that names the setting.
std::chrono::duration<double> parseTime(const std::string& text, const std::string& setting);

constexpr std::size_t kMaximumWindow = 10'000;

/// Finds the first limit hits. Errors have the form of a failed search.
Found search(const IndexPtr& index, DocumentStore& store, const SearchRequest& request, std::size_t limit);

/// The rows of all matching documents, in document order.
std::vector<RowId> matchingRows(const IndexPtr& index, DocumentStore& store, const Json& query);
std::uint64_t count(const IndexPtr& index, DocumentStore& store, const Json& query);

/// A hit as JSON.
std::string renderHit(const Found& found, std::size_t position, const StoredDocument& document,
                      const ShownSource& source);
/// {"total", "max_score", "hits"}
std::string renderHits(std::uint64_t total, const SearchRequest& request, std::optional<float> maximumScore,
                       const std::vector<std::string>& hits);

} // namespace kestrel::index
