// The readers of the CTC engine's language table and vocabularies: whatever they accept is usable.

#include "kestrelml/stt/ctc/LanguageTable.h"

#include <Poco/JSON/Parser.h>

#include <cstdlib>

using namespace kestrelml::stt;

/// The first byte's lowest bit chooses the reader, the next one the end of a word.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    const bool isTable = (data[0] & 1U) != 0;
    const std::string delimiter = (data[0] & 2U) != 0 ? "/" : "|";
    try {
        const auto json = Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
        if (isTable) {
            if (toLanguageTable(*json).size() != json->size()) std::abort();
            return 0;
        }
        const Vocabulary vocabulary = toVocabulary(*json, delimiter);
        std::int32_t next = 0;
        for (const auto& [id, token] : vocabulary.tokens)
            if (id != next++ || vocabulary.ids.at(token) != id) std::abort();
        if (vocabulary.ids.size() != vocabulary.tokens.size() || vocabulary.ids.count(delimiter) == 0)
            std::abort();
    } catch (const std::exception&) { // how bad files are refused
    }
    return 0;
}
