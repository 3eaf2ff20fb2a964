#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/desk/Exports.h"
#include "apps/kestrel/forms/Forms.h"
#include "apps/kestrel/forms/Sources.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Array.h>
#include <fmt/format.h>

#include <map>
#include <utility>

namespace kestrel::desk {

namespace {

void listForms(Exchange& exchange, Parts& /*parts*/) {
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const auto& [name, form] : forms()) {
        auto object = jsonObject();
        object->set("form", name);
        object->set("summary", form.summary);
        object->set("edit", form.isEdit);
        list->add(object);
    }
    send(exchange, "forms", list);
}

KsNNPhraseHit hitOf(const Poco::JSON::Object& object) {
    KsNNPhraseHit hit;
    hit.mediaGuid = requiredText(object, "clip");
    hit.segment = object.getValue<int>("segment");
    hit.startMS = object.getValue<int>("startMS");
    hit.endMS = object.getValue<int>("endMS");
    hit.score = object.getValue<float>("score");
    hit.text = object.getValue<std::string>("match");
    hit.matchEnd = hit.text.size();
    return hit;
}

Selection hitSelection(Parts& parts, const Poco::JSON::Array& hits, const std::string& title) {
    Selection selection;
    selection.title = title;
    std::map<std::string, std::pair<std::size_t, Transcripts::Ptr>> known;
    for (unsigned i = 0; i < hits.size(); ++i) {
        const auto object = hits.getObject(i);
        if (!object) throw HttpError(400, "a hit is no object");
        const KsNNPhraseHit hit = hitOf(*object);
        const auto [found, isNew] = known.try_emplace(hit.mediaGuid);
        auto& [position, transcript] = found->second;
        if (isNew) {
            transcript = parts.transcripts.recent(hit.mediaGuid);
            position = selection.clips.size();
            selection.clips.push_back(describeForm(parts, hit.mediaGuid, transcript->entry));
        }
        addHit(selection, position, transcript->passages, hit);
    }
    if (selection.items.empty())
        throw Failure("there is nothing to export: the hits are no longer in the store");
    return selection;
}

void exportForm(Exchange& exchange, Parts& parts) {
    const auto body = exchange.body();
    const std::string name = requiredText(*body, "form");
    const auto form = forms().find(name);
    if (form == forms().end()) throw HttpError(400, fmt::format("there is no form \"{}\"", name));
    FormOptions options;
    Selection selection;
    try {
        options.layout = body->optValue("stringOut", false) ? Layout::StringOut : Layout::Markers;
        options.handleMs = body->optValue("handleMS", 0);
        if (const auto hits = body->getArray("hits")) {
            selection = hitSelection(parts, *hits, requiredText(*body, "title"));
        } else if (body->has("script")) {
            selection = scriptSelection(parts, *body);
        } else {
            const std::string clip = requiredText(*body, "clip");
            const Transcripts::Ptr transcript = parts.transcripts.read(clip);
            selection = transcriptSelection(describeForm(parts, clip, transcript->entry),
                                            transcript->passages, form->second.isEdit);
        }
    } catch (const Poco::Exception& error) {
        throw HttpError(400, fmt::format("the request cannot be read: {}", error.displayText()));
    }
    const Written written = form->second.write(selection, options);
    auto document = jsonObject();
    document->set("name", fmt::format("{}.{}", selection.title, name));
    document->set("text", written.text);
    document->set("warning", written.warning);
    send(exchange, document);
}

} // namespace

FormClip describeForm(Parts& parts, const std::string& id, const KsNNDB_STTClipEntry& entry) {
    FormClip clip{id, entry.clipName, entry.projects.empty() ? "" : entry.projects.front().projectName, {}};
    try {
        if (const auto file = parts.media.fileOf(id)) clip.clock = readClock(*file, {});
    } catch (const Failure&) {
        clip.clock.reset();
    }
    return clip;
}

void addExportRoutes(Routes& routes, Parts& parts) {
    routes.add("GET", "/api/forms", [&](Exchange& exchange) { listForms(exchange, parts); });
    routes.add("POST", "/api/exports", [&](Exchange& exchange) { exportForm(exchange, parts); });
}

} // namespace kestrel::desk
