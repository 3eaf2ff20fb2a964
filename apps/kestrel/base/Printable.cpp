#include "apps/kestrel/base/Printable.h"

#include <fmt/format.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <string_view>

namespace kestrel {

namespace {

/// Length of the emphasis that begins there; 0 when none does.
std::size_t emphasisAt(std::string_view text) {
    for (const std::string_view code : {kEmphasisOn, kEmphasisOff}) {
        if (text.starts_with(code)) return code.size();
    }
    return 0;
}

template <typename IsKept>
std::string escaped(const std::string& text, IsKept isKept) {
    const icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text); // U+FFFD for what is not UTF-8
    std::string shown;
    for (int i = 0; i < unicode.length(); i = unicode.moveIndex32(i, 1)) {
        const UChar32 character = unicode.char32At(i);
        if (u_iscntrl(character) && !isKept(character))
            shown += fmt::format("\\x{:02x}", static_cast<unsigned>(character));
        else
            icu::UnicodeString(character).toUTF8String(shown);
    }
    return shown;
}

} // namespace

bool isUtf8(const std::string& text) {
    std::string again;
    return icu::UnicodeString::fromUTF8(text).toUTF8String(again) == text;
}

std::string printable(const std::string& text) {
    std::string shown;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t emphasis = emphasisAt(std::string_view(text).substr(i));
        const std::size_t end = emphasis > 0 ? i + emphasis : text.find('\033', i + 1);
        const std::string part = text.substr(i, end - i);
        shown += emphasis > 0 ? part : escaped(part, [](UChar32 character) {
            return character == '\n' || character == '\t';
        });
        i = std::min(end, text.size());
    }
    return shown;
}

std::string printableName(const std::string& name) {
    return escaped(name, [](UChar32) { return false; });
}

std::string counted(std::size_t count, const std::string& noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

} // namespace kestrel
