#pragma once

#include "query/Query.h"
#include "storage/DocumentStore.h"

#include <string>

namespace kestrel::index {

/// Compiles the "query" object of a request for one view. Throws the ApiError that corresponds to
/// Elasticsearch's error for what is invalid or not supported.
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

/// Reads multiple numbers of a field from the documents. Throws an ApiError after too many documents, since
/// each is read and parsed while writers wait.
NumberReader numberReader(const IndexView& view, DocumentStore& store);

} // namespace kestrel::index
