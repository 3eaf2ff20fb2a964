#include "apps/kestrel/clips/Transcription.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/clips/CtcTranscriber.h"
#include "apps/kestrel/clips/ModuleTranscriber.h"

#include <fmt/format.h>

#include <cstdlib>

namespace kestrel {

std::size_t partSamples() {
    constexpr double kUsual = 10.0;
    constexpr double kLongest = 60.0;
    const char* const text = std::getenv("KESTREL_PART_MINUTES");
    if (!text || *text == '\0') return static_cast<std::size_t>(kUsual * 60 * kSampleRate);
    char* end = nullptr;
    const double minutes = std::strtod(text, &end);
    if (*end != '\0' || !(minutes > 0.0 && minutes <= kLongest))
        throw Failure(fmt::format(
            "KESTREL_PART_MINUTES is \"{}\", not a number of minutes above 0 and up to {}", text, kLongest));
    return static_cast<std::size_t>(minutes * 60 * kSampleRate);
}

std::unique_ptr<Transcriber> makeTranscriber(EngineKind kind, const Home& home, const std::string& language,
                                             const RecogniserChoice& recogniser) {
    if (kind != EngineKind::Ctc)
        return std::make_unique<ModuleTranscriber>(kind, home, language.empty() ? kFoundLanguage : language,
                                                   recogniser);
    if (!recogniser.model.empty()) throw Failure("--model is for the engines service and embedded");
    if (language.empty())
        throw Failure("the ctc engine must be told the language, such as --language \"English (phonemes)\"");
    return std::make_unique<CtcTranscriber>(language);
}

} // namespace kestrel
