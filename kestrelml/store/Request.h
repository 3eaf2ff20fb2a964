#pragma once

/// @file
/// The steps that all operations of the store share: send, judge the status, read the answer, report.
/// Internal.

#include "kestrelml/core/RESTCall.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Object.h>

#include <initializer_list>
#include <string>

namespace kestrelml::detail {

/// Requests of one operation on the index service.
class Request {
public:
    /// @param failure Message of the operation's reports, "KsNNDatabase::Operation err: ".
    Request(KsNNDatabase& store, const char* failure, bool debug)
        : mStore(store), mFailure(failure), mDebug(debug) {}

    /// Fails only when no answer came; then the transport has reported.
    KsNN_ErrorCode send(const std::string& method, const std::string& path,
                        const Poco::JSON::Object::Ptr& body = nullptr) {
        return RESTCall(method, path, 10, body, mAnswer, mStatus, &mStore, true, true, mDebug);
    }

    bool hasStatus(std::initializer_list<unsigned> accepted) const {
        for (const unsigned status : accepted) {
            if (mStatus == status) return true;
        }
        return false;
    }

    /// Sends, and takes any other status than 200 for a failure.
    KsNN_ErrorCode sendExpectingOk(const std::string& method, const std::string& path,
                                   const Poco::JSON::Object::Ptr& body = nullptr,
                                   unsigned location = __builtin_LINE()) {
        const KsNN_ErrorCode code = send(method, path, body);
        if (code != KsNN_Success) return code;
        return hasStatus({200}) ? KsNN_Success : fail(location);
    }

    /// Reports the operation's message; 1.
    KsNN_ErrorCode fail(unsigned location = __builtin_LINE()) const { return failWith(mFailure, location); }
    /// Reports another message; 1.
    KsNN_ErrorCode failWith(const char* message, unsigned location = __builtin_LINE()) const {
        reportError(nullptr, message, location, &mStore, mDebug);
        return KsNN_Error;
    }

    /// Gives `reader` the answer. What it throws becomes a report and 1.
    template <typename Reader>
    KsNN_ErrorCode read(Reader reader, unsigned location = __builtin_LINE()) const {
        return guard([&] { return reader(*mAnswer); }, location);
    }

    /// Runs `step`. What it throws becomes a report and 1.
    template <typename Step>
    KsNN_ErrorCode guard(Step step, unsigned location = __builtin_LINE()) const {
        try {
            return step();
        } catch (const Poco::Exception& caught) {
            reportError(&caught, nullptr, location, &mStore, mDebug);
            return KsNN_Error;
        } catch (...) {
            return fail(location);
        }
    }

    /// Succeeds when the answer's `key` is the text `expected`. The store's writes are judged by this.
    KsNN_ErrorCode expectText(const char* key, const char* expected,
                              unsigned location = __builtin_LINE()) const;

private:
    KsNNDatabase& mStore;
    const char* mFailure;
    bool mDebug;
    Poco::JSON::Object::Ptr mAnswer;
    unsigned mStatus = 0;
};

} // namespace kestrelml::detail
