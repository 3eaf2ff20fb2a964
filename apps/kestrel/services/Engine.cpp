#include "apps/kestrel/services/Engine.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/home/Recognisers.h"
#include "apps/kestrel/services/Services.h"
#include "apps/kestrel/services/Store.h"
#include "kestrelml/stt/KsNNSpeechToTextCYTHON.h"
#include "kestrelml/stt/KsNNSpeechToTextREST.h"

#include <Poco/String.h>
#include <fmt/format.h>

#include <algorithm>
#include <vector>

namespace kestrel {

namespace {

std::unique_ptr<KsNNSpeechToTextInterface> makeServiceEngine(const Home& home) {
    const RunningService service = require(home, Service::Speech);
    auto engine = std::make_unique<KsNNSpeechToTextREST>(0, 0, 0, modelFolder().string());
    engine->SetURI(service.uri.c_str());
    return engine;
}

std::unique_ptr<KsNNSpeechToTextInterface> makeEmbeddedEngine(const Home& home) {
    RecogniserSettings::announce(RecogniserSettings::fileOfThisProcess(home));
    KsNNSpeechToTextCYTHON::EarlyLoadLibrary();
    return std::make_unique<KsNNSpeechToTextCYTHON>(0, 0, 0, false, modelFolder().string(),
                                                    home.logFolder().string());
}

bool isName(const KsNNLanguage& language, const std::string& text) {
    return Poco::icompare(language.code, text) == 0 || Poco::icompare(language.localName, text) == 0 ||
           Poco::icompare(language.anglicizedName, text) == 0;
}

} // namespace

std::unique_ptr<KsNNSpeechToTextInterface> makeEngine(EngineKind kind, const Home& home) {
    return kind == EngineKind::Service ? makeServiceEngine(home) : makeEmbeddedEngine(home);
}

void requireLanguage(KsNNSpeechToTextInterface& engine, const std::string& code) {
    std::vector<KsNNLanguage> languages;
    // The service knows its languages only once it has been told where the models are.
    check(engine.SetModelDir(modelFolder().string(), false), engine,
          "the speech engine cannot use its models");
    check(engine.GetSupportedLanguages(languages, false), engine, "the speech engine names no languages");
    const auto hasCode = [&](const KsNNLanguage& language) { return language.code == code; };
    if (std::any_of(languages.begin(), languages.end(), hasCode)) return;
    const auto meant = std::find_if(languages.begin(), languages.end(),
                                    [&](const KsNNLanguage& language) { return isName(language, code); });
    if (meant != languages.end())
        throw Failure(fmt::format("the language \"{}\" goes by its code: use --language {} for {}", code,
                                  meant->code, meant->anglicizedName));
    std::string list;
    for (const KsNNLanguage& language : languages)
        list += (list.empty() ? "" : ", ") + fmt::format("{} ({})", language.code, language.anglicizedName);
    throw Failure(fmt::format("the language \"{}\" is not supported; there are: {}", code, list));
}

} // namespace kestrel
