#include "kestrelml/store/Answer.h"

#include <Poco/Exception.h>

#include <stdexcept>

namespace kestrelml::detail {

using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

Var memberOf(const Object& object, const std::string& key) {
    Var value = object.get(key);
    if (value.isEmpty()) throw Poco::NotFoundException("the answer has no \"" + key + "\"");
    return value;
}

std::string textOf(const Object& object, const std::string& key) {
    return memberOf(object, key).convert<std::string>();
}

std::int32_t integerOf(const Object& object, const std::string& key) {
    return memberOf(object, key).convert<Poco::Int32>();
}

Object::Ptr objectOf(const Object& object, const std::string& key) {
    memberOf(object, key);
    Object::Ptr result = object.getObject(key);
    if (result.isNull()) throw Poco::DataFormatException("\"" + key + "\" is not an object");
    return result;
}

Array::Ptr arrayOf(const Object& object, const std::string& key) {
    memberOf(object, key);
    Array::Ptr result = object.getArray(key);
    if (result.isNull()) throw Poco::DataFormatException("\"" + key + "\" is not an array");
    return result;
}

std::vector<std::string> textsOf(const Object& object, const std::string& key) {
    std::vector<std::string> texts;
    for (const Var& element : *arrayOf(object, key))
        texts.push_back(element.convert<std::string>());
    return texts;
}

Object::Ptr objectAt(const Array& array, std::size_t position) {
    Object::Ptr result = array.getObject(static_cast<unsigned>(position));
    if (result.isNull())
        throw Poco::DataFormatException("an array of the answer holds something other than objects");
    return result;
}

std::int32_t integerAt(const Array& array, std::size_t position) {
    if (position >= array.size()) throw std::out_of_range("array of the answer is too short");
    return array.get(static_cast<unsigned>(position)).convert<Poco::Int32>();
}

Array::Ptr hitsOf(const Object& answer) {
    return arrayOf(*objectOf(answer, "hits"), "hits");
}

Object::Ptr onlyHitOf(const Object& answer) {
    const Object::Ptr outer = answer.getObject("hits");
    if (outer.isNull()) return nullptr;
    const Array::Ptr hits = outer->getArray("hits");
    return !hits.isNull() && hits->size() == 1 ? objectAt(*hits, 0) : nullptr;
}

std::string idOf(const Object& hit) {
    return textOf(hit, "_id");
}

Object::Ptr sourceOf(const Object& hit) {
    return objectOf(hit, "_source");
}

std::string scrollIdOf(const Object& answer) {
    return textOf(answer, "_scroll_id");
}

Object::Ptr aggregationOf(const Object& answer, const std::string& name) {
    return objectOf(*objectOf(answer, "aggregations"), name);
}

Array::Ptr bucketsOf(const Object& aggregation) {
    return arrayOf(aggregation, "buckets");
}

std::string keyOf(const Object& bucket) {
    return textOf(bucket, "key");
}

int countOf(const Object& bucket) {
    return integerOf(bucket, "doc_count");
}

std::string deletedOf(const Object& answer) {
    return Var::toString(answer.get("deleted"));
}

std::string firstErrorOf(const Object& bulkAnswer) {
    if (!bulkAnswer.optValue("errors", false)) return "";
    for (const Object::Ptr& item : ObjectsOf(arrayOf(bulkAnswer, "items"))) {
        const Object::Ptr result = item->getObject("create");
        const Object::Ptr error = result.isNull() ? nullptr : result->getObject("error");
        if (!error.isNull()) return error->optValue<std::string>("reason", "no reason given");
    }
    return "no reason given";
}

} // namespace kestrelml::detail
