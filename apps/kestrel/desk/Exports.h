#pragma once

#include "apps/kestrel/desk/Parts.h"
#include "apps/kestrel/forms/Selection.h"

#include <Poco/JSON/Object.h>

#include <string>

namespace kestrel::desk {

/// A clip with its clock, when its media can be read; forms that need one fail without.
FormClip describeForm(Parts& parts, const std::string& id, const KsNNDB_STTClipEntry& entry);

/// The lines of a script, each in the take where it is found best. The request is that of `/api/scripts`.
Selection scriptSelection(Parts& parts, const Poco::JSON::Object& request);

} // namespace kestrel::desk
