#pragma once

#include "apps/kestrel/base/Failure.h"

#include <functional>
#include <string>

namespace kestrel {

/// How long work reports to whoever asked for it, and learns that it is no longer wanted. Each function may
/// be empty. They are called one at a time, but not always from the thread that began the work.
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
    /// @throws Cancelled when the work is no longer wanted.
    void throwIfCancelled() const {
        if (isCancelled()) throw Cancelled("cancelled");
    }
};

} // namespace kestrel
