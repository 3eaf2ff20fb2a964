#pragma once

#include "apps/kestrel/home/Home.h"

#include <string>

namespace kestrel {

/// Whether there are credentials.
bool hasCredentials(const Home& home);
/// Stores the credentials of the administrator that the index service created at its first start, encrypted.
/// The key has a file of its own, so that neither file alone reveals the password.
/// @throws Failure when the index service left no password.
void adoptCredentials(const Home& home);
/// Hands the stored credentials to the library, for every store of this process.
/// @throws Failure when they are missing or damaged.
void applyCredentials(const Home& home);
/// The same under another pass phrase, which from then on encrypts and decrypts whatever the library does.
/// Call after `applyCredentials`.
void applyCredentialsUnder(const Home& home, const std::string& passPhrase);

} // namespace kestrel
