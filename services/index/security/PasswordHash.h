#pragma once

#include "base/Json.h"

#include <string>

namespace kestrel::index {

/// A salted hash that is slow and takes memory to compute (scrypt), as it is stored.
Json hashPassword(const std::string& password);
/// What no password matches, which takes as long to find out.
Json unmatchedHash();
bool passwordMatches(const Json& hash, const std::string& password);

} // namespace kestrel::index
