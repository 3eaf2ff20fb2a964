#pragma once

/// @file
/// The Python interpreter inside this process, and the transcription module compiled into this library.
///
/// The thread that starts the interpreter holds its lock for good: only that thread may enter it, and no
/// other Python thread runs meanwhile.

#include <string>

struct _object; // Python's own name for PyObject, so that its headers stay out of ours

namespace kestrelml::stt {

struct InterpreterStart {
    bool succeeded = false;
    _object* module = nullptr; ///< Owned; null when the interpreter was running already.
};

/// Starts the interpreter and imports the module, with the error output going to "PythonStdErr.txt".
///
/// A running interpreter is left as it is. One that failed after it was begun is not begun again: packages
/// with native code cannot be loaded twice in a process.
/// @param logDirectory Empty, or ending in a separator.
InterpreterStart startInterpreter(const std::string& logDirectory);

/// Whether the module's entry points may be called: it was imported here, and the calling thread holds the
/// interpreter lock.
bool canEnterModule();

/// Gives up the module reference that `startInterpreter` returned, and the redirected error output with it.
void releaseModule(_object* module);

} // namespace kestrelml::stt
