#include "engine/Mapping.h"

#include "base/ApiError.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <array>
#include <utility>

namespace kestrel::index {

namespace {

constexpr FieldId kMaximumFields = 1000;
constexpr std::size_t kDynamicIgnoreAbove = 256;
constexpr std::size_t kMaximumFieldDepth = 20;

constexpr std::array<std::pair<std::string_view, FieldType>, 13> kTypeNames{{
    {"text", FieldType::Text},
    {"keyword", FieldType::Keyword},
    {"long", FieldType::Integer},
    {"integer", FieldType::Integer},
    {"short", FieldType::Integer},
    {"byte", FieldType::Integer},
    {"float", FieldType::Floating},
    {"double", FieldType::Floating},
    {"half_float", FieldType::Floating},
    {"boolean", FieldType::Boolean},
    {"dense_vector", FieldType::Vector},
    {"object", FieldType::Object},
    {"nested", FieldType::Nested},
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
    case FieldType::Text:
        return "text";
    case FieldType::Integer:
        return "long";
    case FieldType::Floating:
        return "float";
    case FieldType::Boolean:
        return "boolean";
    case FieldType::Vector:
        return "dense_vector";
    default:
        return "object";
    }
}

void checkParameters(const Field& field, const Json& property) {
    static constexpr std::array<std::string_view, 10> kKnown{
        "type",  "properties", "fields",     "ignore_above",  "dims",
        "norms", "index",      "similarity", "index_options", "doc_values"};
    for (const auto& [key, value] : property.items()) {
        const bool container = field.type == FieldType::Object || field.type == FieldType::Nested;
        const bool fits = key == "properties"     ? container
                          : key == "fields"       ? field.type == FieldType::Text
                          : key == "dims"         ? field.type == FieldType::Vector
                          : key == "ignore_above" ? field.type == FieldType::Keyword
                                                  : true;
        if (!fits || std::find(kKnown.begin(), kKnown.end(), key) == kKnown.end())
            throw mapperError(fmt::format("unknown parameter [{}] on mapper [{}] of type [{}]", key,
                                          field.path, field.typeName));
    }
}

std::size_t sizeParameter(const std::string& path, const Json& property, const char* key) {
    const Json& value = property.at(key);
    if (!value.is_number_integer() || value.get<std::int64_t>() < 1)
        throw mapperError(fmt::format("[{}] of field [{}] must be a positive integer but was [{}]", key, path,
                                      value.dump()));
    return value.get<std::size_t>();
}

bool isContainer(const Field& field) {
    return field.type == FieldType::Object || field.type == FieldType::Nested;
}

} // namespace

void checkFieldName(const std::string& prefix, const std::string& name) {
    if (name.empty() || name.front() == '.' || name.back() == '.' || name.find("..") != std::string::npos)
        throw mapperError(
            fmt::format("field name cannot be an empty string or hold an empty part: [{}{}]", prefix, name));
}

Mapping::Mapping(const Json& mappings) {
    addRoot(mappings, Refused::Fails);
}

Mapping Mapping::fromFirstFormat(const Json& mappings) {
    Mapping mapping;
    mapping.addRoot(mappings, Refused::LeftOut);
    return mapping;
}

Mapping Mapping::fromStored(const Json& fields) {
    Mapping mapping;
    for (const Json& stored : fields) {
        Field field{.path = stored.at("path"),
                    .type = typeOf(stored.at("path"), stored.at("type")),
                    .typeName = stored.at("type"),
                    .space = stored.at("space"),
                    .ownSpace = stored.value("own_space", SpaceId{0}),
                    .ignoreAbove = stored.value("ignore_above", SIZE_MAX),
                    .dimensions = stored.value("dims", std::size_t{0}),
                    .subField = stored.value("sub_field", false)};
        for (const Json& sub : stored.value("sub_fields", Json::array()))
            field.subFields.push_back(sub);
        mapping.mSpaces = std::max(mapping.mSpaces, field.ownSpace + 1);
        mapping.mByPath.emplace(field.path, mapping.size());
        mapping.mFields.push_back(std::move(field));
    }
    return mapping;
}

Json Mapping::toStored() const {
    Json fields = Json::array();
    for (const Field& field : mFields) {
        Json stored = {{"path", field.path}, {"type", field.typeName}, {"space", field.space}};
        if (field.ownSpace != 0) stored["own_space"] = field.ownSpace;
        if (field.ignoreAbove != SIZE_MAX) stored["ignore_above"] = field.ignoreAbove;
        if (field.dimensions != 0) stored["dims"] = field.dimensions;
        if (field.subField) stored["sub_field"] = true;
        if (!field.subFields.empty()) stored["sub_fields"] = field.subFields;
        fields.push_back(std::move(stored));
    }
    return fields;
}

void Mapping::addRoot(const Json& mappings, Refused refused) {
    for (const auto& [key, value] : mappings.items()) {
        if (key == "properties")
            addProperties(value, "", 0, refused);
        else if (refused == Refused::Fails && (key != "dynamic" || (value != true && value != "true")))
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

void Mapping::addProperties(const Json& properties, const std::string& prefix, SpaceId space,
                            Refused refused) {
    if (!properties.is_object()) throw mapperError("[properties] must be an object");
    for (const auto& [name, property] : properties.items()) {
        try {
            addProperty(prefix, name, property, space, refused);
        } catch (const ApiError& e) {
            if (refused == Refused::Fails) throw;
            spdlog::warn("a field of an earlier mapping is left out: {}", e.what());
        }
    }
}

SpaceId Mapping::enterObject(const std::string& path, SpaceId space) {
    if (const auto known = idOf(path)) {
        const Field& field = mFields[*known];
        if (!isContainer(field))
            throw mapperError(fmt::format("mapper [{}] cannot be changed from type [{}] to [object]", path,
                                          field.typeName));
        return field.type == FieldType::Nested ? field.ownSpace : field.space;
    }
    add({.path = path, .type = FieldType::Object, .typeName = "object", .space = space});
    return space;
}

void Mapping::addProperty(const std::string& prefix, const std::string& name, const Json& property,
                          SpaceId space, Refused refused) {
    checkFieldName(prefix, name);
    if (!property.is_object())
        throw mapperError(fmt::format("Expected map for property [{}{}]", prefix, name));
    if (static_cast<std::size_t>(std::count(prefix.begin(), prefix.end(), '.') +
                                 std::count(name.begin(), name.end(), '.')) >= kMaximumFieldDepth)
        throw illegalArgument(
            fmt::format("Limit of mapping depth [{}] has been exceeded due to object field [{}{}]",
                        kMaximumFieldDepth, prefix, name));
    const std::string path = prefix + name;
    for (std::size_t dot = name.find('.'); dot != std::string::npos; dot = name.find('.', dot + 1))
        space = enterObject(prefix + name.substr(0, dot), space);
    const Json type = property.value("type", Json("object"));
    if (!type.is_string()) throw mapperError(fmt::format("[type] of field [{}] must be a string", path));
    Field field{.path = path, .type = typeOf(path, type), .typeName = type, .space = space};
    checkParameters(field, property);
    if (property.contains("ignore_above")) field.ignoreAbove = sizeParameter(path, property, "ignore_above");
    if (property.contains("dims")) field.dimensions = sizeParameter(path, property, "dims");
    if (field.dimensions > kMaximumDimensions)
        throw mapperError(fmt::format("The number of dimensions should be in the range [1, {}] but was [{}]",
                                      kMaximumDimensions, field.dimensions));
    if (const auto known = idOf(path)) {
        // An object may be declared twice: implicitly by a dotted name, and explicitly.
        if (mFields[*known].typeName != field.typeName || !isContainer(field))
            throw mapperError(fmt::format("mapper [{}] cannot be changed from type [{}] to [{}]", path,
                                          mFields[*known].typeName, field.typeName));
        field = mFields[*known];
    } else {
        if (field.type == FieldType::Nested) field.ownSpace = mSpaces++;
        add(field);
    }
    const FieldId id = *idOf(path);
    if (property.contains("properties"))
        addProperties(property["properties"], path + ".",
                      field.type == FieldType::Nested ? field.ownSpace : space, refused);
    if (!property.contains("fields")) return;
    if (!property["fields"].is_object())
        throw mapperError(fmt::format("[fields] of field [{}] must be an object", path));
    for (const auto& [subName, sub] : property["fields"].items())
        addSubField(id, subName, sub);
}

void Mapping::addSubField(FieldId text, const std::string& name, const Json& property) {
    const std::string path = mFields[text].path + "." + name;
    if (name.empty() || name.find('.') != std::string::npos)
        throw mapperError(
            fmt::format("field name [{}] of a sub-field must not be empty or hold a dot", path));
    if (!property.is_object() || property.value("type", Json()) != "keyword")
        throw mapperError(fmt::format("sub-field [{}] is not supported: only keywords below text are", path));
    Field field{.path = path,
                .type = FieldType::Keyword,
                .typeName = "keyword",
                .space = mFields[text].space,
                .subField = true};
    checkParameters(field, property);
    if (property.contains("ignore_above")) field.ignoreAbove = sizeParameter(path, property, "ignore_above");
    if (idOf(path)) throw mapperError(fmt::format("field [{}] is declared twice", path));
    mFields[text].subFields.push_back(add(std::move(field)));
}

FieldId Mapping::addDynamic(const std::string& path, FieldType type, SpaceId space) {
    Field field{.path = path, .type = type, .typeName = dynamicTypeName(type), .space = space};
    const FieldId id = add(std::move(field));
    if (type == FieldType::Text) {
        const FieldId keyword = add({.path = path + ".keyword",
                                     .type = FieldType::Keyword,
                                     .typeName = "keyword",
                                     .space = space,
                                     .ignoreAbove = kDynamicIgnoreAbove,
                                     .subField = true});
        mFields[id].subFields.push_back(keyword);
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
        if (field.type == FieldType::Object) {
            if (!node.contains("properties")) node["type"] = "object";
            continue;
        }
        node["type"] = field.typeName;
        if (field.dimensions != 0) node["dims"] = field.dimensions;
        if (field.ignoreAbove != SIZE_MAX) node["ignore_above"] = field.ignoreAbove;
        for (const FieldId id : field.subFields) {
            const Field& sub = mFields[id];
            Json& keyword = node["fields"][sub.path.substr(field.path.size() + 1)];
            keyword["type"] = "keyword";
            if (sub.ignoreAbove != SIZE_MAX) keyword["ignore_above"] = sub.ignoreAbove;
        }
    }
    return root;
}

} // namespace kestrel::index
