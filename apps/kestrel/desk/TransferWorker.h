#pragma once

#include <functional>
#include <iosfwd>

namespace kestrel::desk {

/// Writes or reads one exchange file in a process of its own: the library knows one pass phrase for a whole
/// process, and the desk goes on working under another.
///
/// @param in  One line, a JSON object: `do` ("export", "preview", "import"), `file`, `passPhrase`; an export
///            has `clips` and `projects`, the others `project`.
/// @param out JSON objects, one a line: `stage` with `fraction` while it works, in the end `result`, `error`
///            or `cancelled`.
void runTransferWorker(std::istream& in, std::ostream& out, const std::function<bool()>& isCancelled);

} // namespace kestrel::desk
