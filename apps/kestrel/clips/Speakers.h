#pragma once

#include "kestrelml/store/KsNNDatabase.h"

#include <functional>
#include <string>

namespace kestrel {

/// Names a segment's speaker: by the name that was assigned, else as "Speaker 2". Asks the store once for
/// each speaker; the store must outlive the function.
std::function<std::string(const KsNNDBEntrySeg&)> speakerNames(KsNNDatabase& store);

} // namespace kestrel
