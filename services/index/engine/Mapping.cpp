#include "engine/Mapping.h"

#include "base/ApiError.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

namespace kestrel::index {

namespace {

constexpr FieldId kMaximumFields = 1000;
constexpr std::size_t kMaximumDimensions = 4096;
constexpr std::size_t kDynamicIgnoreAbove = 256;

constexpr std::array<std::pair<std::string_view, FieldType>, 13> kTypeNames{{
    {"text", FieldType::text},
    {"keyword", FieldType::keyword},
    {"long", FieldType::integer},
    {"integer", FieldType::integer},
    {"short", FieldType::integer},
    {"byte", FieldType::integer},
    {"float", FieldType::floating},
    {"double", FieldType::floating},
    {"half_float", FieldType::floating},
    {"boolean", FieldType::boolean},
    {"dense_vector", FieldType::vector},
    {"object", FieldType::object},
    {"nested", FieldType::nested},
}};

ApiError mapperError(const std::string& reason) {
    return {400, "mapper_parsing_exception", reason};
}

FieldType typeOf(const std::string& path, const std::string& name) {
    for (const auto& [known, type] : kTypeNames)
        if (known == name) return type;
    throw mapperError(fmt::format("No handler for type [{}] declared on field [{}]", name, path));
}

std::string dynamicTypeName(FieldType type) {
    switch (type) {
    case FieldType::text:
        return "text";
    case FieldType::integer:
        return "long";
    case FieldType::floating:
        return "float";
    case FieldType::boolean:
        return "boolean";
    case FieldType::vector:
        return "dense_vector";
    default:
        return "object";
    }
}

void checkParameters(const std::string& path, const std::string& type, const Json& property) {
    static constexpr std::array<std::string_view, 10> kKnown{
        "type",  "properties", "fields",     "ignore_above",  "dims",
        "norms", "index",      "similarity", "index_options", "doc_values"};
    for (const auto& [key, value] : property.items()) {
        if (std::find(kKnown.begin(), kKnown.end(), key) == kKnown.end())
            throw mapperError(
                fmt::format("unknown parameter [{}] on mapper [{}] of type [{}]", key, path, type));
    }
}

std::size_t sizeParameter(const std::string& path, const Json& property, const char* key) {
    const Json& value = property.at(key);
    if (!value.is_number_integer() || value.get<std::int64_t>() < 1)
        throw mapperError(fmt::format("[{}] of field [{}] must be a positive integer but was [{}]", key, path,
                                      value.dump()));
    return value.get<std::size_t>();
}

} // namespace

Mapping::Mapping(const Json& mappings) {
    for (const auto& [key, value] : mappings.items()) {
        if (key == "properties")
            addProperties(value, "", 0);
        else if (key != "dynamic" || (value != true && value != "true"))
            throw mapperError(fmt::format("Root mapping definition has unsupported parameters: [{} : {}]",
                                          key, value.dump()));
    }
}

const Field* Mapping::find(std::string_view path) const {
    const auto id = idOf(path);
    return id ? &mFields[*id] : nullptr;
}

std::optional<FieldId> Mapping::idOf(std::string_view path) const {
    const auto found = mByPath.find(path);
    return found == mByPath.end() ? std::nullopt : std::optional(found->second);
}

std::vector<FieldId> Mapping::below(std::string_view objectPath) const {
    const std::string prefix = std::string(objectPath) + ".";
    std::vector<FieldId> ids;
    for (auto it = mByPath.lower_bound(prefix); it != mByPath.end() && it->first.starts_with(prefix); ++it)
        ids.push_back(it->second);
    return ids;
}

FieldId Mapping::add(Field field) {
    if (mFields.size() >= kMaximumFields)
        throw illegalArgument(
            fmt::format("Limit of total fields [{}] has been exceeded while adding field [{}]",
                        kMaximumFields, field.path));
    const FieldId id = size();
    mByPath.emplace(field.path, id);
    mFields.push_back(std::move(field));
    return id;
}

void Mapping::addProperties(const Json& properties, const std::string& prefix, SpaceId space) {
    if (!properties.is_object()) throw mapperError("[properties] must be an object");
    for (const auto& [name, property] : properties.items()) {
        if (name.empty() || !property.is_object())
            throw mapperError(fmt::format("Expected map for property [{}{}]", prefix, name));
        addProperty(prefix + name, property, space);
    }
}

void Mapping::addProperty(const std::string& path, const Json& property, SpaceId space) {
    const Json type = property.value("type", Json("object"));
    if (!type.is_string()) throw mapperError(fmt::format("[type] of field [{}] must be a string", path));
    Field field{.path = path, .type = typeOf(path, type), .typeName = type, .space = space};
    checkParameters(path, type, property);
    if (property.contains("ignore_above")) field.ignoreAbove = sizeParameter(path, property, "ignore_above");
    if (property.contains("dims")) field.dimensions = sizeParameter(path, property, "dims");
    if (field.dimensions > kMaximumDimensions)
        throw mapperError(fmt::format("The number of dimensions should be in the range [1, {}] but was [{}]",
                                      kMaximumDimensions, field.dimensions));
    if (field.type == FieldType::nested) field.ownSpace = mSpaces++;
    const SpaceId inner = field.type == FieldType::nested ? field.ownSpace : space;
    const bool text = field.type == FieldType::text;
    const FieldId id = add(std::move(field));
    if (property.contains("properties")) addProperties(property["properties"], path + ".", inner);
    if (!property.contains("fields")) return;
    for (const auto& [name, sub] : property["fields"].items()) {
        if (!text || !sub.is_object() || sub.value("type", Json()) != "keyword")
            throw mapperError(
                fmt::format("sub-field [{}.{}] is not supported: only keywords below text are", path, name));
        addProperty(path + "." + name, sub, space);
        const FieldId subId = size() - 1;
        mFields[subId].subField = true;
        mFields[id].keyword = subId;
    }
}

FieldId Mapping::addDynamic(const std::string& path, FieldType type, SpaceId space) {
    Field field{.path = path, .type = type, .typeName = dynamicTypeName(type), .space = space};
    const FieldId id = add(std::move(field));
    if (type == FieldType::text) {
        mFields[id].keyword = add({.path = path + ".keyword",
                                   .type = FieldType::keyword,
                                   .typeName = "keyword",
                                   .space = space,
                                   .ignoreAbove = kDynamicIgnoreAbove,
                                   .subField = true});
    }
    return id;
}

Json Mapping::toJson() const {
    Json root = Json::object();
    const auto place = [&root](const std::string& path) -> Json& {
        Json* node = &root;
        std::size_t start = 0;
        for (;;) {
            const std::size_t dot = path.find('.', start);
            node = &(*node)["properties"][path.substr(start, dot - start)];
            if (dot == std::string::npos) return *node;
            start = dot + 1;
        }
    };
    for (const Field& field : mFields) {
        if (field.subField) continue;
        Json& node = place(field.path);
        if (field.type == FieldType::object) {
            if (!node.contains("properties")) node["type"] = "object";
            continue;
        }
        node["type"] = field.typeName;
        if (field.dimensions != 0) node["dims"] = field.dimensions;
        if (field.ignoreAbove != SIZE_MAX) node["ignore_above"] = field.ignoreAbove;
        if (!field.keyword) continue;
        const Field& sub = mFields[*field.keyword];
        Json& keyword = node["fields"][sub.path.substr(field.path.size() + 1)];
        keyword["type"] = "keyword";
        if (sub.ignoreAbove != SIZE_MAX) keyword["ignore_above"] = sub.ignoreAbove;
    }
    return root;
}

} // namespace kestrel::index
