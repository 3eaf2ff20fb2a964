#include "handlers/DocumentWrites.h"

#include "base/ApiError.h"
#include "base/RandomId.h"
#include "handlers/Handlers.h"

#include <fmt/format.h>

namespace kestrel::index {

namespace {

constexpr std::size_t kMaximumIdBytes = 512;
constexpr std::size_t kRandomIdBytes = 15;

void requireAlive(const IndexPtr& index) {
    if (index->deleted()) throw indexNotFound(index->name());
}

ApiError versionConflict(const IndexPtr& index, const std::string& id, std::int64_t version) {
    return {
        409,
        "version_conflict_engine_exception",
        fmt::format("[{}]: version conflict, document already exists (current version [{}])", id, version),
        {{"index_uuid", index->info().uuid}, {"shard", "0"}, {"index", index->name()}}};
}

/// Objects are merged member by member, everything else is replaced.
bool merge(Json& target, const Json& fields) {
    bool changed = false;
    for (const auto& [key, value] : fields.items()) {
        if (target.contains(key) && target[key].is_object() && value.is_object()) {
            changed |= merge(target[key], value);
        } else if (!target.contains(key) || target[key] != value) {
            target[key] = value;
            changed = true;
        }
    }
    return changed;
}

std::string_view trimmed(std::string_view text) {
    constexpr const char* kBlanks = " \t\r\n";
    const std::size_t start = text.find_first_not_of(kBlanks);
    return start == std::string_view::npos ? std::string_view()
                                           : text.substr(start, text.find_last_not_of(kBlanks) - start + 1);
}

} // namespace

Json WriteResult::toJson() const {
    return {
        {"_index", index},
        {"_id", id},
        {"_version", version},
        {"result", result},
        {"_shards", result == "noop" ? Json{{"total", 0}, {"successful", 0}, {"failed", 0}} : writeShards()},
        {"_seq_no", sequenceOf(row)},
        {"_primary_term", 1}};
}

NewDocument NewDocument::parse(Index& index, std::string id, std::string_view source) {
    NewDocument document{std::move(id), trimmed(source), nullptr};
    if (document.source.empty()) throw ApiError(400, "parse_exception", "request body is required");
    document.content = index.prepare(parseJson(document.source), document.id);
    return document;
}

std::string makeDocumentId() {
    return randomId(kRandomIdBytes);
}

void checkDocumentId(const std::string& id) {
    if (id.size() > kMaximumIdBytes)
        throw ApiError(
            400, "action_request_validation_exception",
            fmt::format("Validation Failed: 1: id [{}] is too long, must be no longer than {} bytes but was: "
                        "{};",
                        id, kMaximumIdBytes, id.size()));
}

WriteResult putDocument(WriteBatch& batch, const IndexPtr& index, const NewDocument& document,
                        bool createOnly) {
    requireAlive(index);
    const auto row = batch.rowOf(index, document.id);
    if (!row) {
        const RowId added = batch.add(index, document.id, document.source, document.content);
        return {index->name(), document.id, "created", 1, added};
    }
    const StoredDocument old = batch.load(*row);
    if (createOnly) throw versionConflict(index, document.id, old.version);
    const RowId replaced = batch.replace(index, old, *row, document.source, document.content);
    return {index->name(), document.id, "updated", old.version + 1, replaced};
}

WriteResult deleteDocument(WriteBatch& batch, const IndexPtr& index, const std::string& id) {
    requireAlive(index);
    const auto row = batch.rowOf(index, id);
    if (!row) return {index->name(), id, "not_found", 1, index->takeRow()};
    const StoredDocument old = batch.load(*row);
    batch.remove(index, old, *row);
    return {index->name(), id, "deleted", old.version + 1, index->takeRow()};
}

WriteResult replaceDocument(WriteBatch& batch, const IndexPtr& index, const StoredDocument& old, RowId oldRow,
                            const Json& source) {
    const std::string text = source.dump();
    const RowId row = batch.replace(index, old, oldRow, text, index->prepare(source, old.id));
    return {index->name(), old.id, "updated", old.version + 1, row};
}

Update::Update(const Json& body) {
    if (!body.is_object()) throw parsingError("the body of an update must be an object");
    for (const auto& [key, value] : body.items()) {
        if (key == "doc" && value.is_object())
            mFields = value;
        else if (key == "script")
            mScript.emplace(value);
        else
            throw ApiError(400, "x_content_parse_exception",
                           fmt::format("[UpdateRequest] unknown field [{}]", key));
    }
    if (mScript && !mFields.is_null())
        throw ApiError(400, "action_request_validation_exception",
                       "Validation Failed: 1: can't provide both script and doc;");
    if (!mScript && mFields.is_null())
        throw ApiError(400, "action_request_validation_exception",
                       "Validation Failed: 1: script or doc is missing;");
}

WriteResult Update::apply(WriteBatch& batch, const IndexPtr& index, const std::string& id) const {
    requireAlive(index);
    const auto row = batch.rowOf(index, id);
    if (!row)
        throw ApiError(404, "document_missing_exception", fmt::format("[{}]: document missing", id),
                       {{"index_uuid", index->info().uuid}, {"shard", "0"}, {"index", index->name()}});
    const StoredDocument old = batch.load(*row);
    Json source = parseJson(old.source);
    if (mScript)
        mScript->run(source);
    else if (!merge(source, mFields))
        return {index->name(), id, "noop", old.version, *row};
    return replaceDocument(batch, index, old, *row, source);
}

} // namespace kestrel::index
