#include "kestrelml/platform/LibraryLoading.h"
#include "kestrelml/platform/Paths.h"
#include "kestrelml/stt/embedded/TranscriptionModule.h"

#include <KestrelMLCythonAutoGen.h>
#include <Python.h>
#include <atomic>
#include <fstream>
#include <utility>
#include <vector>

// Cython warns of direct calls by a macro of this name; registering the function is no call.
#undef PyInit_KestrelMLCythonAutoGen

namespace kestrelml::stt {
namespace {

namespace fs = std::filesystem;

constexpr const char* kModuleName = "KestrelMLCython";
constexpr const char* kRestoreErrorOutput = "sys.stderr.close(); sys.stderr = sys.__stderr__";

enum class State { NotBegun, Failed, ModuleImported };
std::atomic<State> state{State::NotBegun};

std::string errorLogPath(const std::string& logDirectory) {
    return logDirectory + "PythonStdErr.txt";
}

/// For failures that leave no interpreter to write the reason.
void writeErrorLog(const std::string& logDirectory, const std::string& reason,
                   std::ios::openmode mode = std::ios::trunc) {
    std::ofstream(platform::pathFromUtf8(errorLogPath(logDirectory)), std::ios::out | mode) << reason << '\n';
}

std::string pythonLiteral(const std::string& text) {
    std::string literal = "'";
    for (const char c : text) {
        if (c == '\\' || c == '\'') literal += '\\';
        if (c == '\n')
            literal += "\\n";
        else
            literal += c;
    }
    return literal + "'";
}

std::string redirectStatement(const std::string& logDirectory) {
    const std::string path = platform::withForwardSlashes(errorLogPath(logDirectory));
    return "import sys; sys.stderr = open(" + pythonLiteral(path) + ", 'w', encoding='UTF-8')";
}

/// An interpreter configuration, released at the end of its scope.
class Configuration {
public:
    Configuration() { PyConfig_InitIsolatedConfig(&mConfig); }
    Configuration(const Configuration&) = delete;
    Configuration& operator=(const Configuration&) = delete;
    ~Configuration() { PyConfig_Clear(&mConfig); }

    /// Everything is looked for in `modules` and nowhere else.
    PyStatus confineTo(const fs::path& modules) {
        mConfig.site_import = 0; // would add the system's packages to the search path
        mConfig.write_bytecode = 0;
        mConfig.inspect = 1; // a SystemExit in the module is printed; it must not end the host
        mConfig.module_search_paths_set = 1;
        const std::u8string utf8 = modules.u8string();
        wchar_t* folder = Py_DecodeLocale(reinterpret_cast<const char*>(utf8.c_str()), nullptr);
        if (!folder) return PyStatus_Error("the name of the folder cannot be converted");
        PyStatus status = PyWideStringList_Append(&mConfig.module_search_paths, folder);
        // Given, so that the interpreter does not go and look for an installation.
        std::vector<wchar_t**> places{&mConfig.home, &mConfig.prefix, &mConfig.exec_prefix,
                                      &mConfig.base_prefix, &mConfig.base_exec_prefix};
#if PY_VERSION_HEX >= 0x030B0000
        places.push_back(&mConfig.stdlib_dir);
#endif
        for (wchar_t** place : places)
            if (!PyStatus_Exception(status)) status = PyConfig_SetString(&mConfig, place, folder);
        // What sys.executable names: a file that does not exist, rather than whichever Python PATH offers.
        if (!PyStatus_Exception(status)) {
            const std::wstring program = std::wstring(folder) + L"/python";
            status = PyConfig_SetString(&mConfig, &mConfig.program_name, program.c_str());
        }
        PyMem_RawFree(folder);
        return status;
    }

    PyStatus initialise() {
        return Py_InitializeFromConfig(&mConfig);
    }

private:
    PyConfig mConfig{};
};

PyStatus initialiseInterpreter(const fs::path& modules) {
    PyPreConfig preConfig;
    PyPreConfig_InitIsolatedConfig(&preConfig);
    preConfig.utf8_mode = 1; // texts are UTF-8 here, whatever the host's locale
    PyStatus status = Py_PreInitialize(&preConfig);
    if (PyStatus_Exception(status)) return status;
    Configuration configuration;
    status = configuration.confineTo(modules);
    return PyStatus_Exception(status) ? status : configuration.initialise();
}

/// Whether the module's entry points may be called: it was imported here, and the calling thread holds the
/// interpreter lock.
bool canEnterModule() {
    return state == State::ModuleImported && PyGILState_Check() != 0;
}

/// Calls one of the module's entry points.
/// @return Its JSON text; empty after a Python error, which is printed.
template <typename EntryPoint, typename... Arguments>
std::string callModule(EntryPoint entryPoint, const Arguments&... arguments) {
    if (!canEnterModule()) return {};
    std::string text;
    if (PyObject* answer = entryPoint(arguments...)) {
        if (const char* utf8 = PyUnicode_AsUTF8(answer)) text = utf8;
        Py_DECREF(answer);
    }
    if (text.empty()) PyErr_Print();
    return text;
}

class ImportedModule final : public TranscriptionModule {
public:
    /// @param module Owned; null when this process imported it earlier.
    explicit ImportedModule(PyObject* module) : mModule(module) {}

    std::string setModelDirectory(const std::string& modelDirectory) override {
        return callModule(SetSTTModelDirCy, modelDirectory);
    }
    std::string uploadAudio(std::size_t startSample, std::size_t endSample, const std::string& mediaGuid,
                            const std::string& projectGuid, const std::int16_t* samples,
                            std::size_t numSamples) override {
        // The module reads the samples only; its array type knows no constant ones.
        return callModule(STTUploadAudioCy, startSample, endSample, mediaGuid, projectGuid,
                          const_cast<std::int16_t*>(samples), numSamples);
    }
    std::string finalize(const std::string& mediaGuid, const std::string& projectGuid,
                         const std::string& audioTracks, std::size_t totalSamples,
                         const std::string& langCode) override {
        return callModule(STTFinalizeCy, mediaGuid, projectGuid, audioTracks, totalSamples, langCode);
    }
    std::string transcribe(const std::string& mediaGuid, bool removeSymbols, bool removeAudioDescriptions,
                           bool makePhrases, float diarizationThreshold) override {
        return callModule(STTTranscribeAudioCy, mediaGuid, removeSymbols, removeAudioDescriptions,
                          makePhrases, diarizationThreshold);
    }
    std::string loadSemanticSearchModels(const std::string& modelDir,
                                         const std::string& extensionLibrary) override {
        return callModule(SemanticSearchLoadModelsCy, modelDir, extensionLibrary);
    }
    std::string embedText(const std::string& text) override {
        return callModule(SemanticSearchGetStringVectorEmbeddingCy, text);
    }

    void release() override {
        if (!mModule || !canEnterModule()) return;
        Py_DECREF(std::exchange(mModule, nullptr));
        PyRun_SimpleString(kRestoreErrorOutput);
    }

private:
    PyObject* mModule;
};

/// @return Null when the interpreter could not be started, after the reason went to the error log.
std::unique_ptr<TranscriptionModule> start(const std::string& logDirectory) {
    if (Py_IsInitialized()) return std::make_unique<ImportedModule>(nullptr);
    if (state == State::Failed) {
        // Appended, since the log is likely to hold the cause.
        writeErrorLog(logDirectory,
                      "The interpreter failed to start earlier in this process. Restart the host.",
                      std::ios::app);
        return nullptr;
    }
    const fs::path modules = platform::executableDirectory() / "PythonModules";
    if (!fs::is_directory(modules)) {
        writeErrorLog(logDirectory,
                      "There is no folder " + modules.string() + " to start the interpreter from.");
        return nullptr;
    }
    state = State::Failed;
    if (PyImport_AppendInittab(kModuleName, PyInit_KestrelMLCythonAutoGen) != 0) {
        writeErrorLog(logDirectory, "The built-in module could not be registered: out of memory.");
        return nullptr;
    }
    platform::exposeInterpreterSymbols(PY_MAJOR_VERSION, PY_MINOR_VERSION);
    const PyStatus status = initialiseInterpreter(modules);
    if (PyStatus_Exception(status)) {
        writeErrorLog(logDirectory, "The interpreter does not start from " + modules.string() + ": " +
                                        (status.err_msg ? status.err_msg : "unknown error"));
        return nullptr;
    }
    PyRun_SimpleString(redirectStatement(logDirectory).c_str());
    PyObject* module = PyImport_ImportModule(kModuleName);
    if (!module) {
        PyErr_Print();
        PyRun_SimpleString(kRestoreErrorOutput);
        Py_Finalize();
        return nullptr;
    }
    state = State::ModuleImported;
    return std::make_unique<ImportedModule>(module);
}

} // namespace

InterpreterStart startInterpreter(const std::string& logDirectory) noexcept {
    InterpreterStart result{nullptr, "Setup failed"};
    try {
        result.module = start(logDirectory);
    } catch (const std::exception& e) {
        try {
            writeErrorLog(logDirectory, std::string("The interpreter cannot be started: ") + e.what());
        } catch (...) { // the log's own path may be what cannot be converted
        }
    }
    return result;
}

} // namespace kestrelml::stt
