#pragma once

#include <stdexcept>

namespace kestrel {

enum ExitCode { ExitFine = 0, ExitFailed = 1, ExitUsage = 2, ExitCancelled = 130 };

/// A failure whose text the user reads: what went wrong, with which value, and what to do next.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The command line is wrong.
class UsageError : public Failure {
public:
    using Failure::Failure;
};

/// Whoever asked for the work cancelled it, for instance with Ctrl-C.
class Cancelled : public Failure {
public:
    using Failure::Failure;
};

/// Whoever read the results has gone, as `head` does once it has its lines: no failure to the user.
class OutputClosed : public Failure {
public:
    using Failure::Failure;
};

} // namespace kestrel
