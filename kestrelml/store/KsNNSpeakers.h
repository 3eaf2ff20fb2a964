#pragma once

/// @file
/// Speakers who come from another installation.

#include "kestrelml/store/KsNNDatabase.h"

namespace kestrelml {

/// Creates the document of a speaker who has an identifier already, because segments that came from another
/// installation bear it. One whom the store knows stays as it is. The speaker index must exist
/// (`KsNNDatabase::CreateIndex`): the service would make it without the store's mapping.
/// @param speaker Identifier and name. Its project is not used, the speaker belongs to none then;
///                `KsNNDatabase::ShareSpeakers` adds one.
/// @returns `KsNN_Success`, or `KsNN_Error` when the identifier is empty or the service refuses the document;
///          then the store has the report.
KSNN_API KsNN_ErrorCode createSpeakerAs(KsNNDatabase& store, const KsNNSpeakerKV& speaker, bool debug);

} // namespace kestrelml
