#pragma once

#include <Poco/SAX/AttributesImpl.h>
#include <Poco/XML/XMLWriter.h>

#include <initializer_list>
#include <sstream>
#include <string>
#include <utility>

namespace kestrel {

/// An XML document in the making. Elements are closed in the order of `Element`'s destruction.
class XmlText {
public:
    using Attributes = std::initializer_list<std::pair<const char*, std::string>>;

    /// @param doctype Name of the root in a document type declaration without an address; empty: none.
    explicit XmlText(const std::string& doctype = "")
        : mWriter(mText, Poco::XML::XMLWriter::WRITE_XML_DECLARATION | Poco::XML::XMLWriter::PRETTY_PRINT) {
        mWriter.setNewLine("\n");
        mWriter.setIndent("  ");
        mWriter.startDocument();
        if (!doctype.empty()) {
            mWriter.startDTD(doctype, "", "");
            mWriter.endDTD();
        }
    }

    class Element {
    public:
        Element(XmlText& document, const char* name, Attributes attributes = {})
            : mWriter(document.mWriter), mName(name) {
            Poco::XML::AttributesImpl list;
            for (const auto& [attribute, value] : attributes) {
                if (!value.empty()) list.addAttribute("", "", attribute, "", value);
            }
            mWriter.startElement("", "", mName, list);
        }
        Element(const Element&) = delete;
        Element& operator=(const Element&) = delete;
        ~Element() { mWriter.endElement("", "", mName); }

    private:
        Poco::XML::XMLWriter& mWriter;
        std::string mName;
    };

    /// An element without content; attributes without a value are left out.
    void empty(const char* name, Attributes attributes = {}) {
        const Element element(*this, name, attributes);
    }
    void characters(const std::string& text) { mWriter.characters(text); }

    /// The document; every element must be closed.
    std::string finish() {
        mWriter.endDocument();
        return mText.str();
    }

private:
    std::ostringstream mText;
    Poco::XML::XMLWriter mWriter;
};

} // namespace kestrel
