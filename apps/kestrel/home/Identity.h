#pragma once

#include "apps/kestrel/base/Callbacks.h"

#include <filesystem>
#include <string>

namespace kestrel {

/// Identifier of a clip: the SHA-256 of the file's content in hexadecimal digits. A file that is moved,
/// renamed or copied is the same clip; one that is edited is another.
/// @throws Failure when the file cannot be read, Cancelled.
std::string clipIdentifier(const std::filesystem::path& file, const Callbacks& callbacks = {});
/// The beginning of a clip's identifier, which people can tell clips apart by.
std::string shortIdentifier(const std::string& clip);
/// Identifier of a project: a UUID (version 5) made from its name, the same on every machine.
std::string projectIdentifier(const std::string& name);

} // namespace kestrel
