#pragma once

/// @file
/// Where a function was called from. Internal.

#include <source_location>

namespace kestrelml::detail {

#ifdef __cpp_lib_source_location
using SourceLocation = std::source_location;
#else
/// What the library uses of std::source_location, which clang before 16 does not have.
class SourceLocation {
public:
    static constexpr SourceLocation current(unsigned line = __builtin_LINE()) {
        SourceLocation location;
        location.mLine = line;
        return location;
    }
    constexpr unsigned line() const { return mLine; }

private:
    unsigned mLine = 0;
};
#endif

} // namespace kestrelml::detail
