#pragma once

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kestrel::desk {

/// A request that is answered with an error; the text is for people.
class HttpError : public std::runtime_error {
public:
    HttpError(int status, const std::string& message) : std::runtime_error(message), mStatus(status) {}
    int status() const { return mStatus; }

private:
    int mStatus;
};

/// One request with its answer.
struct Exchange {
    Poco::Net::HTTPServerRequest& request;
    Poco::Net::HTTPServerResponse& response;
    std::vector<std::string> path;            ///< Parts between slashes, each decoded on its own.
    std::map<std::string, std::string> query; ///< The last of several equal names.

    Exchange(Poco::Net::HTTPServerRequest& asked, Poco::Net::HTTPServerResponse& answer);

    /// The number behind "/api/jobs/" and the like.
    /// @throws HttpError (404) when there is none.
    int identifier() const;
    /// Empty when it was not given.
    std::string parameter(const std::string& name) const;
    /// @throws HttpError (400) when it is no number from `least` to `most`.
    int number(const std::string& name, int standard, int least, int most) const;
    /// @throws HttpError when the body is not a JSON object or longer than 1 MiB.
    Poco::JSON::Object::Ptr body() const;
};

/// A member of a request's body.
/// @throws HttpError (400) when it is missing, blank or no text.
std::string requiredText(const Poco::JSON::Object& body, const std::string& name);

void send(Exchange& exchange, const Poco::JSON::Object::Ptr& document);
/// Sends an object whose only member is the list.
void send(Exchange& exchange, const char* name, const Poco::JSON::Array::Ptr& list);
/// The same with more members, as JSON text, behind those of the document, which has some.
void send(Exchange& exchange, const Poco::JSON::Object::Ptr& document, const std::string& members);
void sendError(Poco::Net::HTTPServerResponse& response, int status, const std::string& message);
void sendNothing(Exchange& exchange);

/// First byte and number of bytes.
struct ByteRange {
    std::uint64_t first = 0;
    std::uint64_t count = 0;
};

/// What a `Range` header asks of a file; nothing when the whole file is to be sent, as for several ranges.
/// @throws HttpError (416) when no byte of the file is asked for.
std::optional<ByteRange> parseRange(const std::string& header, std::uint64_t size);

/// Streams the body, a file that was chosen or dropped on a page, into a folder of its own in `folder`, under
/// its own name.
/// @throws HttpError (400) when it is empty or `name` is no file name, (507) when it cannot be kept.
std::filesystem::path receiveFile(Exchange& exchange, const std::filesystem::path& folder,
                                  const std::string& name);

/// Sends a file or the part of it that the request asks for.
/// @throws HttpError when it cannot be read.
void sendFile(Exchange& exchange, const std::filesystem::path& file, const std::string& type);

} // namespace kestrel::desk
