#include "base/ApiError.h"
#include "handlers/DocumentWrites.h"
#include "handlers/Handlers.h"

#include <fmt/format.h>

#include <optional>
#include <utility>

namespace kestrel::index {

namespace {

constexpr int kOptimisticAttempts = 4;

Answer answerOf(const WriteResult& result) {
    return {result.status(), "{" + result.members() + "}", {}};
}

Answer put(Services& services, const Request& request, const std::string& name, const std::string& id,
           bool createOnly) {
    request.user->require(createOnly ? RightCreateDocument : RightWriteDocument, name,
                          "indices:data/write/index");
    checkDocumentId(id);
    const IndexPtr index = indexForWrite(services, *request.user, name, id, request.body);
    const NewDocument document = NewDocument::parse(*index, id, request.body);
    WriteResult result;
    services.writes.run([&](WriteBatch& batch) { result = putDocument(batch, index, document, createOnly); });
    return answerOf(result);
}

bool createOnly(const Request& request) {
    const std::string type = request.param("op_type", "index");
    if (type != "index" && type != "create")
        throw illegalArgument(fmt::format("opType must be 'create' or 'index', found: [{}]", type));
    return type == "create";
}

struct Current {
    RowId row;
    StoredDocument document;
};

/// The current state of the document; nothing when it does not exist.
std::optional<Current> readCurrent(Services& services, const Index& index, const std::string& id) try {
    const auto attempt = [&]() -> std::pair<bool, std::optional<Current>> {
        const auto row = index.rowOf(id);
        if (!row) return {true, std::nullopt};
        auto document = services.store.read(*row);
        // A row that is gone has been replaced since it was looked up.
        if (!document) return {false, std::nullopt};
        return {true, Current{*row, std::move(*document)}};
    };
    for (int i = 0; i < kOptimisticAttempts; ++i)
        if (auto [settled, current] = attempt(); settled) return current;
    // It changes faster than it can be read: pause the writer.
    const auto paused = services.writes.pause();
    if (auto [settled, current] = attempt(); settled) return current;
    throw ApiError(500, "i_o_exception", fmt::format("document [{}] is missing from the store", id));
} catch (const DamagedRow& e) {
    throw damaged(index, e);
}

Answer get(Services& services, const Request& request, const std::string& name, const std::string& id) {
    request.user->require(RightRead, name, "indices:data/read/get");
    const IndexPtr index = services.catalogue.get(name);
    const auto found = readCurrent(services, *index, id);
    if (found)
        return {
            200,
            fmt::format(
                R"({{"_index":{},"_id":{},"_version":{},"_seq_no":{},"_primary_term":1,"found":true,"_source":{}}})",
                jsonString(name), jsonString(id), found->document.version, sequenceOf(found->row),
                found->document.source),
            {}};
    return Answer::json({{"_index", name}, {"_id", id}, {"found", false}}, 404);
}

Answer remove(Services& services, const Request& request, const std::string& name, const std::string& id) {
    request.user->require(RightDeleteDocument, name, "indices:data/write/delete");
    const IndexPtr index = services.catalogue.get(name);
    WriteResult result;
    services.writes.run([&](WriteBatch& batch) { result = deleteDocument(batch, index, id); });
    return answerOf(result);
}

Answer update(Services& services, const Request& request, const std::string& name, const std::string& id) {
    request.user->require(RightWriteDocument, name, "indices:data/write/update");
    checkDocumentId(id);
    const Update change(parseDocument(request.body));
    const IndexPtr index = services.catalogue.get(name);
    WriteResult result;
    services.writes.run([&](WriteBatch& batch) { result = change.apply(batch, index, id); });
    return answerOf(result);
}

} // namespace

void addDocumentHandlers(Router& router, Services& services) {
    using Params = Router::PathParams;
    const std::vector<std::string> writing{"op_type", "refresh", "timeout", "wait_for_active_shards"};
    router.add({"POST"}, "{index}/_doc", writing, [&services](const Request& request, const Params& params) {
        // A generated identifier is always new, whatever op_type says.
        request.user->require(RightCreateDocument, params.at("index"), "indices:data/write/index");
        return put(services, request, params.at("index"), makeDocumentId(), true);
    });
    router.add({"POST", "PUT"}, "{index}/_doc/{id}", writing,
               [&services](const Request& request, const Params& params) {
                   return put(services, request, params.at("index"), params.at("id"), createOnly(request));
               });
    router.add({"POST", "PUT"}, "{index}/_create/{id}", writing,
               [&services](const Request& request, const Params& params) {
                   return put(services, request, params.at("index"), params.at("id"), true);
               });
    router.add({"GET", "HEAD"}, "{index}/_doc/{id}", {"realtime", "refresh"},
               [&services](const Request& request, const Params& params) {
                   return get(services, request, params.at("index"), params.at("id"));
               });
    router.add({"DELETE"}, "{index}/_doc/{id}", writing,
               [&services](const Request& request, const Params& params) {
                   return remove(services, request, params.at("index"), params.at("id"));
               });
    router.add({"POST"}, "{index}/_update/{id}", writing,
               [&services](const Request& request, const Params& params) {
                   return update(services, request, params.at("index"), params.at("id"));
               });
}

} // namespace kestrel::index
