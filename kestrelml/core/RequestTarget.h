#pragma once

/// @file
/// From a URI to the first line of a request. Internal.

#include <string>

namespace kestrelml::detail {

/// Path and query of `uri` as they go on the wire; "/" when there are none.
///
/// Escapes are kept as written: decoding "%2F", as a URI class does, would turn one path segment into two.
/// What must not appear raw in a request line (spaces, quotes, bytes beyond ASCII) is escaped.
std::string requestTarget(const std::string& uri);

/// `identifier` as one segment of a path. The same string when it has only letters, digits and "-._~".
std::string pathSegment(const std::string& identifier);

} // namespace kestrelml::detail
