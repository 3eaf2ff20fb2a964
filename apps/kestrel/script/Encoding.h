#pragma once

#include <string>

namespace kestrel {

struct DecodedText {
    std::string text;     ///< UTF-8.
    std::string encoding; ///< What it was written in; empty for UTF-8.
};

/// Reads text of an encoding that nobody has named: UTF-8, UTF-16 or -32, else what its bytes look like most
/// (ICU's detection), and Windows-1252 when they look like nothing.
/// @throws Failure, without the file's name, when it is no text.
DecodedText decodeText(const std::string& bytes);

} // namespace kestrel
