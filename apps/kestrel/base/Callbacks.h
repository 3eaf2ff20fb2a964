#pragma once

#include "apps/kestrel/base/Failure.h"

#include <functional>
#include <string>

namespace kestrel {

/// How a long operation reports to its caller, and learns that it is cancelled. Each function may be empty.
/// They are called one at a time, but not always from the thread that started the operation.
struct Callbacks {
    std::function<void(const std::string& stage, double fraction)> progress; ///< Fraction from 0 to 1.
    std::function<void(const std::string& message)> notice;
    std::function<bool()> cancelled;

    void report(const std::string& stage, double fraction) const {
        if (progress) progress(stage, fraction);
    }
    void note(const std::string& message) const {
        if (notice) notice(message);
    }
    bool isCancelled() const { return cancelled && cancelled(); }
    /// @throws Cancelled when the operation is cancelled.
    void throwIfCancelled() const {
        if (isCancelled()) throw Cancelled("cancelled");
    }
};

} // namespace kestrel
