#pragma once

#include "handlers/Handlers.h"
#include "scripts/UpdateScripts.h"

#include <optional>
#include <string>
#include <string_view>

namespace kestrel::index {

/// A document that was written or deleted, as answers show it.
struct WriteResult {
    std::string index;
    std::string id;
    std::string result; ///< "created", "updated", "deleted", "not_found" or "noop"
    std::int64_t version = 1;
    RowId row = 0;

    /// The members of the JSON object that tells of it.
    std::string members() const;
    int status() const { return result == "created" ? 201 : result == "not_found" ? 404 : 200; }
};

/// A document of a request, checked and parsed before the writer sees it.
struct NewDocument {
    std::string id;
    std::string_view source; ///< must stay valid until it is written
    Prepared content;        ///< null when the mapping lacks some of its fields, which the writer then adds

    static NewDocument parse(const Index& index, std::string id, std::string_view source);
};

/// The index of that name; created if it does not exist, the user may, and a new index accepts the document.
IndexPtr indexForWrite(Services& services, const Principal& user, const std::string& name,
                       const std::string& id, std::string_view source);

std::string makeDocumentId();
void checkDocumentId(const std::string& id);

// Writes of one document, inside a job of the write queue.
WriteResult putDocument(WriteBatch& batch, const IndexPtr& index, const NewDocument& document,
                        bool createOnly);
WriteResult deleteDocument(WriteBatch& batch, const IndexPtr& index, const std::string& id);

/// An update: fields to be merged into the document, or a script.
class Update {
public:
    explicit Update(const Json& body);
    WriteResult apply(WriteBatch& batch, const IndexPtr& index, const std::string& id) const;

private:
    Json mFields;
    std::optional<UpdateScript> mScript;
};

/// Parses the document for a change that replaceDocument then writes, and notes in `old` what the index
/// holds of it. Throws an ApiError when the document is damaged.
Json parsedSource(const WriteBatch& batch, const IndexPtr& index, WriteBatch::Old& old);

/// Writes the next state of an existing document.
WriteResult replaceDocument(WriteBatch& batch, const IndexPtr& index, const WriteBatch::Old& old,
                            const Json& source);

} // namespace kestrel::index
