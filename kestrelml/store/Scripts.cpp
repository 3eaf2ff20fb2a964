#include "kestrelml/store/Scripts.h"

#include "kestrelml/store/Schema.h"

namespace kestrelml::detail::script {
namespace {

constexpr const char* kAddProject =
    R"(if (ctx._source.projectList[0].projectGuid == "KST_Import_ProjectGuid") {ctx._source.projectList.remove(0);} )"
    R"(ctx._source.projectList.add(params.new_element); )";
constexpr const char* kAddProjectGuid =
    R"(if (ctx._source.projectGuidList[0] == "KST_Import_ProjectGuid") {ctx._source.projectGuidList.remove(0);} )"
    R"(ctx._source.projectGuidList.add(params.new_element);)";
constexpr const char* kRemoveProject =
    "for (int i=ctx._source.projectList.length-1; i>=0; i--) {if (ctx._source.projectList[i].projectGuid == "
    "params.element_to_remove) {ctx._source.projectList.remove(i);}}";
constexpr const char* kRemoveProjectGuid =
    "for (int i=ctx._source.projectGuidList.length-1; i>=0; i--) {if (ctx._source.projectGuidList[i] == "
    "params.element_to_remove) {ctx._source.projectGuidList.remove(i);}}";
constexpr const char* kAddProjectToSpeaker = "ctx._source.projectList.add(params.new_element)";
constexpr const char* kRemoveProjectFromSpeaker =
    "ctx._source.projectList.removeIf(project -> project.projectGuid == params.guid_to_remove)";
constexpr const char* kClearSpeakerOfClip = "ctx._source.remove('speakerGuid')";
constexpr const char* kClearSpeakerOfProject =
    R"(if (ctx._source.containsKey("speakerGuid")) { ctx._source.remove("speakerGuid") })";
constexpr const char* kClearSpeakerOfSegment =
    "if (ctx._source.containsKey('speakerGuid')) { ctx._source.remove('speakerGuid') }";
constexpr const char* kLikeness = R"(cosineSimilarity(params.semanticVector,"semanticImageVector")+1.0)";

Object::Ptr withParameter(const char* source, const char* parameter, const Var& value) {
    return object({{"source", source}, {"params", object(parameter, value)}});
}

} // namespace

Object::Ptr addProject(const std::string& projectGuid, const std::string& projectName) {
    return withParameter(kAddProject, "new_element", projectDocument(projectGuid, projectName));
}

Object::Ptr addProjectGuid(const std::string& projectGuid) {
    return withParameter(kAddProjectGuid, "new_element", projectGuid);
}

Object::Ptr removeProject(const std::string& projectGuid) {
    return withParameter(kRemoveProject, "element_to_remove", projectGuid);
}

Object::Ptr removeProjectGuid(const std::string& projectGuid) {
    return withParameter(kRemoveProjectGuid, "element_to_remove", projectGuid);
}

Object::Ptr addProjectToSpeaker(const std::string& projectGuid, const std::string& projectName) {
    return withParameter(kAddProjectToSpeaker, "new_element", projectDocument(projectGuid, projectName));
}

Object::Ptr removeProjectFromSpeaker(const std::string& projectGuid) {
    return withParameter(kRemoveProjectFromSpeaker, "guid_to_remove", projectGuid);
}

Object::Ptr clearSpeakerOfClip() {
    return object("source", kClearSpeakerOfClip);
}

Object::Ptr clearSpeakerOfProject() {
    return object("source", kClearSpeakerOfProject);
}

Object::Ptr clearSpeakerOfSegment() {
    return object("source", kClearSpeakerOfSegment);
}

Object::Ptr likenessTo(const Array::Ptr& vector) {
    return withParameter(kLikeness, "semanticVector", vector);
}

} // namespace kestrelml::detail::script
