#include "kestrelml/core/RequestTarget.h"

#include <Poco/NumberFormatter.h>

#include <string_view>

namespace kestrelml::detail {
namespace {

bool isUnreserved(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("-._~").find(c) != std::string_view::npos;
}

bool isAllowedInTarget(char c) {
    return isUnreserved(c) || std::string_view("%/?:@!$&'()*+,;=[]").find(c) != std::string_view::npos;
}

template <typename Predicate>
std::string escapeUnless(Predicate isAllowed, std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        if (isAllowed(c)) {
            escaped += c;
        } else {
            escaped += '%';
            Poco::NumberFormatter::appendHex(escaped, static_cast<unsigned char>(c), 2);
        }
    }
    return escaped;
}

} // namespace

std::string requestTarget(const std::string& uri) {
    std::string_view rest = uri;
    rest = rest.substr(0, rest.find('#'));
    const std::size_t scheme = rest.find("://");
    if (scheme != std::string_view::npos) rest.remove_prefix(scheme + 3);
    const std::size_t begin = rest.find_first_of("/?");
    if (begin == std::string_view::npos) return "/";
    const std::string target = escapeUnless(isAllowedInTarget, rest.substr(begin));
    return target.front() == '/' ? target : "/" + target;
}

std::string pathSegment(const std::string& identifier) {
    return escapeUnless(isUnreserved, identifier);
}

} // namespace kestrelml::detail
