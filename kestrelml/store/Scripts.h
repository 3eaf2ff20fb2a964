#pragma once

/// @file
/// The scripts that the service runs on documents, each as the "script" object of a request. Their text never
/// changes by a byte: services know them by it. Internal.

#include "kestrelml/store/Query.h"

#include <string>

namespace kestrelml::detail::script {

/// @name Projects of a segment 0, and of every segment
/// Adding drops the placeholder of imported clips if it stands first, and does not check whether the project
/// is there already; removing removes it wherever it stands.
/// @{
Object::Ptr addProject(const std::string& projectGuid, const std::string& projectName);
Object::Ptr addProjectGuid(const std::string& projectGuid);
Object::Ptr removeProject(const std::string& projectGuid);
Object::Ptr removeProjectGuid(const std::string& projectGuid);
/// @}

/// @name Projects of a speaker
/// @{
Object::Ptr addProjectToSpeaker(const std::string& projectGuid, const std::string& projectName);
Object::Ptr removeProjectFromSpeaker(const std::string& projectGuid);
/// @}

/// @name Clearing the speaker of segments
/// The first fails for a segment that has none.
/// @{
Object::Ptr clearSpeakerOfClip();
Object::Ptr clearSpeakerOfProject();
Object::Ptr clearSpeakerOfSegment();
/// @}

/// The score of a frame: 1 + the cosine between its vector and `vector`, an array of numbers.
Object::Ptr likenessTo(const Array::Ptr& vector);

} // namespace kestrelml::detail::script
