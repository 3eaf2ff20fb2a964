#pragma once

#include "engine/PreparedDocument.h"

#include <string>

namespace kestrel::index {

/// Takes a document apart by the mapping. A field that the mapping does not know is asked of it through
/// resolve, which adds it; a value that does not fit its field is refused with a document_parsing_exception.
class DocumentParser {
public:
    class Fields {
    public:
        virtual ~Fields() = default;
        /// The field at the path; fields never seen are added with the given type.
        virtual FieldId resolve(const std::string& path, FieldType ifNew, SpaceId space) = 0;
        virtual const Field& field(FieldId id) const = 0;
        /// The number of dimensions of a vector field; the first vector fixes it.
        virtual std::size_t dimensions(FieldId id, std::size_t ifUnknown) = 0;
    };

    DocumentParser(Fields& fields, std::string documentId)
        : mFields(fields), mDocumentId(std::move(documentId)) {}

    PreparedDocument parse(const Json& document);

private:
    struct Values;
    class Collector;

    Fields& mFields;
    std::string mDocumentId;
};

} // namespace kestrel::index
