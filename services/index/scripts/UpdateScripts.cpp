#include "scripts/UpdateScripts.h"

#include "base/ApiError.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>

namespace kestrel::index {

namespace {

constexpr const char* kPlaceholderProject = "KST_Import_ProjectGuid";

/// An error inside a script; the answer also shows the script.
struct ScriptFailure {
    std::string type;
    std::string reason;
};

Json& listAt(Json& source, const char* field) {
    if (!source.contains(field) || source[field].is_null())
        throw ScriptFailure{"null_pointer_exception",
                            fmt::format("cannot access [{}]: the field is missing", field)};
    if (!source[field].is_array())
        throw ScriptFailure{"illegal_argument_exception", fmt::format("[{}] is not an array", field)};
    return source[field];
}

Json& first(Json& list) {
    if (list.empty())
        throw ScriptFailure{"index_out_of_bounds_exception", "Index 0 out of bounds for length 0"};
    return list.front();
}

Json member(const Json& object, const char* key) {
    if (!object.is_object())
        throw ScriptFailure{"illegal_argument_exception", fmt::format("dynamic getter [{}] not found", key)};
    return object.value(key, Json());
}

void removeFirst(Json& list) {
    list.erase(list.begin());
}

template <typename Matches>
void removeWhere(Json& list, Matches&& matches) {
    Json kept = Json::array();
    for (Json& element : list)
        if (!matches(element)) kept.push_back(std::move(element));
    list = std::move(kept);
}

void addToProjectList(Json& source, const Json& params) {
    Json& list = listAt(source, "projectList");
    if (member(first(list), "projectGuid") == kPlaceholderProject) removeFirst(list);
    list.push_back(params.value("new_element", Json()));
}

void addToProjectGuidList(Json& source, const Json& params) {
    Json& list = listAt(source, "projectGuidList");
    if (first(list) == kPlaceholderProject) removeFirst(list);
    list.push_back(params.value("new_element", Json()));
}

void removeFromProjectList(Json& source, const Json& params) {
    const Json wanted = params.value("element_to_remove", Json());
    removeWhere(listAt(source, "projectList"),
                [&](const Json& project) { return member(project, "projectGuid") == wanted; });
}

void removeFromProjectGuidList(Json& source, const Json& params) {
    const Json wanted = params.value("element_to_remove", Json());
    removeWhere(listAt(source, "projectGuidList"), [&](const Json& guid) { return guid == wanted; });
}

void addToSpeaker(Json& source, const Json& params) {
    listAt(source, "projectList").push_back(params.value("new_element", Json()));
}

void removeProjectOfSpeaker(Json& source, const Json& params) {
    const Json wanted = params.value("guid_to_remove", Json());
    removeWhere(listAt(source, "projectList"),
                [&](const Json& project) { return member(project, "projectGuid") == wanted; });
}

void removeSpeaker(Json& source, const Json&) {
    source.erase("speakerGuid");
}

using Script = std::pair<std::string_view, void (*)(Json&, const Json&)>;

constexpr std::array<Script, 9> kKnownScripts{{
    {R"(if (ctx._source.projectList[0].projectGuid == "KST_Import_ProjectGuid") {ctx._source.projectList.remove(0);} )"
     R"(ctx._source.projectList.add(params.new_element); )",
     addToProjectList},
    {R"(if (ctx._source.projectGuidList[0] == "KST_Import_ProjectGuid") {ctx._source.projectGuidList.remove(0);} )"
     R"(ctx._source.projectGuidList.add(params.new_element);)",
     addToProjectGuidList},
    {"for (int i=ctx._source.projectList.length-1; i>=0; i--) {if (ctx._source.projectList[i].projectGuid == "
     "params.element_to_remove) {ctx._source.projectList.remove(i);}}",
     removeFromProjectList},
    {"for (int i=ctx._source.projectGuidList.length-1; i>=0; i--) {if (ctx._source.projectGuidList[i] == "
     "params.element_to_remove) {ctx._source.projectGuidList.remove(i);}}",
     removeFromProjectGuidList},
    {"ctx._source.projectList.add(params.new_element)", addToSpeaker},
    {"ctx._source.projectList.removeIf(project -> project.projectGuid == params.guid_to_remove)",
     removeProjectOfSpeaker},
    {"ctx._source.remove('speakerGuid')", removeSpeaker},
    {R"(if (ctx._source.containsKey("speakerGuid")) { ctx._source.remove("speakerGuid") })", removeSpeaker},
    {"if (ctx._source.containsKey('speakerGuid')) { ctx._source.remove('speakerGuid') }", removeSpeaker},
}};

} // namespace

UpdateScript::UpdateScript(const Json& script)
    : mScript(script.is_string() ? Json{{"source", script}} : script) {
    if (!mScript.is_object() || !mScript.value("source", Json()).is_string())
        throw illegalArgument("must specify <source> for an inline script");
    const Json params = mScript.value("params", Json::object());
    if (!params.is_object()) throw illegalArgument("[params] of a script must be an object");
    const auto& source = mScript.at("source").get_ref<const std::string&>();
    const auto* known = std::find_if(kKnownScripts.begin(), kKnownScripts.end(),
                                     [&](const Script& candidate) { return candidate.first == source; });
    if (known == kKnownScripts.end() || mScript.value("lang", Json("painless")) != "painless")
        throw illegalArgument(
            fmt::format("this service runs a fixed set of scripts, and [{}] is not one of them", source));
    mBody = known->second;
}

void UpdateScript::run(Json& source) const try {
    mBody(source, mScript.value("params", Json::object()));
} catch (const ScriptFailure& failure) {
    throw ApiError(400, "script_exception", "runtime error",
                   {{"script", mScript.at("source")},
                    {"lang", "painless"},
                    {"caused_by", {{"type", failure.type}, {"reason", failure.reason}}}});
}

} // namespace kestrel::index
