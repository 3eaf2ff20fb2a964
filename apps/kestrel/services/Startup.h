#pragma once

#include "apps/kestrel/services/Services.h"

namespace kestrel {

inline constexpr int kIndexPort = 9281;
inline constexpr int kSpeechPort = 5000;

/// Starts the services that do not run yet and adopts the index service's password if necessary.
/// Returns what it started.
/// @throws Failure as `Services::start`, or when the index service refuses its own password; Cancelled.
Services::Running bringUp(const Home& home, const Services::Ports& ports, const Callbacks& callbacks);

} // namespace kestrel
