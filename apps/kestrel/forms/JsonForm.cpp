#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/forms/Forms.h"

namespace kestrel {

namespace {

Poco::JSON::Object::Ptr toJson(const FormClip& clip) {
    auto object = jsonObject();
    object->set("clip", clip.id);
    object->set("clipName", clip.name);
    object->set("project", clip.project);
    if (clip.clock) {
        object->set("frameRate", clip.clock->rate.name());
        object->set("startTimecode", clip.clock->startTimecode());
    }
    return object;
}

Poco::JSON::Object::Ptr toJson(const TimedWord& word) {
    auto object = jsonObject();
    object->set("text", word.text);
    object->set("startMS", word.startMs);
    object->set("endMS", word.endMs);
    return object;
}

Poco::JSON::Object::Ptr toJson(const Selection& selection, const FormItem& item) {
    const FormClip& clip = selection.clips.at(item.clip);
    const Passage& passage = item.passage;
    auto object = jsonObject();
    object->set("clipName", clip.name);
    object->set("segment", passage.segment);
    object->set("startMS", passage.startMs);
    object->set("endMS", passage.endMs);
    if (clip.clock)
        object->set("timecode", timecodeOf(clip.clock->startFrame + clip.clock->rate.frameAt(item.markMs),
                                           clip.clock->rate));
    object->set("speaker", passage.speaker);
    object->set("language", passage.language);
    object->set("text", passage.text);
    if (item.score) {
        object->set("match", item.label);
        object->set("matchStartMS", item.markMs);
        object->set("matchEndMS", item.markEndMs);
        object->set("score", roundedScore(*item.score));
    }
    Poco::JSON::Array::Ptr words = new Poco::JSON::Array;
    for (const TimedWord& word : passage.words)
        words->add(toJson(word));
    object->set("words", words);
    return object;
}

} // namespace

Written writeJson(const Selection& selection, const FormOptions&) {
    auto document = jsonObject();
    document->set("title", selection.title);
    Poco::JSON::Array::Ptr clips = new Poco::JSON::Array;
    for (const FormClip& clip : selection.clips)
        clips->add(toJson(clip));
    document->set("clips", clips);
    Poco::JSON::Array::Ptr segments = new Poco::JSON::Array;
    for (const FormItem& item : selection.items)
        segments->add(toJson(selection, item));
    document->set("segments", segments);
    return {toText(document), ""};
}

} // namespace kestrel
