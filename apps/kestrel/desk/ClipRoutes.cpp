#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/desk/Parts.h"
#include "apps/kestrel/media/ClipClock.h"

#include <fmt/format.h>

#include <algorithm>
#include <future>

namespace fs = std::filesystem;

namespace kestrel::desk {

namespace {

/// What is known of the clip's media; `error` says why it cannot be played.
Poco::JSON::Object::Ptr describeMedia(Parts& parts, const std::string& clip) {
    auto object = jsonObject();
    try {
        const fs::path file = parts.media.require(clip);
        object->set("path", file.string());
        const ClipClock clock = readClock(file, {});
        object->set("video", clock.hasVideo);
        object->set("durationMS", clock.rate.millisecondsAt(clock.frameCount));
        if (clock.hasOwnTimecode) object->set("startTimecode", clock.startTimecode());
        if (clock.hasOwnRate) object->set("frameRate", clock.rate.name());
    } catch (const std::exception& failure) {
        object->set("error", std::string(failure.what()));
    }
    return object;
}

void clip(Exchange& exchange, Parts& parts) {
    const std::string& id = exchange.path.at(2);
    // A long film's index takes as long to read as its transcript.
    auto media = std::async(std::launch::async, [&] { return describeMedia(parts, id); });
    const Transcripts::Ptr transcript = parts.transcripts.read(id);
    Poco::JSON::Array::Ptr projects = new Poco::JSON::Array;
    for (const KsNNProject& project : transcript->entry.projects) {
        auto object = jsonObject();
        object->set("projectId", project.projectGuid);
        object->set("project", project.projectName);
        projects->add(object);
    }
    auto document = jsonObject();
    document->set("clip", id);
    document->set("clipName", transcript->entry.clipName);
    document->set("complete", transcript->entry.progressComplete);
    document->set("projects", projects);
    document->set("media", media.get());
    send(exchange, document, toJson(transcript->passages));
}

/// The passage of a segment, or the one that is said at a time or was last.
std::vector<Passage>::const_iterator passageAt(const Exchange& exchange,
                                               const std::vector<Passage>& passages) {
    constexpr int kMost = 1'000'000'000;
    if (!exchange.parameter("at").empty()) {
        const int at = exchange.number("at", 0, 0, kMost);
        const auto next =
            std::upper_bound(passages.begin(), passages.end(), at,
                             [](int time, const Passage& passage) { return time < passage.startMs; });
        return next == passages.begin() ? next : next - 1;
    }
    const int segment = exchange.number("segment", 0, 0, kMost);
    const auto found = std::find_if(passages.begin(), passages.end(),
                                    [&](const Passage& passage) { return passage.segment == segment; });
    if (found == passages.end()) throw HttpError(404, fmt::format("the clip has no segment {}", segment));
    return found;
}

/// The lines around a segment or a time, with what a player has to know.
void linesAround(Exchange& exchange, Parts& parts) {
    const auto count = static_cast<std::ptrdiff_t>(exchange.number("count", 2, 0, 50));
    const Transcripts::Ptr transcript = parts.transcripts.recent(exchange.path.at(2));
    const std::vector<Passage>& passages = transcript->passages;
    const auto middle = passageAt(exchange, passages);
    const auto first = middle - std::min(count, middle - passages.begin());
    const auto last = middle + std::min(count + 1, passages.end() - middle);
    auto document = jsonObject();
    document->set("media", describeMedia(parts, exchange.path.at(2)));
    send(exchange, document, toJson({first, last}));
}

/// Answers 202 with the state until the thing is made.
bool isReady(Exchange& exchange, const Derived::Status& status) {
    if (status.state == Derived::State::Ready) return true;
    if (status.state == Derived::State::Failed) throw HttpError(422, status.error);
    auto document = jsonObject();
    document->set("fraction", status.fraction);
    exchange.response.setStatusAndReason(Poco::Net::HTTPResponse::HTTP_ACCEPTED);
    send(exchange, document);
    return false;
}

void peaks(Exchange& exchange, Parts& parts) {
    const std::string& id = exchange.path.at(2);
    const auto status = parts.derived.ask(Derived::Kind::Peaks, id, parts.media.require(id));
    if (isReady(exchange, status)) sendFile(exchange, status.file, "application/octet-stream");
}

void preview(Exchange& exchange, Parts& parts) {
    const std::string& id = exchange.path.at(2);
    const auto status = parts.derived.ask(Derived::Kind::Preview, id, parts.media.require(id));
    if (!isReady(exchange, status)) return;
    auto document = jsonObject();
    document->set("address", exchange.request.getURI() + "/media");
    send(exchange, document);
}

void previewMedia(Exchange& exchange, Parts& parts) {
    parts.media.require(exchange.path.at(2)); // what is no longer in the catalogue is not shown
    sendFile(exchange, parts.derived.fileOf(Derived::Kind::Preview, exchange.path.at(2)), "video/mp4");
}

void media(Exchange& exchange, Parts& parts) {
    const fs::path file = parts.media.require(exchange.path.at(2));
    sendFile(exchange, file, mediaType(file));
}

} // namespace

void addClipRoutes(Routes& routes, Parts& parts) {
    const auto add = [&](const char* pattern, void (*answer)(Exchange&, Parts&)) {
        routes.add("GET", pattern, [&parts, answer](Exchange& exchange) { answer(exchange, parts); });
    };
    add("/api/clips/*", clip);
    add("/api/clips/*/lines", linesAround);
    add("/api/clips/*/media", media);
    add("/api/clips/*/peaks", peaks);
    add("/api/clips/*/preview", preview);
    add("/api/clips/*/preview/media", previewMedia);
}

} // namespace kestrel::desk
