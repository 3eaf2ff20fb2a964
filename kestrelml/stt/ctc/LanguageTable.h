#pragma once

/// @file
/// The files that describe the CTC engine's languages.

#include <Poco/JSON/Object.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>

namespace kestrelml::stt {

/// Settings by name, by language.
using LanguageTable = std::map<std::string, std::map<std::string, std::string>>;

struct Vocabulary {
    std::map<std::string, std::int32_t> ids;
    std::map<std::int32_t, std::string> tokens;
};

/// Where the language table lies: "wav2vec2/Languages.json" in the folder of $KESTREL_MODEL_DIR, or else in
/// "models" beside the host executable.
std::filesystem::path languageTablePath();

/// @throws std::runtime_error that names the file, and the language or token that is wrong.
LanguageTable readLanguageTable(const std::filesystem::path& file);
Vocabulary readVocabulary(const std::filesystem::path& file, const std::string& wordDelimiter);

/// What the files hold. @throws std::runtime_error, Poco::Exception
LanguageTable toLanguageTable(const Poco::JSON::Object& json);
/// The tokens are numbered from 0 without a gap; the end of a word, "<pad>" and "<unk>" are among them.
Vocabulary toVocabulary(const Poco::JSON::Object& json, const std::string& wordDelimiter);

} // namespace kestrelml::stt
