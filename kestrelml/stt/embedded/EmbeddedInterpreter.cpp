#include "kestrelml/stt/embedded/EmbeddedInterpreter.h"

#include "kestrelml/platform/LibraryLoading.h"
#include "kestrelml/platform/Paths.h"

#include <KestrelMLCythonAutoGen.h>
#include <Python.h>
#include <atomic>
#include <fstream>

// Cython warns of direct calls by a macro of this name; registering the function is no call.
#undef PyInit_KestrelMLCythonAutoGen

namespace kestrelml::stt {
namespace {

namespace fs = std::filesystem;

constexpr const char* kModuleName = "KestrelMLCython";
constexpr const char* kCloseErrorLog = "sys.stderr.close(); sys.stderr = sys.__stderr__";

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
    PyConfig mConfig;
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

} // namespace

InterpreterStart startInterpreter(const std::string& logDirectory) {
    if (Py_IsInitialized()) return {true, nullptr};
    if (state == State::Failed) {
        // Added, since the log is likely to hold the cause.
        writeErrorLog(logDirectory,
                      "The interpreter failed to start earlier in this process. Restart the host.",
                      std::ios::app);
        return {};
    }
    const fs::path modules = platform::executableDirectory() / "PythonModules";
    if (!fs::is_directory(modules)) {
        writeErrorLog(logDirectory,
                      "There is no folder " + modules.string() + " to start the interpreter from.");
        return {};
    }
    state = State::Failed;
    if (PyImport_AppendInittab(kModuleName, PyInit_KestrelMLCythonAutoGen) != 0) {
        writeErrorLog(logDirectory, "The built-in module could not be registered: out of memory.");
        return {};
    }
    platform::exposeInterpreterSymbols(PY_MAJOR_VERSION, PY_MINOR_VERSION);
    const PyStatus status = initialiseInterpreter(modules);
    if (PyStatus_Exception(status)) {
        writeErrorLog(logDirectory, std::string("The interpreter does not start from ") + modules.string() +
                                        ": " + (status.err_msg ? status.err_msg : "unknown error"));
        return {};
    }
    PyRun_SimpleString(redirectStatement(logDirectory).c_str());
    PyObject* module = PyImport_ImportModule(kModuleName);
    if (!module) {
        PyErr_Print();
        PyRun_SimpleString(kCloseErrorLog);
        Py_Finalize();
        return {};
    }
    state = State::ModuleImported;
    return {true, module};
}

bool canEnterModule() {
    return state == State::ModuleImported && PyGILState_Check() != 0;
}

void releaseModule(PyObject* module) {
    if (!module || !canEnterModule()) return;
    Py_DECREF(module);
    PyRun_SimpleString(kCloseErrorLog);
}

} // namespace kestrelml::stt
