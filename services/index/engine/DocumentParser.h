#pragma once

#include "engine/PreparedDocument.h"

#include <optional>
#include <string>

namespace kestrel::index {

/// Parses documents into what the index keeps of them. A dotted name denotes an object that holds the rest of
/// the name. A value that does not fit its field throws a document_parsing_exception.
class DocumentParser {
public:
    /// Does not add fields: parse returns nothing for a document with unknown ones.
    explicit DocumentParser(const Mapping& mapping) : mMapping(mapping) {}
    /// Adds missing fields to the mapping. After an exception the mapping may contain fields of a refused
    /// document and must be discarded.
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
