// Takes the place of EmbeddedInterpreter.cpp in a library that is built without Python.

#include "kestrelml/stt/embedded/TranscriptionModule.h"

namespace kestrelml::stt {

InterpreterStart startInterpreter(const std::string& /*logDirectory*/) noexcept {
    return {nullptr, "Setup failed: this library was built without the embedded Python interpreter "
                     "(KESTREL_EMBEDDED_PYTHON=OFF). Use the speech service, or a library built with it."};
}

} // namespace kestrelml::stt
