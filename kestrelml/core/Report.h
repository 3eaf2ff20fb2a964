#pragma once

/// @file
/// From failures and exceptions to result codes and reports. A report names the line of the operation that
/// failed, so these functions take the place they are called from. Internal.

#include "kestrelml/core/KsNNBase.h"
#include "kestrelml/core/SourceLocation.h"

#include <string>

namespace kestrelml::detail {

/// Makes `message` the report of `target`.
/// @returns KsNN_Error.
KsNN_ErrorCode fail(KsNNBase* target, const std::string& message, bool debug,
                    SourceLocation where = SourceLocation::current());

/// What becomes of an exception that an operation meets.
struct OnException {
    /// Message of the report when the exception is not Poco's. Poco's exceptions speak for themselves.
    const char* message = "";
    KsNN_ErrorCode code = KsNN_Error;
    /// Message that follows the details of Poco's exceptions; null for none.
    const char* afterDetails = nullptr;
    /// Reports the text of a std::runtime_error in place of `message`.
    bool quotesRuntimeErrors = false;
};

/// Reports the exception being handled on `target`; for use inside a handler.
/// @returns `rule.code`.
KsNN_ErrorCode reportCaught(const OnException& rule, KsNNBase* target, bool debug,
                            SourceLocation where = SourceLocation::current());

/// Returns what `step` returns; an exception becomes a report and a code. Nothing leaves this function.
template <typename Step>
KsNN_ErrorCode guarded(const OnException& rule, KsNNBase* target, bool debug, Step step,
                       SourceLocation where = SourceLocation::current()) {
    try {
        return step();
    } catch (...) {
        return reportCaught(rule, target, debug, where);
    }
}

} // namespace kestrelml::detail
