#pragma once

#include "apps/kestrel/home/Home.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <string>

namespace kestrel {

inline constexpr int kSchemaVersion = 2;

/// Whether the index service at `uri` takes the password that is kept.
bool acceptsCredentials(const Home& home, const std::string& uri);
/// The running store, opened and probed.
/// @throws Failure that says what to do when it is down or refuses the password.
KsNNDatabase openStore(const Home& home);

/// The last failure of a store or an engine in one line, without source positions; empty when there is none.
std::string detailOf(const KsNNBase& object);
/// @throws Failure "<what>: <detail>" unless `code` is success.
void check(KsNN_ErrorCode code, const KsNNBase& object, const std::string& what);

} // namespace kestrel
