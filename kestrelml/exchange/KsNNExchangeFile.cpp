#include "kestrelml/exchange/KsNNExchangeFile.h"

#include "kestrelml/exchange/ExchangeReader.h"
#include "kestrelml/platform/Paths.h"
#include "kestrelml/store/Operation.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

using namespace kestrelml::detail;

KsNN_ErrorCode kestrelml::readExchangeFile(KsNNDatabase& store, const std::string& path,
                                           const ExchangePageVisitor& visit, bool debug) {
    const Operation operation(store, "readExchangeFile err: ", debug);
    const auto failFor = [&](const std::string& reason) {
        return operation.failSaying("The exchange file " + path + " cannot be read: " + reason);
    };
    const std::filesystem::path source = platform::pathFromUtf8(path);
    std::error_code ignored;
    // A stream opens a directory and finds it empty.
    if (std::filesystem::is_directory(source, ignored)) return failFor("it is a directory");
    errno = 0;
    std::ifstream file(source, std::ios::binary);
    if (!file.is_open()) return failFor(std::generic_category().message(errno));
    const std::string passPhrase = KsNNDatabase::getKey();
    if (passPhrase.empty()) return failFor("no pass phrase is set");
    return operation.guard([&] { return readExchange(file, passPhrase, visit); });
}
