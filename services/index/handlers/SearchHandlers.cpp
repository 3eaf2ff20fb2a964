#include "base/ApiError.h"
#include "handlers/Handlers.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <charconv>
#include <utility>

namespace kestrel::index {

namespace {

constexpr int kOptimisticAttempts = 4;
constexpr auto kLongestScroll = std::chrono::hours(24);

std::string head(const Stopwatch& stopwatch, bool timedOut, std::size_t indices) {
    return fmt::format(R"("took":{},"timed_out":{},"_shards":{})", stopwatch.milliseconds(), timedOut,
                       readShards(indices).dump());
}

std::chrono::seconds parseKeepAlive(const std::string& text) {
    const auto time = parseTime(text, "scroll");
    if (time > kLongestScroll)
        throw illegalArgument(
            fmt::format("Keep alive for request ({}) is too large. It must be less than ([1d]).", text));
    return std::max(std::chrono::seconds(1), std::chrono::duration_cast<std::chrono::seconds>(time));
}

void checkWindow(const SearchRequest& request, const std::vector<IndexPtr>& indices, bool scroll) {
    const std::string index = indices.empty() ? "" : indices.front()->name();
    if (scroll) {
        if (request.from > 0)
            throw ApiError(400, "action_request_validation_exception",
                           "Validation Failed: 1: using [from] is not allowed in a scroll context;");
        if (request.size == 0)
            throw ApiError(400, "action_request_validation_exception",
                           "Validation Failed: 1: [size] cannot be [0] in a scroll context;");
        if (request.size > kMaximumWindow)
            throw illegalArgument(
                fmt::format("Batch size is too large, size must be less than or equal to: [{}] but was "
                            "[{}]. Scroll batch sizes cost as much memory as result windows so they are "
                            "controlled by the [index.max_result_window] index level setting.",
                            kMaximumWindow, request.size))
                .asSearchFailure(index);
        return;
    }
    if (request.size > kMaximumWindow || request.from > kMaximumWindow - request.size)
        throw illegalArgument(
            fmt::format("Result window is too large, from + size must be less than or equal to: [{}] but "
                        "was [{}]. See the scroll api for a more efficient way to request large data "
                        "sets. This limit can be set by changing the [index.max_result_window] index "
                        "level setting.",
                        kMaximumWindow, request.from + request.size))
            .asSearchFailure(index);
}

/// A hit of the answer: its position in what was found in one of the indices.
struct HitRef {
    std::size_t found;
    std::size_t position;
};

std::vector<HitRef> mergeHits(const std::vector<Found>& found, const SearchRequest& request) {
    std::vector<HitRef> merged;
    for (std::size_t i = 0; i < found.size(); ++i)
        for (std::size_t position = 0; position < found[i].rows.size(); ++position)
            merged.push_back({i, position});
    std::stable_sort(merged.begin(), merged.end(), [&](const HitRef& a, const HitRef& b) {
        if (found[a.found].scores.empty() || found[b.found].scores.empty()) return false;
        return found[a.found].scores[a.position] > found[b.found].scores[b.position];
    });
    merged.erase(merged.begin(),
                 merged.begin() + static_cast<std::ptrdiff_t>(std::min(request.from, merged.size())));
    merged.resize(std::min(merged.size(), request.size));
    return merged;
}

class SearchRun {
public:
    SearchRun(Services& services, std::vector<IndexPtr> indices, const SearchRequest& request)
        : mServices(services), mIndices(std::move(indices)), mRequest(request) {
        if (mIndices.size() > 1 && (!request.sort.empty() || !request.aggregations.is_null()))
            throw illegalArgument("[sort] and [aggs] are supported on one index at a time");
    }

    std::string render(const Stopwatch& stopwatch) {
        for (int attempt = 0; attempt < kOptimisticAttempts; ++attempt)
            if (tryOnce()) return body(stopwatch);
        // Documents change faster than they can be read: pause the writer.
        const auto paused = mServices.writes.pause();
        if (!tryOnce())
            throw ApiError(500, "i_o_exception", "documents of the result are missing from the store");
        return body(stopwatch);
    }

private:
    /// False when a document was changed after the search, before it was read.
    bool tryOnce() {
        mFound.clear();
        for (const IndexPtr& index : mIndices)
            mFound.push_back(search(index, mServices.store, mRequest, mRequest.from + mRequest.size));
        const std::vector<HitRef> refs = mergeHits(mFound, mRequest);
        std::vector<RowId> rows;
        rows.reserve(refs.size());
        for (const HitRef& ref : refs)
            rows.push_back(mFound[ref.found].rows[ref.position]);
        const auto documents = readRows(rows, refs);
        if (!documents) return false;
        mHits.clear();
        for (std::size_t i = 0; i < refs.size(); ++i) {
            checkStillWanted();
            mHits.push_back(
                renderHit(mFound[refs[i].found], refs[i].position, (*documents)[i], mRequest.source));
        }
        return true;
    }

    /// A damaged document is reported once and set aside, so that later searches ignore it.
    std::optional<std::vector<StoredDocument>> readRows(const std::vector<RowId>& rows,
                                                        const std::vector<HitRef>& refs) const try {
        return mServices.store.read(rows);
    } catch (const DamagedRow& e) {
        const auto position = std::find(rows.begin(), rows.end(), e.row()) - rows.begin();
        Index& index = *mFound[refs[static_cast<std::size_t>(position)].found].index;
        spdlog::error("index [{}]: {}: it is set aside", index.name(), e.what());
        index.setAside(e.row());
        throw damaged(index, e);
    }

    std::string body(const Stopwatch& stopwatch) const {
        std::uint64_t total = 0;
        std::optional<float> maximum;
        bool timedOut = false;
        for (const Found& found : mFound) {
            timedOut = timedOut || found.timedOut;
            total += found.total;
            if (found.maximumScore) maximum = std::max(maximum.value_or(0.0F), *found.maximumScore);
        }
        std::string text = "{" + head(stopwatch, timedOut, mIndices.size()) + "," +
                           renderHits(total, mRequest, maximum, mHits);
        if (!mRequest.aggregations.is_null() && !mFound.empty())
            text += R"(,"aggregations":)" + mFound.front().aggregations.dump();
        return text + "}";
    }

    Services& mServices;
    std::vector<IndexPtr> mIndices;
    const SearchRequest& mRequest;
    std::vector<Found> mFound;
    std::vector<std::string> mHits;
};

std::string renderPage(const Scrolls::Page& page, const Stopwatch& stopwatch) {
    return fmt::format(R"({{"_scroll_id":{},{},{}}})", jsonString(page.id), head(stopwatch, page.timedOut, 1),
                       renderHits(page.total, page.request, page.maximumScore, page.hits));
}

Answer openScroll(Services& services, const Request& request, const std::vector<IndexPtr>& indices,
                  const SearchRequest& search, const Stopwatch& stopwatch) {
    if (indices.size() != 1) throw illegalArgument("[scroll] is supported on one index at a time");
    if (!search.aggregations.is_null()) throw illegalArgument("[aggs] are not supported in a scroll");
    const std::chrono::seconds keepAlive = parseKeepAlive(request.param("scroll"));
    const Scrolls::Page page =
        services.scrolls.open(indices.front(), search, keepAlive, request.user->name(), services.writes);
    return {200, renderPage(page, stopwatch), {}};
}

Answer searchIndices(Services& services, const Request& request, const std::string& expression) {
    const Stopwatch stopwatch;
    const std::vector<IndexPtr> indices =
        resolveIndices(services, *request.user, expression, RightRead, "indices:data/read/search");
    SearchRequest search = SearchRequest::parse(request.json());
    for (const auto& [name, member] : {std::pair{"size", &search.size}, std::pair{"from", &search.from}}) {
        const std::string text = request.param(name);
        if (text.empty()) continue;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *member);
        if (error != std::errc() || end != text.data() + text.size() || *member > INT32_MAX)
            throw illegalArgument(
                fmt::format("Failed to parse int parameter [{}] with value [{}]", name, text));
    }
    if (request.params.contains("timeout")) search.setTimeout(request.param("timeout"));
    const bool scroll = request.params.contains("scroll");
    checkWindow(search, indices, scroll);
    if (scroll) return openScroll(services, request, indices, search, stopwatch);
    return {200, SearchRun(services, indices, search).render(stopwatch), {}};
}

/// Scroll identifier and keep-alive, from the body or the query.
std::pair<std::string, std::string> scrollMembers(const Request& request) {
    std::string id = request.param("scroll_id");
    std::string keepAlive = request.param("scroll");
    const Json body = request.json();
    if (!body.is_null() && !body.is_object())
        throw illegalArgument("Malformed content, must start with an object");
    for (const auto& [key, value] : body.items()) {
        if (key == "scroll_id" && value.is_string())
            id = value;
        else if (key == "scroll" && value.is_string())
            keepAlive = value;
        else
            throw illegalArgument(
                fmt::format("Unknown parameter [{}] in request body or parameter is of the wrong type", key));
    }
    if (id.empty())
        throw ApiError(400, "action_request_validation_exception",
                       "Validation Failed: 1: scrollId is missing;");
    return {id, keepAlive};
}

Answer continueScroll(Services& services, const Request& request) {
    const Stopwatch stopwatch;
    const auto [id, keepAlive] = scrollMembers(request);
    const std::chrono::seconds time = keepAlive.empty() ? std::chrono::seconds(0) : parseKeepAlive(keepAlive);
    return {200,
            renderPage(services.scrolls.next(id, time, request.user->name(), services.writes), stopwatch),
            {}};
}

Answer closeScrolls(Services& services, const Request& request) {
    const Json body = request.json();
    std::vector<std::string> ids;
    const Json given = body.is_object() ? body.value("scroll_id", Json()) : Json();
    if (given.is_string()) ids.push_back(given);
    for (const Json& id : given.is_array() ? given : Json::array())
        if (id.is_string()) ids.push_back(id);
    if (ids.empty())
        throw ApiError(400, "action_request_validation_exception",
                       "Validation Failed: 1: no scroll ids specified;");
    const bool all = ids.size() == 1 && ids.front() == "_all";
    const std::size_t closed = all ? services.scrolls.closeAll(request.user->name())
                                   : services.scrolls.close(ids, request.user->name());
    return Answer::json({{"succeeded", true}, {"num_freed", closed}}, closed > 0 || all ? 200 : 404);
}

Answer countIndices(Services& services, const Request& request, const std::string& expression) {
    const std::vector<IndexPtr> indices =
        resolveIndices(services, *request.user, expression, RightRead, "indices:data/read/search");
    const Json body = request.json();
    if (!body.is_null() && !body.is_object())
        throw parsingError("request does not support a body that is no object");
    for (const auto& [key, value] : body.items())
        if (key != "query") throw parsingError(fmt::format("request does not support [{}]", key));
    const Json query = body.is_object() ? body.value("query", Json()) : Json();
    std::uint64_t total = 0;
    for (const IndexPtr& index : indices)
        total += count(index, services.store, query);
    return Answer::json({{"count", total}, {"_shards", readShards(indices.size())}});
}

} // namespace

void addSearchHandlers(Router& router, Services& services) {
    using Params = Router::PathParams;
    const std::vector<std::string> expansion{"allow_no_indices", "ignore_unavailable", "expand_wildcards"};
    std::vector<std::string> searching{"scroll", "size", "from", "timeout", "typed_keys"};
    searching.insert(searching.end(), expansion.begin(), expansion.end());
    router.add(
        {"GET", "POST"}, "_search/scroll", {"scroll", "scroll_id"},
        [&services](const Request& request, const Params&) { return continueScroll(services, request); });
    router.add({"DELETE"}, "_search/scroll", {}, [&services](const Request& request, const Params&) {
        return closeScrolls(services, request);
    });
    router.add({"GET", "POST"}, "{index}/_search", searching,
               [&services](const Request& request, const Params& params) {
                   return searchIndices(services, request, params.at("index"));
               });
    router.add({"GET", "POST"}, "_search", searching, [&services](const Request& request, const Params&) {
        return searchIndices(services, request, "*");
    });
    router.add({"GET", "POST"}, "{index}/_count", expansion,
               [&services](const Request& request, const Params& params) {
                   return countIndices(services, request, params.at("index"));
               });
    router.add({"GET", "POST"}, "_count", expansion, [&services](const Request& request, const Params&) {
        return countIndices(services, request, "*");
    });
}

} // namespace kestrel::index
