#pragma once

#include <filesystem>
#include <string>

namespace kestrel {

/// The variable that holds the pass phrase of exchange files.
inline constexpr const char* kPassPhraseVariable = "KESTREL_PASS_PHRASE";

/// The pass phrase of an exchange file: the first line of `file` ("-" is standard input), else of the
/// environment variable, else asked for on the terminal, unseen. It never stands on the command line, where
/// everyone on the machine can read it.
/// @param twice Ask twice, since a mistyped one locks the file for ever.
/// @throws Failure when there is none, or it is empty.
std::string readPassPhrase(const std::filesystem::path& file, bool twice);

} // namespace kestrel
