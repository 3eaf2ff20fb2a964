#pragma once

#include "base/Json.h"

namespace kestrel::index {

/// A script of an update. The service has no script engine: it knows its clients' scripts by their exact text
/// and implements them natively. Throws an ApiError for other scripts, and for a document on which the script
/// would fail; that document may be half changed and must be discarded.
class UpdateScript {
public:
    /// script: the "script" object of a request.
    explicit UpdateScript(const Json& script);
    void run(Json& source) const;

private:
    using Body = void (*)(Json& source, const Json& params);

    Json mScript;
    Body mBody = nullptr;
};

} // namespace kestrel::index
