#pragma once

#include <stdexcept>

namespace kestrel {

enum ExitCode { ExitFine = 0, ExitFailed = 1, ExitUsage = 2, ExitCancelled = 130 };

/// A failure that the user is told word for word: what went wrong, with which value, and what to do next.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The command line asks for something that cannot be.
class UsageError : public Failure {
public:
    using Failure::Failure;
};

/// Whoever asked for the work cancelled it, with Ctrl-C for one.
class Cancelled : public Failure {
public:
    using Failure::Failure;
};

} // namespace kestrel
