#pragma once

#include <filesystem>

namespace kestrel::index {

/// Creates a self-signed certificate for the loopback names (EC P-256, ten years) and its private key, unless
/// both files exist. Throws DataFolderError when existing ones cannot be used.
void ensureCertificate(const std::filesystem::path& certificate, const std::filesystem::path& privateKey);

} // namespace kestrel::index
