#include "kestrelml/stt/ctc/LanguageTable.h"

#include "kestrelml/platform/Paths.h"
#include "kestrelml/stt/JsonFile.h"

#include <Poco/Environment.h>

namespace kestrelml::stt {
namespace {

namespace fs = std::filesystem;

/// Reads a file by `convert`, whose failures then name the file.
template <typename Convert>
auto readBy(const fs::path& file, const char* kind, Convert convert) {
    const auto fail = [&](const std::string& reason) {
        std::string message = kind;
        message.append(" '").append(file.string()).append("' cannot be used: ").append(reason);
        return std::runtime_error(message);
    };
    try {
        return convert(*readJsonFile(file));
    } catch (const Poco::Exception& e) {
        throw fail(e.displayText());
    } catch (const std::runtime_error& e) {
        throw fail(e.what());
    }
}

} // namespace

fs::path languageTablePath() {
    const std::string chosen = Poco::Environment::get("KESTREL_MODEL_DIR", "");
    const fs::path folder =
        chosen.empty() ? platform::executableDirectory() / "models" : platform::pathFromUtf8(chosen);
    return folder / "wav2vec2" / "Languages.json";
}

LanguageTable readLanguageTable(const fs::path& file) {
    return readBy(file, "the language table", toLanguageTable);
}

Vocabulary readVocabulary(const fs::path& file, const std::string& wordDelimiter) {
    return readBy(file, "the vocabulary",
                  [&](const Poco::JSON::Object& json) { return toVocabulary(json, wordDelimiter); });
}

LanguageTable toLanguageTable(const Poco::JSON::Object& json) {
    LanguageTable table;
    for (const auto& [language, value] : json) {
        if (value.type() != typeid(Poco::JSON::Object::Ptr))
            throw std::runtime_error("the settings of \"" + language + "\" are no object");
        auto& settings = table[language];
        for (const auto& [name, setting] : *value.extract<Poco::JSON::Object::Ptr>())
            settings[name] = setting.convert<std::string>();
    }
    return table;
}

Vocabulary toVocabulary(const Poco::JSON::Object& json, const std::string& wordDelimiter) {
    Vocabulary vocabulary;
    for (const auto& [token, value] : json) {
        const auto id = value.convert<std::int32_t>();
        if (id < 0 || static_cast<std::size_t>(id) >= json.size())
            throw std::runtime_error("the token \"" + token + "\" has the number " + std::to_string(id) +
                                     ", which is not below the number of tokens, " +
                                     std::to_string(json.size()));
        if (!vocabulary.tokens.emplace(id, token).second)
            throw std::runtime_error("the tokens \"" + vocabulary.tokens[id] + "\" and \"" + token +
                                     "\" have the same number, " + std::to_string(id));
        vocabulary.ids.emplace(token, id);
    }
    for (const std::string& needed : {std::string("<pad>"), std::string("<unk>"), wordDelimiter})
        if (!vocabulary.ids.contains(needed)) throw std::runtime_error("it has no token \"" + needed + "\"");
    return vocabulary;
}

} // namespace kestrelml::stt
