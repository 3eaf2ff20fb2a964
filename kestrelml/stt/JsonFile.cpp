#include "kestrelml/stt/JsonFile.h"

#include <Poco/JSON/Parser.h>

#include <fstream>

namespace kestrelml::stt {

Poco::JSON::Object::Ptr readJsonFile(const std::filesystem::path& path) {
    const std::string name = path.string();
    std::ifstream file(path, std::ios::binary);
    if (!file) throw Poco::OpenFileException(name);
    try {
        return Poco::JSON::Parser().parse(file).extract<Poco::JSON::Object::Ptr>();
    } catch (const Poco::Exception& e) {
        throw Poco::DataFormatException("'" + name + "' holds no JSON object: " + e.displayText());
    }
}

} // namespace kestrelml::stt
