#pragma once

/// @file
/// The steps that all operations of the store share: refresh, send, judge the status, read the answer,
/// report. Internal.

#include "kestrelml/core/Debug.h"
#include "kestrelml/core/RESTCall.h"
#include "kestrelml/core/Report.h"
#include "kestrelml/core/SourceLocation.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Query.h"

#include <initializer_list>
#include <sstream>
#include <string>

namespace kestrelml::detail {

/// What refreshing an index showed.
class IndexState {
public:
    IndexState(KsNN_ErrorCode code, bool exists) : mCode(code), mExists(exists) {}

    bool isReady() const { return mCode == KsNN_Success && mExists; }
    bool isMissing() const { return mCode == KsNN_Success && !mExists; }
    /// The result of an operation that needs the index and takes a missing one for an empty store.
    KsNN_ErrorCode code() const { return mCode; }

private:
    KsNN_ErrorCode mCode;
    bool mExists;
};

/// One operation of the store under way. Making one clears the store's error text.
///
/// Functions that return a code have left a report when it is not KsNN_Success. The report names the line
/// that called them.
class Operation {
public:
    /// @param failure Message of the operation's reports, "KsNNDatabase::Name err: ". Must outlive this
    /// object.
    Operation(KsNNDatabase& store, const char* failure, bool debug);

    /// Makes earlier writes to `index` visible to searches.
    IndexState refresh(const std::string& index) const;
    /// The same for every index of the service; the state is that of `index`.
    IndexState refreshAll(const std::string& index) const;
    /// The same for an operation that needs the index: a missing one is reported with `missing` and a
    /// failure.
    KsNN_ErrorCode refreshExisting(const std::string& index, const char* missing,
                                   SourceLocation where = SourceLocation::current()) const;

    /// Sends; the status is the caller's to judge. Fails only when no answer came.
    KsNN_ErrorCode send(const std::string& method, const std::string& path,
                        const Object::Ptr& body = nullptr);
    /// Gives later requests another limit than the usual one, for answers that take the service long.
    void allowSeconds(unsigned seconds) { mTimeoutSeconds = seconds; }
    bool hasStatus(std::initializer_list<unsigned> accepted) const;

    /// Sends, and takes any other status than 200 for a failure, reported as `failure` or, when that is null,
    /// as the operation's message.
    KsNN_ErrorCode ask(const std::string& method, const std::string& path, const Object::Ptr& body = nullptr,
                       const char* failure = nullptr, SourceLocation where = SourceLocation::current());

    /// Creates a document with an identifier that the service chooses; `read` may then ask for it.
    KsNN_ErrorCode create(const std::string& index, const Object::Ptr& document,
                          SourceLocation where = SourceLocation::current());
    /// Runs `script` on every document of `index` that `query` finds, or that meets all conditions.
    KsNN_ErrorCode updateWhere(const std::string& index, const Object::Ptr& script, const Object::Ptr& query,
                               const char* failure = nullptr,
                               SourceLocation where = SourceLocation::current());
    KsNN_ErrorCode updateWhere(const std::string& index, const Object::Ptr& script, Conditions conditions,
                               const char* failure = nullptr,
                               SourceLocation where = SourceLocation::current()) {
        return updateWhere(index, script, allOf(conditions), failure, where);
    }
    /// Creates the documents of a bulk stream; fails when the service refuses one of them.
    KsNN_ErrorCode createAll(const std::string& index, std::stringstream& bulk,
                             SourceLocation where = SourceLocation::current());

    /// The answer to the last request, for use inside `guard`.
    const Object::Ptr& answer() const { return mAnswer; }
    /// Gives `reader` the answer. An exception of the reader becomes a report and KsNN_Error.
    template <typename Reader>
    KsNN_ErrorCode read(Reader reader, SourceLocation where = SourceLocation::current()) const {
        return guard([&] { return reader(*mAnswer); }, where);
    }
    /// Runs `step`. Its exception becomes a report and KsNN_Error.
    template <typename Step>
    KsNN_ErrorCode guard(Step step, SourceLocation where = SourceLocation::current()) const {
        const OnException rule{mFailure, KsNN_Error, nullptr, mQuotesRuntimeErrors};
        return guarded(rule, &mStore, mDebug, step, where);
    }
    /// From now on a std::runtime_error is reported by its own text.
    void quoteRuntimeErrors() { mQuotesRuntimeErrors = true; }

    /// Succeeds when the answer's `key` is the text `expected`. Writes and locks are judged by this.
    KsNN_ErrorCode expectText(const char* key, const char* expected,
                              SourceLocation where = SourceLocation::current()) const;

    /// Tells the host how far a long operation is. Not KsNN_Success: the operation ends with that code, which
    /// is the host's own unless its function threw.
    KsNN_ErrorCode tell(const KsNNProgressCallback& progress, int current, int total, const char* text = "",
                        SourceLocation where = SourceLocation::current()) const;

    /// Reports the operation's message. Returns KsNN_Error.
    KsNN_ErrorCode fail(SourceLocation where = SourceLocation::current()) const;
    /// Reports another message. Returns KsNN_Error.
    KsNN_ErrorCode failWith(const std::string& message,
                            SourceLocation where = SourceLocation::current()) const;
    /// Reports the operation's message and what there is to add. Returns KsNN_Error.
    KsNN_ErrorCode failSaying(const std::string& detail,
                              SourceLocation where = SourceLocation::current()) const;

    /// Prints a line of diagnostics if the operation was called with `debug`.
    template <typename... Parts>
    void debugLine(const Parts&... parts) const {
        detail::debugLine(mDebug, parts...);
    }

private:
    IndexState refresh(const std::string& index, bool allIndices) const;
    KsNN_ErrorCode judge(const char* failure, SourceLocation where) const;

    KsNNDatabase& mStore;
    const char* mFailure;
    bool mDebug;
    bool mQuotesRuntimeErrors = false;
    unsigned mTimeoutSeconds = kIndexTimeoutSeconds;
    Object::Ptr mAnswer;
    unsigned mStatus = 0;
};

} // namespace kestrelml::detail
