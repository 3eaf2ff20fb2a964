#include "apps/kestrel/desk/Http.h"

#include "apps/kestrel/base/Json.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>
#include <Poco/Net/MediaType.h>
#include <Poco/URI.h>
#include <Poco/UUIDGenerator.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <sstream>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace kestrel::desk {

namespace {

using Status = Poco::Net::HTTPResponse::HTTPStatus;

constexpr std::size_t kLongestBody = std::size_t{1} << 20;

std::string decoded(const std::string& text) {
    std::string plain;
    Poco::URI::decode(text, plain);
    return plain;
}

template <typename Number>
std::optional<Number> numberOf(const std::string& text) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

/// Tells two versions of a file apart.
std::string tagOf(const fs::path& file) {
    struct stat state {};
    if (::stat(file.c_str(), &state) != 0) throw HttpError(404, fmt::format("{} is gone", file.string()));
    return fmt::format("\"{:x}-{:x}.{:x}\"", state.st_size, state.st_mtim.tv_sec, state.st_mtim.tv_nsec);
}

} // namespace

Exchange::Exchange(Poco::Net::HTTPServerRequest& asked, Poco::Net::HTTPServerResponse& answer)
    : request(asked), response(answer) {
    const std::string target = request.getURI();
    const std::string raw = target.substr(0, target.find_first_of("?#"));
    try {
        for (std::size_t begin = 1; begin <= raw.size();) {
            const std::size_t end = std::min(raw.find('/', begin), raw.size());
            path.push_back(decoded(raw.substr(begin, end - begin)));
            begin = end + 1;
        }
        for (const auto& [name, value] : Poco::URI(target).getQueryParameters())
            query[name] = value;
    } catch (const Poco::SyntaxException&) {
        throw HttpError(400, "the address cannot be read");
    }
}

int Exchange::identifier() const {
    const auto value = numberOf<int>(path.at(2));
    if (!value) throw HttpError(404, fmt::format("there is nothing of the number \"{}\"", path.at(2)));
    return *value;
}

std::string Exchange::parameter(const std::string& name) const {
    const auto found = query.find(name);
    return found == query.end() ? "" : found->second;
}

int Exchange::number(const std::string& name, int standard, int least, int most) const {
    const auto found = query.find(name);
    if (found == query.end()) return standard;
    const auto value = numberOf<int>(found->second);
    if (!value || *value < least || *value > most)
        throw HttpError(400,
                        fmt::format("{} must be from {} to {}, not {}", name, least, most, found->second));
    return *value;
}

Poco::JSON::Object::Ptr Exchange::body() const {
    // Forms of other pages cannot send this type without asking first.
    if (!Poco::Net::MediaType(request.getContentType()).matches("application", "json"))
        throw HttpError(415, "the body must be application/json");
    std::string text(kLongestBody + 1, '\0');
    request.stream().read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(request.stream().gcount()));
    if (text.size() > kLongestBody) throw HttpError(413, "the body is longer than 1 MiB");
    try {
        return Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
    } catch (const Poco::Exception& error) {
        throw HttpError(400, fmt::format("the body is not a JSON object: {}", error.displayText()));
    }
}

std::string requiredText(const Poco::JSON::Object& body, const std::string& name) {
    const Poco::Dynamic::Var value = body.get(name);
    if (!value.isString() || value.toString().find_first_not_of(" \t\r\n") == std::string::npos)
        throw HttpError(400, fmt::format("\"{}\" is missing", name));
    return value.toString();
}

void send(Exchange& exchange, const Poco::JSON::Object::Ptr& document) {
    exchange.response.setContentType("application/json");
    exchange.response.setChunkedTransferEncoding(true);
    document->stringify(exchange.response.send());
}

void send(Exchange& exchange, const char* name, const Poco::JSON::Array::Ptr& list) {
    auto document = jsonObject();
    document->set(name, list);
    send(exchange, document);
}

void send(Exchange& exchange, const Poco::JSON::Object::Ptr& document, const std::string& members) {
    std::ostringstream head;
    document->stringify(head);
    std::string text = head.str();
    text.pop_back();
    text += "," + members + "}";
    exchange.response.setContentType("application/json");
    exchange.response.sendBuffer(text.data(), text.size());
}

void sendError(Poco::Net::HTTPServerResponse& response, int status, const std::string& message) {
    auto document = jsonObject();
    document->set("error", message);
    const std::string text = toText(document);
    response.setStatusAndReason(static_cast<Status>(status));
    response.setContentType("application/json");
    response.setChunkedTransferEncoding(false);
    response.sendBuffer(text.data(), text.size());
}

void sendNothing(Exchange& exchange) {
    exchange.response.setStatusAndReason(Poco::Net::HTTPResponse::HTTP_NO_CONTENT);
    exchange.response.setContentLength(0);
    exchange.response.send();
}

std::optional<ByteRange> parseRange(const std::string& header, std::uint64_t size) {
    constexpr std::string_view kUnit = "bytes=";
    if (!header.starts_with(kUnit) || header.find(',') != std::string::npos) return std::nullopt;
    const std::string range = header.substr(kUnit.size());
    const std::size_t dash = range.find('-');
    if (dash == std::string::npos) return std::nullopt;
    const auto first = numberOf<std::uint64_t>(range.substr(0, dash));
    const auto last = numberOf<std::uint64_t>(range.substr(dash + 1));
    const HttpError outside(416, fmt::format("the file has {} bytes", size));
    if (dash == 0) { // the last bytes
        if (!last) return std::nullopt;
        if (*last == 0 || size == 0) throw outside;
        const std::uint64_t count = std::min(*last, size);
        return ByteRange{size - count, count};
    }
    const bool isOpen = dash + 1 == range.size();
    if (!first || (!isOpen && (!last || *last < *first))) return std::nullopt;
    if (*first >= size) throw outside;
    return ByteRange{*first, std::min(isOpen ? size - 1 : *last, size - 1) - *first + 1};
}

fs::path receiveFile(Exchange& exchange, const fs::path& folder, const std::string& name) {
    const fs::path only = fs::path(name).filename(); // what a browser sends has no folder
    if (only.empty() || only == "." || only == ".." || only != fs::path(name))
        throw HttpError(400, fmt::format("\"{}\" is no file name", name));
    if (!exchange.request.hasContentLength() || exchange.request.getContentLength64() == 0)
        throw HttpError(400, fmt::format("{} is empty", name));
    fs::path target = folder / Poco::UUIDGenerator::defaultGenerator().createRandom().toString() / only;
    fs::create_directories(target.parent_path());
    std::ofstream out(target, std::ios::binary);
    out << exchange.request.stream().rdbuf();
    out.close();
    std::error_code error;
    const bool isWhole = out && fs::file_size(target, error) ==
                                    static_cast<std::uintmax_t>(exchange.request.getContentLength64());
    if (!isWhole) {
        fs::remove_all(target.parent_path(), error);
        throw HttpError(507,
                        fmt::format("{} could not be kept: is the disk of {} full?", name, folder.string()));
    }
    return target;
}

void sendFile(Exchange& exchange, const fs::path& file, const std::string& type) {
    std::error_code error;
    const std::uint64_t size = fs::is_regular_file(file, error) ? fs::file_size(file, error) : 0;
    std::ifstream in(file, std::ios::binary);
    if (error || !in || !fs::is_regular_file(file, error))
        throw HttpError(404, fmt::format("{} is gone or cannot be read", file.string()));
    auto& response = exchange.response;
    const auto& request = exchange.request;
    const std::string tag = tagOf(file);
    response.setContentType(type);
    response.set("Accept-Ranges", "bytes");
    response.set("ETag", tag);
    ByteRange part{0, size};
    if (request.has("Range") && request.get("If-Range", tag) == tag) {
        try {
            if (const auto asked = parseRange(request.get("Range"), size)) {
                part = *asked;
                response.setStatusAndReason(Poco::Net::HTTPResponse::HTTP_PARTIAL_CONTENT);
                response.set("Content-Range",
                             fmt::format("bytes {}-{}/{}", part.first, part.first + part.count - 1, size));
            }
        } catch (const HttpError&) {
            response.set("Content-Range", fmt::format("bytes */{}", size));
            throw;
        }
    }
    response.setContentLength64(static_cast<Poco::Int64>(part.count));
    std::ostream& out = response.send();
    in.seekg(static_cast<std::streamoff>(part.first));
    std::vector<char> buffer(std::size_t{64} << 10);
    // A player that jumps to another place closes the connection: then `out` fails.
    while (part.count > 0 && out) {
        in.read(buffer.data(),
                static_cast<std::streamsize>(std::min<std::uint64_t>(buffer.size(), part.count)));
        if (in.gcount() <= 0) break;
        out.write(buffer.data(), in.gcount());
        part.count -= static_cast<std::uint64_t>(in.gcount());
    }
}

} // namespace kestrel::desk
