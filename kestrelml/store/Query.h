#pragma once

/// @file
/// Request bodies and paths. The JSON below names its clauses as the service does. Internal.

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include <initializer_list>
#include <string>
#include <utility>

namespace kestrelml::detail {

using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

/// The most hits or buckets that one search of the service gives.
inline constexpr int kMaximumHits = 10000;

/// {key: value}
Object::Ptr object(const std::string& key, const Var& value);
Object::Ptr object(std::initializer_list<std::pair<std::string, Var>> members);
template <typename Range>
Array::Ptr toArray(const Range& elements) {
    Array::Ptr result = new Array;
    for (const auto& element : elements)
        result->add(element);
    return result;
}

using Conditions = std::initializer_list<Object::Ptr>;

/// {"term": {field: value}}
Object::Ptr term(const std::string& field, const Var& value);
/// {"terms": {field: [values]}}
template <typename Range>
Object::Ptr terms(const std::string& field, const Range& values) {
    return object("terms", object(field, toArray(values)));
}
/// {"exists": {"field": field}}
Object::Ptr exists(const std::string& field);
/// {"nested": {"path": path, "query": query}}
Object::Ptr nested(const std::string& path, const Object::Ptr& query);
/// {"match_all": {}}
Object::Ptr everything();
/// {"bool": {"must": [conditions]}}
Object::Ptr allOf(Conditions conditions);
Object::Ptr allOf(const Array::Ptr& conditions);
/// {"bool": {"should": [conditions], "minimum_should_match": 1}}
Object::Ptr anyOf(const Array::Ptr& conditions);

/// {"query": query}
Object::Ptr searchFor(const Object::Ptr& query);
/// The value of "sort": by each of the fields in turn, lowest first.
Array::Ptr ascending(std::initializer_list<const char*> fields);

/// {"terms": {"field": field}}, the aggregation; `size` 0 leaves the number of buckets to the service (10).
Object::Ptr bucketsBy(const std::string& field, int size = 0);

/// Paths of requests on an index. Document identifiers may hold any characters.
std::string searchPath(const std::string& index);
std::string countPath(const std::string& index);
std::string documentsPath(const std::string& index);
std::string documentPath(const std::string& index, const std::string& id);
std::string updatePath(const std::string& index, const std::string& id);
std::string updateByQueryPath(const std::string& index);
std::string deleteByQueryPath(const std::string& index);
std::string bulkPath(const std::string& index);

} // namespace kestrelml::detail
