#pragma once

#include "kestrelml/exchange/ExchangeReader.h"
#include "kestrelml/exchange/ExchangeWriter.h"
#include "tests/store/ScriptedStore.h"

#include <Poco/TemporaryFile.h>

#include <fstream>

namespace kestrel_test {

/// A scripted store with a pass phrase, and a file.
class ExchangeStore : public ScriptedStore {
protected:
    ExchangeStore() {
        usePassPhrase("of the tests");
        KsNNDatabase::setTranscriptIndex("clips");
    }
    void usePassPhrase(const std::string& passPhrase) {
        mPassPhrase = passPhrase;
        mStore->SetCredentials("-", "-", passPhrase, false, false);
        const auto encrypted = [&](const std::string& text) {
            std::stringstream plain(text);
            std::stringstream result;
            mStore->IEncryptStream(plain, result, false);
            return result.str();
        };
        mStore->SetCredentials(encrypted("user"), encrypted("password"), passPhrase, false, false);
    }

    std::string contents(const std::string& suffix = "") const {
        std::ifstream in(mFile.path() + suffix, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    /// Elements of the file.
    std::vector<std::string> pages() const {
        std::istringstream in(contents());
        std::vector<std::string> result;
        kestrelml::detail::readExchange(in, mPassPhrase, [&](const std::string& element) {
            result.push_back(element);
            return KsNN_Success;
        });
        return result;
    }
    /// Writes the file from pages of documents.
    void writePages(const std::vector<std::string>& pages) const {
        std::ofstream out(mFile.path(), std::ios::binary);
        kestrelml::detail::ExchangeWriter writer(out, mPassPhrase);
        for (const std::string& page : pages)
            writer.add(page);
        writer.finish();
    }

    std::string mPassPhrase;
    Poco::TemporaryFile mFile;
};

inline Reply page(const std::string& documents, const std::string& scrollId = "s") {
    return ok(R"({"_scroll_id": ")" + scrollId + R"(", "hits": {"hits": [)" + documents + "]}}");
}

} // namespace kestrel_test
