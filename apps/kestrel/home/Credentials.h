#pragma once

#include "apps/kestrel/home/Home.h"

#include <string>

namespace kestrel {

/// Whether a password has been taken up.
bool hasCredentials(const Home& home);
/// Takes up the administrator that the index service made at its first start, and keeps it encrypted. The key
/// lies in a file of its own, so that neither file alone gives the password away.
/// @throws Failure when the index service left no password.
void takeUpCredentials(const Home& home);
/// Hands the stored credentials to the library, for every store of this process.
/// @throws Failure when they are missing or damaged.
void applyCredentials(const Home& home);
/// The same under another pass phrase, which from then on encrypts and decrypts whatever the library does.
/// Call after `applyCredentials`.
void applyCredentialsUnder(const Home& home, const std::string& passPhrase);

} // namespace kestrel
