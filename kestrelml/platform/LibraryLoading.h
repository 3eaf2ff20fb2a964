#pragma once

/// @file
/// Loading shared libraries into this process.

#include <filesystem>

namespace kestrelml::platform {

/// Loads the recogniser's runtime from the given "PythonModules" folder.
/// @return Whether it is loaded.
bool loadRecogniserRuntime(const std::filesystem::path& pythonModules);

/// Makes the symbols of the library of the given Python, which this process has loaded already, visible to
/// libraries that are loaded later.
///
/// Python packages do not name that library among their needs. A host that loads this library with local
/// symbols (as Java, C# and ctypes do) would otherwise leave them with unresolved ones.
void exposeInterpreterSymbols(int majorVersion, int minorVersion);

/// File name of ONNX Runtime's library of extension operators.
extern const char* const kExtensionOperators;

/// The path of a file in the folder of the library that this function is part of.
std::filesystem::path besideThisLibrary(const char* file);

} // namespace kestrelml::platform
