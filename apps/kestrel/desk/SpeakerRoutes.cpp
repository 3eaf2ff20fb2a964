#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/ProjectSpeakers.h"
#include "apps/kestrel/clips/SpeakerSnapshot.h"
#include "apps/kestrel/desk/Parts.h"

#include <Poco/JSON/Array.h>

#include <utility>

namespace kestrel::desk {

namespace {

constexpr std::string_view kLabelPrefix = "Speaker ";

/// The clip in the first of its projects: names of speakers belong to projects.
Clip clipInProject(Parts& parts, const std::string& id) {
    const Transcripts::Ptr transcript = parts.transcripts.recent(id);
    if (transcript->entry.projects.empty())
        throw Failure("the clip is in no project: its speakers cannot be named");
    return {id, transcript->entry.clipName, "", transcript->entry.projects.front()};
}

void listSpeakers(Exchange& exchange, Parts& parts) {
    const Clip clip = clipInProject(parts, exchange.path.at(2));
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    parts.stores.with([&](KsNNDatabase& store) {
        for (const ListedSpeaker& speaker : ProjectSpeakers(store, clip.project).list())
            list->add(speaker.name);
    });
    send(exchange, "speakers", list);
}

/// What is remembered of the store goes also when the change ends half way.
template <typename Change>
void performAndForget(Parts& parts, Change perform) {
    try {
        perform();
    } catch (...) {
        parts.forget();
        throw;
    }
    parts.forget();
}

/// Changes speakers so that it can be undone, and answers with the number of the change.
template <typename Change>
void change(Exchange& exchange, Parts& parts, KsNNDatabase& store, const KsNNProject& project,
            SpeakerChange touched, Change perform) {
    SpeakerSnapshot before(store, project, std::move(touched));
    // What ends half way can be undone, and an earlier change no more.
    const int number = parts.lastChange.keep(std::move(before));
    performAndForget(parts, perform);
    auto document = jsonObject();
    document->set("undo", number);
    send(exchange, document);
}

/// Gives a voice of the clip a name: a label gets a speaker, a speaker another name, and two that come to
/// have the same name become one.
void nameSpeaker(Exchange& exchange, Parts& parts) {
    const auto body = exchange.body();
    const std::string shown = requiredText(*body, "speaker");
    const std::string name = requiredText(*body, "name");
    if (shown == name) return send(exchange, jsonObject());
    const Clip clip = clipInProject(parts, exchange.path.at(2));
    parts.stores.with([&](KsNNDatabase& store) {
        ProjectSpeakers speakers(store, clip.project);
        const std::vector<KsNNSpeakerKV> named = speakers.matching(shown);
        const std::vector<KsNNSpeakerKV> wanted = speakers.matching(name);
        if (named.empty()) {
            const std::string label =
                shown.starts_with(kLabelPrefix) ? shown.substr(kLabelPrefix.size()) : shown;
            change(exchange, parts, store, clip.project, {{clip}, wanted, name}, [&] {
                speakers.assignLabel(clip, wanted.empty() ? speakers.create(name) : wanted.front(), label);
            });
        } else if (wanted.empty()) {
            change(exchange, parts, store, clip.project, {{}, {named.front()}, ""},
                   [&] { speakers.rename(named.front(), name); });
        } else {
            change(exchange, parts, store, clip.project,
                   {speakers.clipsOf(named.front()), {named.front(), wanted.front()}, ""},
                   [&] { speakers.merge(named.front(), wanted.front()); });
        }
    });
}

/// Gives one segment of the clip to a speaker of that name, who may be new.
void assignSegment(Exchange& exchange, Parts& parts) {
    const auto body = exchange.body();
    const std::string name = requiredText(*body, "name");
    const int segment = body->optValue("segment", -1);
    const Clip clip = clipInProject(parts, exchange.path.at(2));
    parts.stores.with([&](KsNNDatabase& store) {
        ProjectSpeakers speakers(store, clip.project);
        const std::vector<KsNNSpeakerKV> wanted = speakers.matching(name);
        change(exchange, parts, store, clip.project, {{clip}, wanted, name}, [&] {
            speakers.assignSegment(clip, wanted.empty() ? speakers.create(name) : wanted.front(), segment);
        });
    });
}

/// Takes a name away in the whole clip, or from one segment.
void clearSpeaker(Exchange& exchange, Parts& parts) {
    const auto body = exchange.body();
    const std::string shown = requiredText(*body, "speaker");
    const int segment = body->optValue("segment", -1);
    const Clip clip = clipInProject(parts, exchange.path.at(2));
    parts.stores.with([&](KsNNDatabase& store) {
        ProjectSpeakers speakers(store, clip.project);
        const KsNNSpeakerKV speaker = speakers.find(shown);
        change(exchange, parts, store, clip.project, {{clip}, {speaker}, ""}, [&] {
            if (segment < 0)
                speakers.clearClip(clip, speaker);
            else
                speakers.clearSegment(clip, speaker, segment);
        });
    });
}

void undo(Exchange& exchange, Parts& parts) {
    const int number = exchange.body()->optValue("undo", 0);
    const SpeakerSnapshot before = parts.lastChange.before(number);
    performAndForget(parts, [&] { parts.stores.with([&](KsNNDatabase& store) { before.restore(store); }); });
    parts.lastChange.forget(number);
    sendNothing(exchange);
}

} // namespace

void addSpeakerRoutes(Routes& routes, Parts& parts) {
    const auto add = [&](const char* method, const char* pattern, void (*answer)(Exchange&, Parts&)) {
        routes.add(method, pattern, [&parts, answer](Exchange& exchange) { answer(exchange, parts); });
    };
    add("GET", "/api/clips/*/speakers", listSpeakers);
    add("POST", "/api/clips/*/speakers", nameSpeaker);
    add("POST", "/api/clips/*/speakers/segment", assignSegment);
    add("POST", "/api/clips/*/speakers/clear", clearSpeaker);
    add("POST", "/api/speakers/undo", undo);
}

} // namespace kestrel::desk
