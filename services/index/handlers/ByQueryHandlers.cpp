#include "base/ApiError.h"
#include "base/Work.h"
#include "handlers/DocumentWrites.h"
#include "handlers/Handlers.h"

#include <fmt/format.h>

#include <optional>

namespace kestrel::index {

namespace {

constexpr std::size_t kBatchSize = 1000;
/// Both states of every document stay in memory until the end of the transaction.
constexpr std::size_t kChangeBytes = 1000;
constexpr std::size_t kPreparedPerByte = 8;

Json summary(const Stopwatch& stopwatch, std::size_t total, const char* verb, std::size_t noops) {
    Json answer = {{"took", stopwatch.milliseconds()}, {"timed_out", false}, {"total", total}};
    const bool update = std::string_view(verb) == "updated";
    if (update) answer["updated"] = total - noops;
    answer.update({{"deleted", update ? 0 : total},
                   {"batches", (total + kBatchSize - 1) / kBatchSize},
                   {"version_conflicts", 0},
                   {"noops", noops},
                   {"retries", {{"bulk", 0}, {"search", 0}}},
                   {"throttled_millis", 0},
                   {"requests_per_second", -1.0},
                   {"throttled_until_millis", 0},
                   {"failures", Json::array()}});
    return answer;
}

Json bodyWith(const Request& request, std::initializer_list<std::string_view> known) {
    Json body = request.json();
    if (body.is_null()) return Json::object();
    if (!body.is_object()) throw parsingError("the body must be an object");
    for (const auto& [key, value] : body.items())
        if (std::find(known.begin(), known.end(), key) == known.end())
            throw parsingError(fmt::format("request does not support [{}]", key));
    return body;
}

/// Finds the documents in the writer's thread, within the limits of the request. The search ends when the
/// client is gone, but the writes that follow do not, or else a client that repeats the request never
/// succeeds.
class DocumentFinder {
public:
    explicit DocumentFinder(Services& services) : mStore(services.store), mWork(Work::current()) {}
    std::vector<RowId> find(const IndexPtr& index, const Json& query) const {
        const Work::Scope scope(mWork);
        return matchingRows(index, mStore, query);
    }
    WriteBatch::Old load(WriteBatch& batch, RowId row) const {
        WriteBatch::Old old{batch.load(row), row};
        const Work::Scope scope(mWork);
        takeMemory(kChangeBytes + kPreparedPerByte * old.document.source.size());
        return old;
    }

private:
    DocumentStore& mStore;
    Work* mWork;
};

/// Both run alone in the writer: the query sees all earlier writes, and one transaction changes all documents
/// or none.
Answer updateByQuery(Services& services, const Request& request, const std::string& expression) {
    const Stopwatch stopwatch;
    const std::vector<IndexPtr> indices = resolveIndices(
        services, *request.user, expression, RightWriteDocument, "indices:data/write/update/byquery");
    const Json body = bodyWith(request, {"query", "script", "conflicts"});
    std::optional<UpdateScript> script;
    if (body.contains("script")) script.emplace(body.at("script"));
    const DocumentFinder documents(services);
    std::size_t total = 0;
    services.writes.run(
        [&](WriteBatch& batch) {
            total = 0;
            for (const IndexPtr& index : indices) {
                for (const RowId row : documents.find(index, body.value("query", Json()))) {
                    WriteBatch::Old old = documents.load(batch, row);
                    Json source = parsedSource(batch, index, old);
                    if (script) script->run(source);
                    replaceDocument(batch, index, old, source);
                    ++total;
                }
            }
        },
        WriteQueue::Sharing::Alone);
    return Answer::json(summary(stopwatch, total, "updated", 0));
}

Answer deleteByQuery(Services& services, const Request& request, const std::string& expression) {
    const Stopwatch stopwatch;
    const std::vector<IndexPtr> indices = resolveIndices(
        services, *request.user, expression, RightDeleteDocument, "indices:data/write/delete/byquery");
    const Json body = bodyWith(request, {"query", "conflicts"});
    if (!body.contains("query"))
        throw ApiError(400, "action_request_validation_exception", "Validation Failed: 1: query is missing;");
    const DocumentFinder documents(services);
    std::size_t total = 0;
    services.writes.run(
        [&](WriteBatch& batch) {
            total = 0;
            for (const IndexPtr& index : indices) {
                for (const RowId row : documents.find(index, body.at("query"))) {
                    batch.remove(index, documents.load(batch, row));
                    ++total;
                }
            }
        },
        WriteQueue::Sharing::Alone);
    return Answer::json(summary(stopwatch, total, "deleted", 0));
}

} // namespace

void addByQueryHandlers(Router& router, Services& services) {
    using Params = Router::PathParams;
    const std::vector<std::string> allowed{
        "conflicts", "refresh", "timeout", "allow_no_indices", "ignore_unavailable", "expand_wildcards"};
    router.add({"POST"}, "{index}/_update_by_query", allowed,
               [&services](const Request& request, const Params& params) {
                   return updateByQuery(services, request, params.at("index"));
               });
    router.add({"POST"}, "{index}/_delete_by_query", allowed,
               [&services](const Request& request, const Params& params) {
                   return deleteByQuery(services, request, params.at("index"));
               });
}

} // namespace kestrel::index
