#include "base/ApiError.h"
#include "base/Parallel.h"
#include "base/Work.h"
#include "handlers/DocumentWrites.h"
#include "handlers/Handlers.h"

#include <fmt/format.h>

#include <exception>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

namespace kestrel::index {

namespace {

/// Documents of one transaction: enough to be fast, few enough not to hold up other writers.
constexpr std::size_t kDocumentsAtOnce = 2000;
/// A parsed document takes several times the memory of its text.
constexpr std::size_t kPreparedPerByte = 4;
constexpr std::size_t kItemBytes = 400; ///< of the answer

/// One action of a bulk request. A failed action does not affect the others.
struct Action {
    std::string kind;
    IndexPtr index;
    std::string indexName;
    std::string id;
    std::string_view source;             ///< of all but a deletion
    std::optional<NewDocument> document; ///< create, index
    std::optional<Update> update;
    std::optional<ApiError> error;
    WriteResult result;

    std::string item() const {
        if (!error)
            return fmt::format(R"({{"{}":{{{},"status":{}}}}})", kind, result.members(), result.status());
        const Json shown = {
            {kind,
             {{"_index", indexName}, {"_id", id}, {"status", error->status()}, {"error", error->cause()}}}};
        return shown.dump(-1, ' ', false, Json::error_handler_t::replace);
    }
};

class BulkRequest {
public:
    BulkRequest(Services& services, const Request& request, std::string defaultIndex)
        : mServices(services), mRequest(request), mDefaultIndex(std::move(defaultIndex)) {
        if (request.body.empty()) throw ApiError(400, "parse_exception", "request body is required");
        if (request.body.back() != '\n')
            throw illegalArgument("The bulk request must be terminated by a newline [\\n]");
        parse();
        for (Action& action : mActions)
            tryPrepare(action);
        parseDocuments();
    }

    Answer run() {
        const Stopwatch stopwatch;
        for (std::size_t start = 0; start < mActions.size(); start += kDocumentsAtOnce) {
            const std::size_t end = std::min(start + kDocumentsAtOnce, mActions.size());
            try {
                mServices.writes.run([&](WriteBatch& batch) {
                    for (std::size_t i = start; i < end; ++i)
                        apply(batch, mActions[i]);
                });
            } catch (const ApiError& e) {
                refuse(start, end, e);
            } catch (const std::exception& e) { // earlier documents are stored
                refuse(start, end, {500, "exception", e.what()});
            }
        }
        bool errors = false;
        std::string items;
        for (const Action& action : mActions) {
            errors = errors || action.error;
            if (!items.empty()) items += ',';
            items += action.item();
        }
        return {
            200,
            fmt::format(R"({{"errors":{},"took":{},"items":[{}]}})", errors, stopwatch.milliseconds(), items),
            {}};
    }

private:
    std::optional<std::string_view> nextLine() {
        const std::string_view body = mRequest.body;
        if (mPosition >= body.size()) return std::nullopt;
        const std::size_t end = body.find('\n', mPosition);
        const std::string_view line = body.substr(mPosition, end - mPosition);
        mPosition = end + 1;
        ++mLine;
        return line;
    }

    void parse() {
        while (const auto line = nextLine()) {
            if (line->find_first_not_of(" \t\r") == std::string_view::npos) continue;
            const Json action = parseJson(*line);
            if (!action.is_object() || action.size() != 1 || !action.begin().value().is_object())
                throw illegalArgument(
                    fmt::format("Malformed action/metadata line [{}], expected one action", mLine));
            parseAction(action.begin().key(), action.begin().value());
        }
        if (mActions.empty())
            throw ApiError(400, "action_request_validation_exception",
                           "Validation Failed: 1: no requests added;");
    }

    void parseAction(const std::string& kind, const Json& meta) {
        if (kind != "create" && kind != "index" && kind != "delete" && kind != "update")
            throw illegalArgument(
                fmt::format("Malformed action/metadata line [{}], expected field [create], [delete], "
                            "[index] or [update] but found [{}]",
                            mLine, kind));
        Action action;
        action.kind = kind;
        action.indexName = mDefaultIndex;
        for (const auto& [key, value] : meta.items()) {
            if (key == "_index" && value.is_string())
                action.indexName = value;
            else if (key == "_id" && value.is_string())
                action.id = value;
            else
                throw illegalArgument(
                    fmt::format("Action/metadata line [{}] contains an unknown parameter [{}]", mLine, key));
        }
        if (action.indexName.empty())
            throw ApiError(400, "action_request_validation_exception",
                           "Validation Failed: 1: index is missing;");
        const auto source = kind == "delete" ? std::optional(std::string_view()) : nextLine();
        if (!source)
            throw illegalArgument(
                fmt::format("Malformed action/metadata line [{}]: its document is missing", mLine));
        action.source = *source;
        takeMemory(sizeof(Action) + kItemBytes + kPreparedPerByte * source->size());
        mActions.push_back(std::move(action));
    }

    void tryPrepare(Action& action) {
        try {
            prepare(action);
        } catch (const ApiError& e) {
            action.error = e;
        }
    }

    /// Most of the time of a bulk request goes into this: all processors take part.
    void parseDocuments() {
        constexpr std::size_t kSmallestPiece = 16;
        std::mutex mutex;
        std::exception_ptr failure;
        inParallel(mActions.size(), kSmallestPiece, [&](std::size_t first, std::size_t last) {
            try {
                for (; first < last; ++first)
                    parseDocumentOf(mActions[first]);
            } catch (...) {
                const std::lock_guard lock(mutex);
                failure = std::current_exception();
            }
        });
        if (failure) std::rethrow_exception(failure);
    }

    static void parseDocumentOf(Action& action) try {
        if (action.error || action.kind == "delete") return;
        if (action.kind == "update")
            action.update.emplace(parseDocument(action.source));
        else
            action.document = NewDocument::parse(*action.index, action.id, action.source);
    } catch (const ApiError& e) {
        action.error = e;
    }

    void prepare(Action& action) {
        const Right right = action.kind == "delete"   ? RightDeleteDocument
                            : action.kind == "create" ? RightCreateDocument
                                                      : RightWriteDocument;
        mRequest.user->require(right, action.indexName, "indices:data/write/bulk[s]");
        if (action.id.empty()) {
            if (action.kind == "delete" || action.kind == "update")
                throw ApiError(400, "action_request_validation_exception",
                               "Validation Failed: 1: an id must be provided;");
            action.id = makeDocumentId();
        }
        checkDocumentId(action.id);
        const bool mayCreate = action.kind != "delete" && action.kind != "update";
        action.index =
            mayCreate ? indexForWrite(mServices, *mRequest.user, action.indexName, action.id, action.source)
                      : mServices.catalogue.get(action.indexName);
    }

    void refuse(std::size_t start, std::size_t end, const ApiError& error) {
        for (std::size_t i = start; i < end; ++i)
            if (mActions[i].index) mActions[i].error = error;
    }

    static void apply(WriteBatch& batch, Action& action) {
        if (!action.index || (action.kind != "delete" && !action.document && !action.update)) return;
        action.error.reset();
        try {
            if (action.kind == "delete")
                action.result = deleteDocument(batch, action.index, action.id);
            else if (action.update)
                action.result = action.update->apply(batch, action.index, action.id);
            else
                action.result = putDocument(batch, action.index, *action.document, action.kind == "create");
        } catch (const ApiError& e) {
            action.error = e;
        }
    }

    Services& mServices;
    const Request& mRequest;
    std::string mDefaultIndex;
    std::size_t mPosition = 0;
    std::size_t mLine = 0;
    std::vector<Action> mActions;
};

} // namespace

void addBulkHandlers(Router& router, Services& services) {
    const std::vector<std::string> allowed{"refresh", "timeout", "wait_for_active_shards"};
    router.add({"PUT", "POST"}, "{index}/_bulk", allowed,
               [&services](const Request& request, const Router::PathParams& params) {
                   return BulkRequest(services, request, params.at("index")).run();
               });
    router.add({"PUT", "POST"}, "_bulk", allowed,
               [&services](const Request& request, const Router::PathParams&) {
                   return BulkRequest(services, request, "").run();
               });
}

} // namespace kestrel::index
