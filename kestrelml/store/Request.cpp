#include "kestrelml/store/Request.h"

#include <iostream>

namespace kestrelml::detail {

KsNN_ErrorCode Request::expectText(const char* key, const char* expected, unsigned location) const {
    return read(
        [&](const Poco::JSON::Object& answer) {
            const Poco::Dynamic::Var value = answer.get(key);
            if (value.isEmpty()) return fail(location);
            const auto text = value.convert<std::string>();
            if (mDebug) std::cout << "result: " << text << std::endl;
            return text == expected ? KsNN_Success : fail(location);
        },
        location);
}

} // namespace kestrelml::detail
