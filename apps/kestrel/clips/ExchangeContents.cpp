#include "apps/kestrel/clips/ExchangeContents.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "kestrelml/exchange/KsNNExchangeFile.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Handler.h>
#include <Poco/JSON/Parser.h>
#include <fmt/format.h>
#include <unicode/unistr.h>

#include <cstdint>
#include <utility>

namespace kestrel {

namespace {

// Members of the page with the names.
constexpr const char* kSpeakers = "speakers";
constexpr const char* kSpeakerId = "speakerGuid";
constexpr const char* kSpeakerName = "speakerName";

/// Notes clips and speakers while pages are parsed: their trees would take twenty times their size.
class ContentsLister : public Poco::JSON::Handler {
public:
    ExchangeContents take() {
        std::set<std::string> speaking;
        for (const ExchangeClip& clip : mContents.clips) {
            for (const auto& [label, speakers] : clip.speakers) {
                for (const auto& [speaker, segments] : speakers)
                    speaking.insert(speaker);
            }
        }
        std::erase_if(mContents.speakers, [&](const auto& named) {
            return named.first.empty() || named.first == KsNNDBEntrySeg().speakerGuid ||
                   named.second.empty() || !speaking.contains(named.first);
        });
        return std::move(mContents);
    }

    void reset() override { mDepth = 0; }
    void startObject() override { ++mDepth; }
    void endObject() override {
        if (mDepth == kDocumentDepth && mPart == "hits") endDocument();
        if (mDepth == kSpeakerDepth && mPart == kSpeakers) {
            mContents.speakers.emplace(mSpeaker.first, mSpeaker.second);
            mSpeaker = {};
        }
        --mDepth;
    }
    void startArray() override { ++mDepth; }
    void endArray() override { --mDepth; }
    void key(const std::string& name) override {
        if (mDepth == 1) mPart = name;
        if (mDepth <= kDocumentDepth) mKey = name;
    }
    void null() override {}
    void value(int number) override { noteSegment(number); }
    void value(unsigned number) override { noteSegment(number); }
#if defined(POCO_HAVE_INT64)
    void value(Poco::Int64 number) override {
        noteSegment(number);
    }
    void value(Poco::UInt64 number) override {
        noteSegment(static_cast<std::int64_t>(number));
    }
#endif
    void value(double) override {
    }
    void value(bool) override {
    }
    void value(const std::string& text) override {
        if (mDepth == kSpeakerDepth && mPart == kSpeakers) {
            if (mKey == kSpeakerId) mSpeaker.first = text;
            if (mKey == kSpeakerName) mSpeaker.second = text;
        }
        if (mDepth == kDocumentDepth + 1 && mKey == "projectGuidList") mDocument.projectIds.insert(text);
        if (mDepth != kDocumentDepth) return;
        if (mKey == kSpeakerId) mSpeakerOfSegment = text;
        if (mKey == "speakerID") mLabel = text;
        if (mKey == "mediaGuid") mDocument.id = text;
        if (mKey == "clipName") mDocument.name = text;
        if (mKey == "language") mDocument.language = text;
    }

private:
    /// Page, "hits", its "hits", hit, "_source".
    static constexpr int kDocumentDepth = 5;
    /// Page, its list, speaker.
    static constexpr int kSpeakerDepth = 3;

    /// Beyond what segments count to, the library's import refuses the file.
    void noteSegment(std::int64_t number) {
        if (mDepth == kDocumentDepth && mKey == "segment") mSegment = static_cast<int>(number);
    }

    void endDocument() {
        std::vector<ExchangeClip>& clips = mContents.clips;
        if (clips.empty() || clips.back().id != mDocument.id) {
            clips.emplace_back();
            clips.back().id = mDocument.id;
            clips.back().language = mDocument.language;
        }
        ExchangeClip& clip = clips.back();
        if (!mDocument.name.empty()) clip.name = mDocument.name;
        clip.projectIds.merge(mDocument.projectIds);
        clip.speakers[mLabel][mSpeakerOfSegment].push_back(mSegment);
        mLabel.clear();
        mSpeakerOfSegment.clear();
        ++clip.segments;
        mDocument = {};
    }

    ExchangeContents mContents;
    ExchangeClip mDocument;
    int mSegment = 0; ///< Of the document, as the others.
    std::string mLabel;
    std::string mSpeakerOfSegment;
    std::pair<std::string, std::string> mSpeaker;
    std::string mPart; ///< Of the page.
    std::string mKey;
    int mDepth = 0;
};

/// The parser quotes bytes of the file as they are.
std::string validUtf8(const std::string& text) {
    std::string valid;
    return icu::UnicodeString::fromUTF8(text).toUTF8String(valid);
}

} // namespace

ExchangeContents readExchangeContents(KsNNDatabase& store, const std::filesystem::path& file) {
    Poco::SharedPtr<ContentsLister> lister(new ContentsLister);
    std::string damage;
    const auto note = [&](const std::string& page) {
        try {
            Poco::JSON::Parser(lister).parse(page);
            return KsNN_Success;
        } catch (const Poco::Exception& error) {
            damage = validUtf8(error.message());
            return KsNN_Error;
        }
    };
    if (kestrelml::readExchangeFile(store, file.string(), note, false) == KsNN_Success) return lister->take();
    if (!damage.empty()) throw Failure(fmt::format("{} is damaged: {}", file.string(), damage));
    throw Failure(fmt::format("{} cannot be read: it belongs to another pass phrase, is truncated or "
                              "damaged, or is no exchange file",
                              file.string()));
}

std::string speakerPage(const SpeakerNames& names) {
    auto noDocuments = jsonObject();
    noDocuments->set("hits", jsonArray(std::vector<std::string>{}));
    std::vector<Poco::JSON::Object::Ptr> speakers;
    for (const auto& [id, name] : names) {
        auto speaker = jsonObject();
        speaker->set(kSpeakerId, id);
        speaker->set(kSpeakerName, name);
        speakers.push_back(speaker);
    }
    auto page = jsonObject();
    page->set("hits", noDocuments);
    page->set(kSpeakers, jsonArray(speakers));
    return toText(page);
}

} // namespace kestrel
