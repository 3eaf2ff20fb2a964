#pragma once

#include "base/Json.h"

namespace kestrel::index {

/// Runs a script of an update on a document. The service has no script engine: it knows the scripts of its
/// clients by their exact text and runs them natively. Refuses others, and fails as the script itself would
/// on a document that it does not suit; the document may then be half changed and must not be used.
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
