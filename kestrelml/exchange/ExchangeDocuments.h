#pragma once

/// @file
/// The documents in the elements of an exchange file. Internal.

#include "kestrelml/core/KsNNBase.h"

#include <Poco/JSON/Object.h>

#include <functional>
#include <string>

namespace kestrelml::detail {

/// Takes one document; a result other than KsNN_Success ends the reading.
using DocumentVisitor = std::function<KsNN_ErrorCode(const Poco::JSON::Object& document)>;

/// Gives the documents of an element, an answer of the index service to a search, to `visit`.
/// @param page Number of the element, from 1, for messages.
/// @throws Poco::DataFormatException saying where it lies, also for what `visit` throws of Poco's.
KsNN_ErrorCode visitDocuments(const std::string& element, int page, const DocumentVisitor& visit);

} // namespace kestrelml::detail
