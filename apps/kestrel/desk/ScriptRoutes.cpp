#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/desk/Exports.h"
#include "apps/kestrel/forms/Sources.h"
#include "apps/kestrel/script/Placement.h"

#include <Poco/JSON/Array.h>

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

namespace kestrel::desk {

namespace {

/// A clip with the places of all lines of the script in it.
struct Take {
    std::string clip;
    Transcripts::Ptr transcript;
    std::vector<PlacedLine> lines;
};

ScriptFormat formatOf(const std::string& name) {
    if (name == "plain") return ScriptFormat::Plain;
    if (name == "screenplay") return ScriptFormat::Screenplay;
    return ScriptFormat::Auto;
}

std::vector<Take> takesOf(Parts& parts, const Poco::JSON::Object& request) {
    std::vector<ScriptLine> script = readScript(requiredText(request, "script"),
                                                formatOf(request.optValue<std::string>("format", "auto")));
    keepSpokenLines(script);
    if (script.empty()) throw Failure("the script holds no spoken line; try it as plain text");
    const auto clips = request.getArray("clips");
    if (!clips || clips->size() == 0) throw HttpError(400, "choose at least one clip");
    std::vector<Take> takes;
    for (unsigned i = 0; i < clips->size(); ++i) {
        Take take;
        take.clip = clips->getElement<std::string>(i);
        take.transcript = parts.transcripts.recent(take.clip);
        take.lines = parts.stores.with(
            [&](KsNNDatabase& store) { return placeLines(store, script, take.transcript->entry, 0); });
        takes.push_back(std::move(take));
    }
    return takes;
}

/// The takes in which a line is found, best first; of equals the earlier one.
std::vector<std::size_t> rankedTakes(const std::vector<Take>& takes, std::size_t line) {
    std::vector<std::size_t> found;
    for (std::size_t take = 0; take < takes.size(); ++take) {
        if (takes[take].lines[line].isFound()) found.push_back(take);
    }
    std::stable_sort(found.begin(), found.end(), [&](std::size_t left, std::size_t right) {
        return takes[left].lines[line].score > takes[right].lines[line].score;
    });
    return found;
}

void align(Exchange& exchange, Parts& parts) {
    const auto request = exchange.body();
    const std::vector<Take> takes = takesOf(parts, *request);
    Poco::JSON::Array::Ptr lines = new Poco::JSON::Array;
    for (std::size_t i = 0; i < takes.front().lines.size(); ++i) {
        Poco::JSON::Array::Ptr places = new Poco::JSON::Array;
        for (const std::size_t take : rankedTakes(takes, i)) {
            const PlacedLine& placed = takes[take].lines[i];
            auto place = jsonObject();
            place->set("clip", takes[take].clip);
            place->set("clipName", takes[take].transcript->entry.clipName);
            place->set("segment", takes[take].transcript->entry.segments.at(placed.segment).segment);
            place->set("startMS", placed.startMs);
            place->set("score", roundedScore(placed.score));
            places->add(place);
        }
        const ScriptLine& script = takes.front().lines[i].script;
        auto line = jsonObject();
        line->set("line", script.number);
        line->set("character", script.character);
        line->set("text", script.text);
        line->set("takes", places);
        lines->add(line);
    }
    auto document = jsonObject();
    document->set("lines", lines);
    send(exchange, document);
}

} // namespace

Selection scriptSelection(Parts& parts, const Poco::JSON::Object& request) {
    const std::vector<Take> takes = takesOf(parts, request);
    Selection selection;
    selection.title = requiredText(request, "title");
    std::vector<std::vector<std::optional<FormItem>>> items; // of each take, of each line
    for (const Take& take : takes) {
        const Selection all = kestrel::scriptSelection(describeForm(parts, take.clip, take.transcript->entry),
                                                       take.transcript->passages, take.lines);
        std::vector<std::optional<FormItem>>& ofTake = items.emplace_back(take.lines.size());
        std::size_t next = 0;
        for (std::size_t line = 0; line < take.lines.size(); ++line) {
            if (!take.lines[line].isFound()) continue;
            ofTake[line] = all.items.at(next++);
            ofTake[line]->clip = selection.clips.size();
        }
        selection.clips.push_back(all.clips.front());
    }
    for (std::size_t line = 0; line < takes.front().lines.size(); ++line) {
        const std::vector<std::size_t> ranked = rankedTakes(takes, line);
        if (!ranked.empty()) selection.items.push_back(*items[ranked.front()][line]);
    }
    if (selection.items.empty()) throw Failure("no line of the script is found in these clips");
    return selection;
}

void addScriptRoutes(Routes& routes, Parts& parts) {
    routes.add("POST", "/api/scripts", [&](Exchange& exchange) { align(exchange, parts); });
}

} // namespace kestrel::desk
