#pragma once

/// @file
/// The JSON documents that hold transcripts. Internal.

#include "kestrelml/core/KsNNBase.h"

#include <Poco/JSON/Object.h>

#include <ostream>

namespace kestrelml::detail {

/// One segment in schema version 1, with the clip's fields if it is segment 0.
Poco::JSON::Object::Ptr documentVersion1(const KsNNDBEntryBase& base, const KsNNDBEntrySeg& seg);
/// One segment in schema version 2, for the one project that `seg` names.
Poco::JSON::Object::Ptr documentVersion2(const KsNNDBEntryBase& base, const KsNNDBEntrySeg& seg);

/// Appends the two lines of a bulk request that create `seg`, a segment of `entry`, for all projects of both.
void appendBulkCreate(const KsNNDB_STTClipEntry& entry, const KsNNDBEntrySeg& seg, std::ostream& bulk);

} // namespace kestrelml::detail
