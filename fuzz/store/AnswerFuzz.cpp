// The index service's answers, as the library reads them: whatever they hold, reading ends with a value or a
// C++ exception.

#include "kestrelml/store/Answer.h"

#include <Poco/JSON/Parser.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

namespace {

using Poco::JSON::Object;

template <typename Read>
void attempt(Read&& read) {
    try {
        read();
    } catch (const std::exception&) {
        // What cannot be read is thrown.
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kestrelml::detail;
    Object::Ptr answer;
    attempt([&] {
        Poco::JSON::Parser parser;
        answer = parser.parse(std::string(reinterpret_cast<const char*>(data), size)).extract<Object::Ptr>();
    });
    if (answer.isNull()) return 0;
    attempt([&] {
        for (const Object::Ptr hit : ObjectsOf(hitsOf(*answer))) {
            attempt([&] { idOf(*hit); });
            attempt([&] { textsOf(*sourceOf(*hit), "projectGuidList"); });
            attempt([&] { integerOf(*sourceOf(*hit), "segment"); });
            attempt([&] { integerAt(*arrayOf(*sourceOf(*hit), "wordStartsMS"), 0); });
        }
    });
    attempt([&] { onlyHitOf(*answer); });
    attempt([&] { scrollIdOf(*answer); });
    attempt([&] { deletedOf(*answer); });
    attempt([&] { firstErrorOf(*answer); });
    attempt([&] { keyOf(*objectAt(*bucketsOf(*aggregationOf(*answer, "projects")), 0)); });
    return 0;
}
