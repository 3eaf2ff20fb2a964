#pragma once

#include "apps/kestrel/home/Home.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace kestrel::desk {

/// The server behind the pages: on the loopback address, for one browser. Runs until it is destroyed.
class Desk {
public:
    /// @param port  0: any free one.
    /// @param pages Folder of the pages.
    /// @throws Failure when the store is unavailable, the port is taken or the pages are missing.
    Desk(const Home& home, std::uint16_t port, const std::filesystem::path& pages);
    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;
    ~Desk();

    /// The address to open, good for one browser.
    std::string address() const;

private:
    class Server;
    std::unique_ptr<Server> mServer;
};

/// Folder of the pages, beside the executable.
std::filesystem::path pageFolder();

} // namespace kestrel::desk
