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

enum class FieldType : std::uint8_t { text, keyword, integer, floating, boolean, vector, object, nested };

using FieldId = std::uint32_t;
/// Where a field's documents are counted: 0 are the documents themselves, each nested path has its own.
using SpaceId = std::uint32_t;

struct Field {
    std::string path;
    FieldType type;
    std::string typeName;                ///< as the mapping writes it, such as "long"
    SpaceId space = 0;                   ///< the space in which the field lies
    SpaceId ownSpace = 0;                ///< nested: the space that it opens
    std::size_t ignoreAbove = SIZE_MAX;  ///< keyword: longer values (UTF-16 units) are not indexed
    std::size_t dimensions = 0;          ///< vector: 0 until the first value fixes it
    bool subField = false;               ///< lies below a text field and takes the same values
    std::optional<FieldId> keyword = {}; ///< text: its sub-field for exact matches

    bool isNumber() const { return type == FieldType::integer || type == FieldType::floating; }
};

/// Which fields an index has and how each is indexed. Fields are added, never changed or removed.
class Mapping {
public:
    Mapping() = default;
    /// mappings: the "mappings" object of a create request or as toJson wrote it.
    explicit Mapping(const Json& mappings);

    const Field* find(std::string_view path) const;
    std::optional<FieldId> idOf(std::string_view path) const;
    const Field& at(FieldId id) const { return mFields[id]; }
    FieldId size() const { return static_cast<FieldId>(mFields.size()); }
    SpaceId spaces() const { return mSpaces; }
    std::vector<FieldId> below(std::string_view objectPath) const;

    /// Adds a field seen for the first time in a document: text gets its keyword sub-field.
    FieldId addDynamic(const std::string& path, FieldType type, SpaceId space);
    void fixDimensions(FieldId id, std::size_t dimensions) { mFields[id].dimensions = dimensions; }

    Json toJson() const;

private:
    void addProperties(const Json& properties, const std::string& prefix, SpaceId space);
    void addProperty(const std::string& path, const Json& property, SpaceId space);
    FieldId add(Field field);

    std::deque<Field> mFields; ///< fields stay where they are, so that readers may hold on to one
    std::map<std::string, FieldId, std::less<>> mByPath;
    SpaceId mSpaces = 1;
};

} // namespace kestrel::index
