#include "kestrelml/store/Query.h"

#include "kestrelml/core/RequestTarget.h"

namespace kestrelml::detail {

Object::Ptr object(const std::string& key, const Var& value) {
    Object::Ptr result = new Object;
    result->set(key, value);
    return result;
}

Array::Ptr array(std::initializer_list<Var> elements) {
    return toArray(elements);
}

Object::Ptr term(const std::string& field, const Var& value) {
    return object("term", object(field, value));
}

Object::Ptr matchingAll(const Array::Ptr& conditions) {
    return object("query", object("bool", object("must", conditions)));
}

std::string projectField(int version) {
    return version == 1 ? "projectGuid.keyword" : "projectGuidList.keyword";
}

bool isKnownVersion(int version) {
    return version == 1 || version == 2;
}

std::string documentPath(const std::string& index, const std::string& id) {
    return index + "/_doc/" + pathSegment(id);
}

std::string updatePath(const std::string& index, const std::string& id) {
    return index + "/_update/" + pathSegment(id);
}

} // namespace kestrelml::detail
