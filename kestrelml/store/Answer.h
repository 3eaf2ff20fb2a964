#pragma once

/// @file
/// Reading the index service's answers. What is missing or of another kind is thrown as a Poco exception that
/// names the key. Internal.

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace kestrelml::detail {

Poco::Dynamic::Var memberOf(const Poco::JSON::Object& object, const std::string& key);
std::string textOf(const Poco::JSON::Object& object, const std::string& key);
std::int32_t integerOf(const Poco::JSON::Object& object, const std::string& key);
Poco::JSON::Object::Ptr objectOf(const Poco::JSON::Object& object, const std::string& key);
Poco::JSON::Array::Ptr arrayOf(const Poco::JSON::Object& object, const std::string& key);
std::vector<std::string> textsOf(const Poco::JSON::Object& object, const std::string& key);

Poco::JSON::Object::Ptr objectAt(const Poco::JSON::Array& array, std::size_t position);
/// Beyond the end it throws std::out_of_range.
std::int32_t integerAt(const Poco::JSON::Array& array, std::size_t position);

/// The elements of an array that holds objects, for a range-based loop. An element of another kind throws
/// when the loop comes to it.
class ObjectsOf {
public:
    explicit ObjectsOf(Poco::JSON::Array::Ptr array) : mArray(std::move(array)) {}

    class Iterator {
    public:
        Iterator(const Poco::JSON::Array& array, std::size_t position)
            : mArray(&array), mPosition(position) {}
        Poco::JSON::Object::Ptr operator*() const { return objectAt(*mArray, mPosition); }
        Iterator& operator++() {
            ++mPosition;
            return *this;
        }
        bool operator!=(const Iterator& other) const { return mPosition != other.mPosition; }

    private:
        const Poco::JSON::Array* mArray;
        std::size_t mPosition;
    };

    Iterator begin() const { return {*mArray, 0}; }
    Iterator end() const { return {*mArray, mArray->size()}; }

private:
    Poco::JSON::Array::Ptr mArray;
};

/// The hits of a search, best first or in the order asked for.
Poco::JSON::Array::Ptr hitsOf(const Poco::JSON::Object& answer);
/// The one hit of a search that must have one; null when it has none, several, or no hits at all.
Poco::JSON::Object::Ptr onlyHitOf(const Poco::JSON::Object& answer);
/// Identifier of a hit, or of a document just created.
std::string idOf(const Poco::JSON::Object& hit);
/// The stored document of a hit.
Poco::JSON::Object::Ptr sourceOf(const Poco::JSON::Object& hit);
std::string scrollIdOf(const Poco::JSON::Object& answer);

/// The aggregation `name` of an answer.
Poco::JSON::Object::Ptr aggregationOf(const Poco::JSON::Object& answer, const std::string& name);
/// The buckets of an aggregation; the value that one of them counts, and how often there is one.
Poco::JSON::Array::Ptr bucketsOf(const Poco::JSON::Object& aggregation);
std::string keyOf(const Poco::JSON::Object& bucket);
int countOf(const Poco::JSON::Object& bucket);

/// How many documents a deletion by query deleted, for printing.
std::string deletedOf(const Poco::JSON::Object& answer);
/// What a bulk request says of the first document that it did not create; empty when it created all.
std::string firstErrorOf(const Poco::JSON::Object& bulkAnswer);

} // namespace kestrelml::detail
