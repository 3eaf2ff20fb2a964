#pragma once

#include "base/Json.h"

#include <string>

namespace kestrel::index {

/// A salted hash that is slow to compute (PBKDF2 with HMAC-SHA-256), as it is stored.
Json hashPassword(const std::string& password);
bool passwordMatches(const Json& hash, const std::string& password);

} // namespace kestrel::index
