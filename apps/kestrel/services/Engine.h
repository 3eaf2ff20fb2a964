#pragma once

#include "apps/kestrel/home/Home.h"
#include "kestrelml/stt/KsNNSpeechToTextInterface.h"

#include <memory>
#include <string>

namespace kestrel {

enum class EngineKind { Service, Embedded, Ctc };

/// In place of a language's code: the recogniser finds the language.
inline constexpr const char* kFoundLanguage = "auto";

/// A new engine of the transcription module, in the service or embedded, ready for use. Engines of one kind
/// share the running transcription's progress and cancellation.
/// @throws Failure when the speech service is not running or the models are missing.
std::unique_ptr<KsNNSpeechToTextInterface> makeEngine(EngineKind kind, const Home& home);

/// @throws Failure that suggests the code that was meant, or lists those that there are.
void requireLanguage(KsNNSpeechToTextInterface& engine, const std::string& code);

} // namespace kestrel
