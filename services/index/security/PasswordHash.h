#pragma once

#include "base/Json.h"

#include <string>

namespace kestrel::index {

/// A salted scrypt hash, in the form in which it is stored.
Json hashPassword(const std::string& password);
/// What no password matches, which takes as long to find out.
Json unmatchedHash();
bool passwordMatches(const Json& hash, const std::string& password);

} // namespace kestrel::index
