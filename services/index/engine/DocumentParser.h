#pragma once

#include "engine/PreparedDocument.h"

#include <optional>
#include <string>

namespace kestrel::index {

/// Takes documents apart by a mapping. A dotted name is an object that holds the rest of the name. A value
/// that does not fit its field is refused with a document_parsing_exception.
class DocumentParser {
public:
    /// Looks fields up only: a document that holds others gives nothing.
    explicit DocumentParser(const Mapping& mapping) : mMapping(mapping) {}
    /// Adds fields that the mapping lacks. After an exception the mapping may hold some of a refused document
    /// and must be thrown away.
    explicit DocumentParser(Mapping& mapping) : mMapping(mapping), mDraft(&mapping) {}

    std::optional<PreparedDocument> parse(const Json& document, const std::string& documentId);

private:
    struct UnknownField {};
    class Collector;

    FieldId resolve(const std::string& path, FieldType ifNew, SpaceId space);
    std::size_t dimensions(FieldId id, std::size_t ifUnknown);

    const Mapping& mMapping;
    Mapping* mDraft = nullptr;
    std::string mDocumentId;
};

} // namespace kestrel::index
