#include "apps/kestrel/base/Json.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>
#include <fmt/format.h>

#include <cmath>
#include <sstream>

namespace kestrel {

Poco::JSON::Object::Ptr jsonObject() {
    return new Poco::JSON::Object(Poco::JSON_PRESERVE_KEY_ORDER);
}

Poco::JSON::Object::Ptr readJson(const std::filesystem::path& file) {
    try {
        return Poco::JSON::Parser().parse(readFile(file)).extract<Poco::JSON::Object::Ptr>();
    } catch (const Poco::Exception& error) {
        throw Failure(
            fmt::format("{} is damaged, repair or remove it: {}", file.string(), error.displayText()));
    }
}

std::vector<std::string> textsOf(const Poco::JSON::Object& object, const std::string& name) {
    std::vector<std::string> texts;
    if (const auto list = object.getArray(name)) {
        for (const auto& text : *list)
            texts.push_back(text.convert<std::string>());
    }
    return texts;
}

std::string toText(const Poco::JSON::Object::Ptr& object) {
    std::ostringstream text;
    object->stringify(text, 2);
    text << '\n';
    return text.str();
}

double roundedScore(float score) {
    return std::round(static_cast<double>(score) * 1e4) / 1e4;
}

} // namespace kestrel
