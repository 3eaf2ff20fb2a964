#pragma once

#include "base/Json.h"

#include <string>

namespace kestrel::index {

/// A salted hash that is slow and takes memory to compute (scrypt), as it is stored.
Json hashPassword(const std::string& password);
bool passwordMatches(const Json& hash, const std::string& password);

} // namespace kestrel::index
