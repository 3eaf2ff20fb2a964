#pragma once

/// @file
/// The exchange file on its way in. Internal.

#include "kestrelml/core/KsNNBase.h"

#include <functional>
#include <istream>
#include <string>

namespace kestrelml::detail {

/// Takes one element of the array, as JSON text; a result other than KsNN_Success ends the reading.
using ElementVisitor = std::function<KsNN_ErrorCode(const std::string& element)>;

/// Deepest nesting that a file may have; what the store writes has half of it.
inline constexpr int kDeepestNesting = 32;

/// Reads an encrypted JSON array, element by element: never more than one is held. May be called again on the
/// same file.
/// @returns the first result of `visit` that is not KsNN_Success, else KsNN_Success.
/// @throws Poco::Exception saying that the file is empty, is no exchange file, is encrypted under another
/// pass phrase, is truncated or damaged, and what `visit` throws.
KsNN_ErrorCode readExchange(std::istream& file, const std::string& passPhrase, const ElementVisitor& visit);

/// The same for the plain text.
KsNN_ErrorCode readElements(std::istream& plain, const ElementVisitor& visit);

} // namespace kestrelml::detail
