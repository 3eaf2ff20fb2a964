#include "kestrelml/exchange/ExchangeDocuments.h"

#include "kestrelml/store/Answer.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>

namespace kestrelml::detail {

using Poco::JSON::Object;

KsNN_ErrorCode visitDocuments(const std::string& element, int page, const DocumentVisitor& visit) {
    int documents = 0;
    try {
        const auto answer = Poco::JSON::Parser().parse(element).extract<Object::Ptr>();
        for (const Object::Ptr& hit : ObjectsOf(hitsOf(*answer))) {
            ++documents;
            if (const auto code = visit(*sourceOf(*hit))) return code;
        }
        return KsNN_Success;
    } catch (const Poco::Exception& caught) {
        const std::string what = caught.message().empty() ? caught.displayText() : caught.message();
        throw Poco::DataFormatException("Page " + std::to_string(page) + ", document " +
                                        std::to_string(documents) + " of the exchange file: " + what);
    }
}

} // namespace kestrelml::detail
