#include "handlers/DocumentWrites.h"

#include "base/ApiError.h"
#include "base/RandomId.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>

namespace kestrel::index {

namespace {

constexpr std::size_t kMaximumIdBytes = 512;
constexpr std::size_t kMaximumDocumentBytes = std::size_t{100} * 1024 * 1024;
constexpr std::size_t kSearchedMembers = 24;

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

/// Finds the members of an object, through a table if it is large.
class Members {
public:
    explicit Members(Json& object) : mMembers(object.get_ref<Json::object_t&>()) {
        if (mMembers.size() < kSearchedMembers) return;
        for (std::size_t i = 0; i < mMembers.size(); ++i)
            mPlaces.emplace(mMembers[i].first, i);
    }
    Json* find(const std::string& key) {
        if (!mPlaces.empty()) {
            const auto known = mPlaces.find(key);
            return known == mPlaces.end() ? nullptr : &mMembers[known->second].second;
        }
        const auto known = std::find_if(mMembers.begin(), mMembers.end(),
                                        [&](const auto& member) { return member.first == key; });
        return known == mMembers.end() ? nullptr : &known->second;
    }
    void add(const std::string& key, const Json& value) {
        if (!mPlaces.empty()) mPlaces.emplace(key, mMembers.size());
        mMembers.emplace_back(key, value);
    }

private:
    Json::object_t::Container& mMembers;
    std::unordered_map<std::string, std::size_t> mPlaces;
};

/// Objects are merged member by member, everything else is replaced.
bool merge(Json& target, const Json& fields) {
    bool changed = false;
    Members members(target);
    for (const auto& [key, value] : fields.items()) {
        Json* const known = members.find(key);
        if (known != nullptr && known->is_object() && value.is_object()) {
            changed |= merge(*known, value);
        } else if (known == nullptr) {
            members.add(key, value);
            changed = true;
        } else if (*known != value ||
                   valueText(*known) != valueText(value)) { // 1 == 1.0, but they are different documents
            *known = value;
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

Json parseRequired(std::string_view source) {
    if (source.empty()) throw ApiError(400, "parse_exception", "request body is required");
    return parseDocument(source);
}

} // namespace

std::string WriteResult::members() const {
    // Put together as text: a bulk request is answered with thousands of these.
    const int shards = result == "noop" ? 0 : 1;
    return fmt::format(
        R"("_index":{},"_id":{},"_version":{},"result":"{}","_shards":{{"total":{},"successful":{},"failed":0}},)"
        R"("_seq_no":{},"_primary_term":1)",
        jsonString(index), jsonString(id), version, result, shards, shards, sequenceOf(row));
}

NewDocument NewDocument::parse(const Index& index, std::string id, std::string_view source) {
    NewDocument document{std::move(id), trimmed(source), nullptr};
    document.content = index.prepare(parseRequired(document.source), document.id);
    return document;
}

IndexPtr indexForWrite(Services& services, const Principal& user, const std::string& name,
                       const std::string& id, std::string_view source) {
    if (IndexPtr index = services.catalogue.find(name)) return index;
    user.require(RightCreateIndex, name, "indices:admin/auto_create");
    Mapping empty;
    DocumentParser(empty).parse(parseRequired(trimmed(source)), id);
    return services.catalogue.getOrCreate(name);
}

std::string makeDocumentId() {
    return timeOrderedId();
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
    std::optional<WriteBatch::Old> old;
    if (row) old = batch.loadOld(index, document.id, *row);
    if (old && createOnly) throw versionConflict(index, document.id, old->document.version);
    const Prepared content = document.content
                                 ? document.content
                                 : batch.prepare(index, parseDocument(document.source), document.id);
    const auto written = old ? batch.replace(index, *old, document.source, content)
                             : batch.add(index, document.id, document.source, content);
    return {index->name(), document.id, old ? "updated" : "created", written.version, written.row};
}

WriteResult deleteDocument(WriteBatch& batch, const IndexPtr& index, const std::string& id) {
    requireAlive(index);
    const auto row = batch.rowOf(index, id);
    if (!row) return {index->name(), id, "not_found", 1, batch.takeRow(index)};
    const auto written = batch.remove(index, batch.loadOld(index, id, *row));
    return {index->name(), id, "deleted", written.version, written.row};
}

Json parsedSource(const WriteBatch& batch, const IndexPtr& index, WriteBatch::Old& old) try {
    Json source = parseStored(old.document.source);
    old.content = batch.contentOf(index, old.document.id, source);
    return source;
} catch (const Json::exception& e) {
    throw ApiError(500, "i_o_exception",
                   fmt::format("document [{}] is damaged: {}", old.document.id, e.what()));
}

WriteResult replaceDocument(WriteBatch& batch, const IndexPtr& index, const WriteBatch::Old& old,
                            const Json& source) {
    const std::string text = documentText(source);
    if (text.size() > kMaximumDocumentBytes)
        throw ApiError(413, "content_too_long_exception",
                       fmt::format("document [{}] would be longer than [{}] bytes", old.document.id,
                                   kMaximumDocumentBytes));
    const Prepared content = batch.prepare(index, source, old.document.id);
    const auto written = batch.replace(index, old, text, content);
    return {index->name(), old.document.id, "updated", written.version, written.row};
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
    WriteBatch::Old old{batch.load(*row), *row};
    Json source = parsedSource(batch, index, old);
    if (mScript)
        mScript->run(source);
    else if (!merge(source, mFields))
        return {index->name(), id, "noop", old.document.version, *row};
    return replaceDocument(batch, index, old, source);
}

} // namespace kestrel::index
