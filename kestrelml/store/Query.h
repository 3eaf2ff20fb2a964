#pragma once

/// @file
/// Request bodies and paths. Internal.

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include <initializer_list>
#include <string>

namespace kestrelml::detail {

using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

/// {key: value}
Object::Ptr object(const std::string& key, const Var& value);
Array::Ptr array(std::initializer_list<Var> elements);
template <typename Range>
Array::Ptr toArray(const Range& elements) {
    Array::Ptr result = new Array;
    for (const auto& element : elements)
        result->add(element);
    return result;
}

/// {"term": {field: value}}
Object::Ptr term(const std::string& field, const Var& value);
/// {"query": {"bool": {"must": [conditions]}}}
Object::Ptr matchingAll(const Array::Ptr& conditions);

/// The field that holds a document's project, which schema version 2 made a list.
std::string projectField(int version);
bool isKnownVersion(int version);

/// Path of the document `id`, whatever characters it has.
std::string documentPath(const std::string& index, const std::string& id);
/// Path for changing a part of that document.
std::string updatePath(const std::string& index, const std::string& id);

} // namespace kestrelml::detail
