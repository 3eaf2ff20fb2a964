#include "http/Server.h"

#include "handlers/Handlers.h"
#include "security/Certificate.h"

#include <Poco/Base64Encoder.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/write.hpp>
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <string_view>
#include <unistd.h>

namespace kestrel::index {

namespace {

namespace asio = boost::asio;

class SlowClients : public testing::Test {
protected:
    SlowClients()
        : mFolder(std::filesystem::path(testing::TempDir()) / fmt::format("server-{}", ::getpid())) {
        std::filesystem::remove_all(mFolder);
        std::filesystem::create_directories(mFolder);
        ensureCertificate(mFolder / "certificate.pem", mFolder / "private-key.pem");
    }
    ~SlowClients() override { std::filesystem::remove_all(mFolder); }

    /// All that the server sends to a client that sends no more than the text.
    static std::string answerTo(std::string_view sent, const Server& server) {
        asio::io_context network;
        asio::ssl::context tls(asio::ssl::context::tls_client);
        asio::ssl::stream<asio::ip::tcp::socket> stream(network, tls);
        stream.next_layer().connect({asio::ip::address_v4::loopback(), server.port()});
        stream.handshake(asio::ssl::stream_base::client);
        asio::write(stream, asio::buffer(sent));
        std::string answer;
        boost::system::error_code end;
        asio::read(stream, asio::dynamic_buffer(answer), end);
        return answer;
    }

    std::filesystem::path mFolder;
};

} // namespace

TEST_F(SlowClients, AreToldWhyTheirConnectionEnds) {
    Services services(mFolder / "documents.db");
    Authenticator authenticator(services.users);
    const Router router;
    Server::Options options{
        .certificate = mFolder / "certificate.pem", .privateKey = mFolder / "private-key.pem", .limits = {}};
    options.limits.header = options.limits.body = std::chrono::seconds(1);
    std::ostringstream login;
    Poco::Base64Encoder(login) << Users::kAdministrator << ':'
                               << services.users.resetPassword(Users::kAdministrator);
    const Server server(options, router, authenticator);
    const std::string halfABody =
        fmt::format("PUT /x HTTP/1.1\r\nHost: x\r\nAuthorization: Basic {}\r\n"
                    "Content-Type: application/json\r\nContent-Length: 9\r\n\r\n{{\"a\"",
                    login.str());
    for (const std::string& sent : {std::string(), std::string("GET / HTTP/1.1\r\nHost: x"), halfABody})
        EXPECT_THAT(answerTo(sent, server), testing::StartsWith("HTTP/1.1 408")) << sent;
}

} // namespace kestrel::index
