#include "apps/kestrel/clips/ExchangeContents.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/services/Store.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Handler.h>
#include <Poco/JSON/Parser.h>
#include <fmt/format.h>
#include <unicode/unistr.h>

#include <sstream>
#include <utility>

namespace kestrel {

namespace {

/// Notes the clips while the text is parsed: a tree of a whole project would take twenty times its size.
class ClipLister : public Poco::JSON::Handler {
public:
    std::vector<ExchangeClip> take() { return std::move(mClips); }

    void reset() override {}
    void startObject() override { ++mDepth; }
    void endObject() override {
        if (mDepth == kDocumentDepth) endDocument();
        --mDepth;
    }
    void startArray() override { ++mDepth; }
    void endArray() override { --mDepth; }
    void key(const std::string& name) override {
        if (mDepth <= kDocumentDepth) mKey = name;
    }
    void null() override {}
    void value(int) override {}
    void value(unsigned) override {}
#if defined(POCO_HAVE_INT64)
    void value(Poco::Int64) override {
    }
    void value(Poco::UInt64) override {
    }
#endif
    void value(double) override {
    }
    void value(bool) override {
    }
    void value(const std::string& text) override {
        if (mDepth == kDocumentDepth + 1 && mKey == "projectGuidList") mDocument.projectIds.insert(text);
        if (mDepth != kDocumentDepth) return;
        if (mKey == "mediaGuid") mDocument.id = text;
        if (mKey == "clipName") mDocument.name = text;
        if (mKey == "language") mDocument.language = text;
    }

private:
    /// Array of pages, page, "hits", its "hits", hit, "_source".
    static constexpr int kDocumentDepth = 6;

    void endDocument() {
        if (mClips.empty() || mClips.back().id != mDocument.id) {
            mClips.emplace_back();
            mClips.back().id = mDocument.id;
            mClips.back().language = mDocument.language;
        }
        ExchangeClip& clip = mClips.back();
        if (!mDocument.name.empty()) clip.name = mDocument.name;
        clip.projectIds.merge(mDocument.projectIds);
        ++clip.segments;
        mDocument = {};
    }

    std::vector<ExchangeClip> mClips;
    ExchangeClip mDocument;
    std::string mKey;
    int mDepth = 0;
};

/// The parser quotes bytes of the file as they are.
std::string validUtf8(const std::string& text) {
    std::string valid;
    return icu::UnicodeString::fromUTF8(text).toUTF8String(valid);
}

} // namespace

std::vector<ExchangeClip> readExchangeContents(KsNNDatabase& store, const std::filesystem::path& file) {
    std::stringstream plain;
    {
        std::stringstream encrypted(readFile(file));
        if (store.IDecryptStream(encrypted, plain, false) != KsNN_Success || plain.peek() != '[')
            throw Failure(fmt::format("{} cannot be read: it belongs to another pass phrase, is truncated or "
                                      "damaged, or is no exchange file",
                                      file.string()));
    }
    Poco::SharedPtr<ClipLister> lister(new ClipLister);
    try {
        Poco::JSON::Parser(lister).parse(plain);
    } catch (const Poco::Exception& error) {
        throw Failure(fmt::format("{} is damaged: {}", file.string(), validUtf8(error.message())));
    }
    return lister->take();
}

} // namespace kestrel
