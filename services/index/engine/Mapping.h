#pragma once

#include "base/Json.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel::index {

enum class FieldType : std::uint8_t { Text, Keyword, Integer, Floating, Boolean, Vector, Object, Nested };

using FieldId = std::uint32_t;
/// Where a field's documents are counted: 0 are the documents themselves, each nested path has its own.
using SpaceId = std::uint32_t;

constexpr std::size_t kMaximumDimensions = 4096;

struct Field {
    std::string path;
    FieldType type;
    std::string typeName;                ///< as the mapping writes it, such as "long"
    SpaceId space = 0;                   ///< the space in which the field lies
    SpaceId ownSpace = 0;                ///< nested: the space that it opens
    std::size_t ignoreAbove = SIZE_MAX;  ///< keyword: longer values (UTF-16 units) are not indexed
    std::size_t dimensions = 0;          ///< vector: 0 until the first value fixes it
    bool subField = false;               ///< lies below a text field and takes the same values
    std::vector<FieldId> subFields = {}; ///< text: its sub-fields for exact matches

    bool isNumber() const { return type == FieldType::Integer || type == FieldType::Floating; }
};

/// Which fields an index has and how each is indexed. Fields are added, never changed or removed, and keep
/// their numbers: what was prepared with a mapping fits every later state of it.
class Mapping {
public:
    Mapping() = default;
    /// mappings: the "mappings" object of a create request. Refuses what cannot be mapped.
    explicit Mapping(const Json& mappings);

    /// As toStored wrote it. Throws Json::exception when it is damaged.
    static Mapping fromStored(const Json& fields);
    /// As the first format of the store kept it: a "mappings" object, in which fields that would be refused
    /// today are left out.
    static Mapping fromFirstFormat(const Json& mappings);
    Json toStored() const;

    const Field* find(std::string_view path) const;
    std::optional<FieldId> idOf(std::string_view path) const;
    const Field& at(FieldId id) const { return mFields[id]; }
    FieldId size() const { return static_cast<FieldId>(mFields.size()); }
    SpaceId spaces() const { return mSpaces; }
    std::vector<FieldId> below(std::string_view objectPath) const;

    /// Adds a field seen for the first time in a document: text gets its keyword sub-field.
    FieldId addDynamic(const std::string& path, FieldType type, SpaceId space);
    void fixDimensions(FieldId id, std::size_t dimensions) { mFields[id].dimensions = dimensions; }

    /// The "mappings" object as requests show it.
    Json toJson() const;

private:
    enum class Refused { Fails, LeftOut };

    void addRoot(const Json& mappings, Refused refused);
    void addProperties(const Json& properties, const std::string& prefix, SpaceId space, Refused refused);
    void addProperty(const std::string& prefix, const std::string& name, const Json& property, SpaceId space,
                     Refused refused);
    void addSubField(FieldId text, const std::string& name, const Json& property);
    /// The space of the objects at the path, which become objects when nothing is there yet.
    SpaceId enterObject(const std::string& path, SpaceId space);
    FieldId add(Field field);

    std::deque<Field> mFields; ///< fields stay where they are, so that readers may hold on to one
    std::map<std::string, FieldId, std::less<>> mByPath;
    SpaceId mSpaces = 1;
};

/// Throws a mapper_parsing_exception unless the name can be one of a field: not empty and without empty parts
/// between its dots.
void checkFieldName(const std::string& prefix, const std::string& name);

} // namespace kestrel::index
