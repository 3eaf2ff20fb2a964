#pragma once

#include <filesystem>

namespace kestrel::index {

/// Makes a self-signed certificate for the loopback names (EC P-256, ten years) with its private key, unless
/// both files are there. The key is readable by its owner alone.
void ensureCertificate(const std::filesystem::path& certificate, const std::filesystem::path& privateKey);

} // namespace kestrel::index
