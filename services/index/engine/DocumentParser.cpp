#include "engine/DocumentParser.h"

#include "base/ApiError.h"
#include "base/Utf8.h"
#include "base/Work.h"
#include "engine/Analyzer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <unordered_map>
#include <utility>

namespace kestrel::index {

namespace {

constexpr std::size_t kMaximumObjectDepth = 20;
constexpr std::size_t kMaximumKeywordBytes = 32766;
constexpr std::size_t kVectorFrom = 128;
constexpr std::size_t kPreviewBytes = 200;
/// Splitting a long text into terms takes many times its memory.
constexpr std::size_t kLongText = 1'000'000;
constexpr std::size_t kAnalysisBytes = 24;

std::string asText(const Json& value) {
    return value.is_string() ? value.get<std::string>() : valueText(value);
}

std::string preview(const Json& value) {
    return shortened(asText(value), kPreviewBytes);
}

/// Arrays of this many decimal numbers are embeddings.
bool looksLikeVector(const Json& array) {
    return array.size() >= kVectorFrom && array.size() <= kMaximumDimensions &&
           std::all_of(array.begin(), array.end(), [](const Json& v) { return v.is_number(); }) &&
           std::any_of(array.begin(), array.end(), [](const Json& v) { return v.is_number_float(); });
}

FieldType dynamicType(const Json& value) {
    if (value.is_boolean()) return FieldType::Boolean;
    if (value.is_number_float()) return FieldType::Floating;
    if (value.is_number() || isWideInteger(value)) return FieldType::Integer;
    return FieldType::Text;
}

} // namespace

class DocumentParser::Collector {
public:
    Collector(DocumentParser& parser, SpaceId space) : mParser(parser), mSpace(space) {}

    void object(const Json& object, const std::string& prefix, std::size_t depth,
                PreparedDocument& document) {
        requireDepth(prefix, depth);
        for (const auto& [key, value] : object.items()) {
            if (key.empty() || key.front() == '.' || key.back() == '.' || key.find("..") != std::string::npos)
                throw fail(
                    prefix + key, "object", Json(),
                    fmt::format("field name cannot be an empty string or hold an empty part: [{}]", key));
            member(key, value, prefix, depth, document);
        }
    }

    std::vector<PreparedField> take() {
        std::vector<PreparedField> prepared;
        for (Entry& entry : mEntries)
            finish(entry, prepared);
        return prepared;
    }

private:
    void requireDepth(const std::string& path, std::size_t depth) const {
        if (depth > kMaximumObjectDepth)
            throw fail(path, "object", Json(),
                       fmt::format("Limit of mapping depth [{}] has been exceeded", kMaximumObjectDepth));
    }

    struct Entry {
        FieldId id;
        const Field& field;
        std::vector<std::string> texts;
        NumberContent numbers;
        VectorContent vector;
    };

    /// "a.b": value stands for the object "a" with the member "b".
    void member(std::string_view name, const Json& value, const std::string& prefix, std::size_t depth,
                PreparedDocument& document) {
        const std::size_t dot = name.find('.');
        const std::string path = prefix + std::string(name.substr(0, dot));
        if (dot == std::string_view::npos) {
            field(value, path, depth, document);
            return;
        }
        if (value.is_null()) return;
        requireDepth(path, depth + 1);
        const std::string_view rest = name.substr(dot + 1);
        const Field& outer = mParser.mMapping.at(mParser.resolve(path, FieldType::Object, mSpace));
        if (outer.type == FieldType::Nested) {
            Collector child(mParser, outer.ownSpace);
            child.member(rest, value, path + ".", depth + 1, document);
            document.children.push_back({outer.ownSpace, child.take()});
        } else if (outer.type == FieldType::Object) {
            member(rest, value, path + ".", depth + 1, document);
        } else {
            throw fail(path, outer.typeName, value,
                       fmt::format("[{}] is of type [{}] and cannot hold [{}]", path, outer.typeName, rest));
        }
    }

    void field(const Json& value, const std::string& path, std::size_t depth, PreparedDocument& document) {
        if (value.is_null()) return;
        if (value.is_array()) {
            array(value, path, depth, document);
        } else if (value.is_object()) {
            const FieldId id = mParser.resolve(path, FieldType::Object, mSpace);
            inner(mParser.mMapping.at(id), value, path, depth, document);
        } else {
            scalar(entryFor(path, dynamicType(value)), value);
        }
    }

    void array(const Json& values, const std::string& path, std::size_t depth, PreparedDocument& document) {
        if (depth > kMaximumObjectDepth) throw fail(path, "array", Json(), "arrays are nested too deeply");
        if (!values.empty() && values.front().is_number()) {
            Entry& entry = entryFor(path, looksLikeVector(values) ? FieldType::Vector : arrayType(values));
            if (entry.field.type == FieldType::Vector) {
                vector(entry, values);
                return;
            }
            for (const Json& value : values) {
                if (value.is_array() || value.is_object()) throw mismatch(entry, value);
                if (!value.is_null()) scalar(entry, value);
            }
            return;
        }
        for (const Json& value : values)
            field(value, path, depth + 1, document);
    }

    static FieldType arrayType(const Json& values) {
        const bool decimal =
            std::any_of(values.begin(), values.end(), [](const Json& v) { return v.is_number_float(); });
        return decimal ? FieldType::Floating : FieldType::Integer;
    }

    void inner(const Field& field, const Json& value, const std::string& path, std::size_t depth,
               PreparedDocument& document) {
        if (field.type == FieldType::Object) {
            object(value, path + ".", depth + 1, document);
        } else if (field.type == FieldType::Nested) {
            Collector child(mParser, field.ownSpace);
            child.object(value, path + ".", depth + 1, document);
            document.children.push_back({field.ownSpace, child.take()});
        } else {
            throw fail(path, field.typeName, value, "Can't get text on a START_OBJECT");
        }
    }

    Entry& entryFor(const std::string& path, FieldType ifNew) {
        const auto known = mByPath.find(path);
        if (known != mByPath.end()) return mEntries[known->second];
        const FieldId id = mParser.resolve(path, ifNew, mSpace);
        mByPath.emplace(path, mEntries.size());
        mEntries.push_back({id, mParser.mMapping.at(id), {}, {}, {}});
        return mEntries.back();
    }

    void scalar(Entry& entry, const Json& value) {
        switch (entry.field.type) {
        case FieldType::Text:
        case FieldType::Keyword:
            entry.texts.push_back(asText(value));
            break;
        case FieldType::Boolean:
            entry.numbers.push_back(boolean(entry, value) ? 1 : 0);
            break;
        case FieldType::Integer:
        case FieldType::Floating:
            entry.numbers.push_back(number(entry, value));
            break;
        case FieldType::Vector:
            throw mismatch(entry, value);
        case FieldType::Object:
        case FieldType::Nested:
            throw fail(
                entry.field.path, entry.field.typeName, value,
                fmt::format("object mapping for [{0}] tried to parse field [{0}] as object, but found a "
                            "concrete value",
                            entry.field.path));
        }
    }

    bool boolean(const Entry& entry, const Json& value) const {
        if (value == true || value == "true") return true;
        if (value == false || value == "false") return false;
        if (value == "") return false; // NOLINT(readability-container-size-empty): an empty list is no text
        throw fail(
            entry.field.path, "boolean", value,
            fmt::format("Failed to parse value [{}] as only [true] or [false] are allowed.", preview(value)));
    }

    SortableNumber number(const Entry& entry, const Json& value) const {
        const NumberReading reading = readNumber(entry.field, value);
        if (reading.kind == NumberReading::Kind::OutOfRange) throw outOfRange(entry, value);
        if (!reading.usable()) throw mismatch(entry, value);
        return reading.value;
    }

    void vector(Entry& entry, const Json& values) {
        const std::size_t dimensions = mParser.dimensions(entry.id, values.size());
        if (values.size() != dimensions || !entry.vector.empty())
            throw fail(
                entry.field.path, "dense_vector", Json(),
                fmt::format("The [dense_vector] field [{}] in doc [document with id '{}'] has a different "
                            "number of dimensions [{}] than defined in the mapping [{}]",
                            entry.field.path, mParser.mDocumentId, values.size(), dimensions));
        float squares = 0;
        for (const Json& value : values) {
            if (!value.is_number()) throw mismatch(entry, value);
            const auto element = value.get<float>();
            if (!std::isfinite(element)) throw outOfRange(entry, value);
            entry.vector.push_back(element);
            squares += element * element;
        }
        if (!std::isfinite(squares))
            throw fail(entry.field.path, "dense_vector", Json(),
                       "The vector's magnitude is out of range for a float");
    }

    void finish(Entry& entry, std::vector<PreparedField>& prepared) {
        const Field& field = entry.field;
        if (field.type == FieldType::Text) {
            prepared.push_back({entry.id, textContent(entry.texts)});
            for (const FieldId sub : field.subFields)
                keyword(sub, mParser.mMapping.at(sub), entry.texts, prepared);
        } else if (field.type == FieldType::Keyword) {
            keyword(entry.id, field, std::move(entry.texts), prepared);
        } else if (field.type == FieldType::Vector) {
            prepared.push_back({entry.id, std::move(entry.vector)});
        } else if (field.type == FieldType::Boolean) {
            KeywordContent values;
            for (const SortableNumber value : entry.numbers)
                values.emplace_back(value != 0 ? "true" : "false");
            keyword(entry.id, field, std::move(values), prepared);
        } else if (!entry.numbers.empty()) {
            prepared.push_back({entry.id, std::move(entry.numbers)});
        }
    }

    void keyword(FieldId id, const Field& field, std::vector<std::string> values,
                 std::vector<PreparedField>& prepared) const {
        std::erase_if(values, [&](const std::string& value) {
            return field.ignoreAbove != SIZE_MAX && utf16Length(value) > field.ignoreAbove;
        });
        for (const std::string& value : values)
            if (value.size() > kMaximumKeywordBytes)
                throw illegalArgument(fmt::format(
                    "Document contains at least one immense term in field=\"{}\" (whose UTF8 encoding "
                    "is longer than the max length {})",
                    field.path, kMaximumKeywordBytes));
        std::sort(values.begin(), values.end());
        values.erase(std::unique(values.begin(), values.end()), values.end());
        if (!values.empty()) prepared.push_back({id, std::move(values)});
    }

    static TextContent textContent(const std::vector<std::string>& texts) {
        TextContent content;
        std::vector<std::string> terms;
        for (const std::string& text : texts) {
            if (text.size() > kLongText) takeMemory(text.size() * kAnalysisBytes);
            for (std::string& term : analyze(text))
                terms.push_back(std::move(term));
        }
        content.length = static_cast<std::uint32_t>(terms.size());
        std::sort(terms.begin(), terms.end());
        for (std::string& term : terms) {
            if (!content.terms.empty() && content.terms.back().term == term)
                ++content.terms.back().count;
            else
                content.terms.push_back({std::move(term), 1});
        }
        return content;
    }

    ApiError mismatch(const Entry& entry, const Json& value) const {
        return fail(entry.field.path, entry.field.typeName, value,
                    fmt::format("For input string: \"{}\"", preview(value)));
    }

    ApiError outOfRange(const Entry& entry, const Json& value) const {
        return fail(
            entry.field.path, entry.field.typeName, value,
            fmt::format("Value [{}] is out of range for type [{}]", preview(value), entry.field.typeName));
    }

    ApiError fail(const std::string& path, const std::string& type, const Json& value,
                  const std::string& because) const {
        std::string reason = fmt::format("failed to parse field [{}] of type [{}] in document with id '{}'",
                                         path, type, mParser.mDocumentId);
        if (!value.is_null()) reason += fmt::format(". Preview of field's value: '{}'", preview(value));
        return {400,
                "document_parsing_exception",
                reason,
                {{"caused_by", {{"type", "illegal_argument_exception"}, {"reason", because}}}}};
    }

    DocumentParser& mParser;
    SpaceId mSpace;
    std::vector<Entry> mEntries;
    std::unordered_map<std::string, std::size_t> mByPath;
};

FieldId DocumentParser::resolve(const std::string& path, FieldType ifNew, SpaceId space) {
    if (const auto known = mMapping.idOf(path)) {
        const Field& field = mMapping.at(*known);
        if (field.space != space || field.subField)
            throw ApiError(
                400, "document_parsing_exception",
                fmt::format("failed to parse field [{}] in document with id '{}': it is no field of "
                            "its own",
                            path, mDocumentId));
        return *known;
    }
    if (mDraft == nullptr) throw UnknownField();
    return mDraft->addDynamic(path, ifNew, space);
}

std::size_t DocumentParser::dimensions(FieldId id, std::size_t ifUnknown) {
    const std::size_t known = mMapping.at(id).dimensions;
    if (known != 0) return known;
    if (mDraft == nullptr) throw UnknownField();
    if (ifUnknown == 0 || ifUnknown > kMaximumDimensions)
        throw ApiError(
            400, "document_parsing_exception",
            fmt::format("failed to parse field [{}] in document with id '{}': the number of dimensions "
                        "should be in the range [1, {}] but was [{}]",
                        mMapping.at(id).path, mDocumentId, kMaximumDimensions, ifUnknown));
    mDraft->fixDimensions(id, ifUnknown);
    return ifUnknown;
}

std::optional<PreparedDocument> DocumentParser::parse(const Json& document, const std::string& documentId) {
    mDocumentId = documentId;
    if (!document.is_object())
        throw ApiError(400, "document_parsing_exception", "Malformed content, must start with an object");
    PreparedDocument prepared;
    Collector collector(*this, 0);
    try {
        collector.object(document, "", 1, prepared);
    } catch (const UnknownField&) {
        return std::nullopt;
    }
    prepared.fields = collector.take();
    return prepared;
}

} // namespace kestrel::index
