#pragma once

/// @file
/// What a model takes and gives, for diagnostics. Internal.

#include <onnxruntime_cxx_api.h>
#include <string>

namespace kestrelml::semantic {

/// One line for each number of tensors, name, type and shape.
std::string describeModel(const Ort::Session& session);

} // namespace kestrelml::semantic
