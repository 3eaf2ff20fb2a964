#include "kestrelml/store/Query.h"

#include "kestrelml/core/RequestTarget.h"

namespace kestrelml::detail {

Object::Ptr object(const std::string& key, const Var& value) {
    return object({{key, value}});
}

Object::Ptr object(std::initializer_list<std::pair<std::string, Var>> members) {
    Object::Ptr result = new Object;
    for (const auto& [key, value] : members)
        result->set(key, value);
    return result;
}

Object::Ptr term(const std::string& field, const Var& value) {
    return object("term", object(field, value));
}

Object::Ptr exists(const std::string& field) {
    return object("exists", object("field", field));
}

Object::Ptr nested(const std::string& path, const Object::Ptr& query) {
    return object("nested", object({{"path", path}, {"query", query}}));
}

Object::Ptr everything() {
    return object("match_all", Object::Ptr(new Object));
}

Object::Ptr allOf(Conditions conditions) {
    return allOf(toArray(conditions));
}

Object::Ptr allOf(const Array::Ptr& conditions) {
    return object("bool", object("must", conditions));
}

Object::Ptr anyOf(const Array::Ptr& conditions) {
    return object("bool", object({{"should", conditions}, {"minimum_should_match", 1}}));
}

Object::Ptr searchFor(const Object::Ptr& query) {
    return object("query", query);
}

Array::Ptr ascending(std::initializer_list<const char*> fields) {
    Array::Ptr order = new Array;
    for (const char* field : fields)
        order->add(object(field, object({{"order", "asc"}, {"mode", "min"}})));
    return order;
}

Object::Ptr bucketsBy(const std::string& field, int size) {
    Object::Ptr buckets = object("field", field);
    if (size > 0) buckets->set("size", size);
    return object("terms", buckets);
}

std::string searchPath(const std::string& index) {
    return index + "/_search";
}

std::string countPath(const std::string& index) {
    return index + "/_count";
}

std::string documentsPath(const std::string& index) {
    return index + "/_doc";
}

std::string documentPath(const std::string& index, const std::string& id) {
    return index + "/_doc/" + pathSegment(id);
}

std::string updatePath(const std::string& index, const std::string& id) {
    return index + "/_update/" + pathSegment(id);
}

std::string updateByQueryPath(const std::string& index) {
    return index + "/_update_by_query";
}

std::string deleteByQueryPath(const std::string& index) {
    return index + "/_delete_by_query";
}

std::string bulkPath(const std::string& index) {
    return index + "/_bulk";
}

} // namespace kestrelml::detail
