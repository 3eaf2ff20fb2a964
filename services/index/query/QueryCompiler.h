#pragma once

#include "query/Query.h"
#include "storage/DocumentStore.h"

#include <string>

namespace kestrel::index {

/// Turns the "query" object of a request into a query over one view. What is not supported is refused with
/// the error that Elasticsearch has for it.
class QueryCompiler {
public:
    QueryCompiler(const IndexView& view, DocumentStore& store) : mView(view), mStore(store) {}

    /// Null compiles to the query that matches everything.
    QueryPtr compile(const Json& query) const;

private:
    QueryPtr compile(const Json& query, SpaceId space, float boost, int depth) const;
    QueryPtr boolean(const Json& body, SpaceId space, float boost, int depth) const;
    QueryPtr term(const Json& body, SpaceId space, float boost) const;
    QueryPtr terms(const Json& body, SpaceId space, float boost) const;
    QueryPtr match(const Json& body, SpaceId space, float boost) const;
    QueryPtr exists(const Json& body, SpaceId space, float boost) const;
    QueryPtr nested(const Json& body, SpaceId space, float boost, int depth) const;
    QueryPtr scriptScore(const Json& body, SpaceId space, float boost, int depth) const;

    QueryPtr fieldTerm(const std::string& path, const Json& value, SpaceId space, float boost) const;
    QueryPtr textTerm(FieldId field, const std::string& term, SpaceId space, float boost) const;
    QueryPtr keywordTerm(FieldId field, const std::string& value, float boost) const;
    QueryPtr numberTerms(FieldId field, const Json& values, float boost) const;

    const IndexView& mView;
    DocumentStore& mStore;
    mutable std::size_t mClauses = 0;
};

/// Reads several numbers of one field from the documents themselves. After too many it throws an ApiError:
/// each costs the reading of a whole document while writers wait.
NumberReader numberReader(const IndexView& view, DocumentStore& store);

} // namespace kestrel::index
