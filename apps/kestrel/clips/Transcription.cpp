#include "apps/kestrel/clips/Transcription.h"

#include "apps/kestrel/clips/CtcTranscriber.h"
#include "apps/kestrel/clips/ModuleTranscriber.h"

namespace kestrel {

std::unique_ptr<Transcriber> makeTranscriber(EngineKind kind, const Home& home, const std::string& language) {
    if (kind == EngineKind::Ctc) return std::make_unique<CtcTranscriber>(language);
    return std::make_unique<ModuleTranscriber>(kind, home, language);
}

} // namespace kestrel
