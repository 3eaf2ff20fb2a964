#pragma once

/// @file
/// Judges and reads the answers of the transcription module. The module gives the same answers through the
/// speech service and inside the host, so both engines share these checks, and with them their results and
/// messages.
///
/// No exception leaves a check: whatever goes wrong becomes a report in `target` and result 1.

#include "kestrelml/core/KsNNBase.h"

#include <Poco/JSON/Object.h>

#include <vector>

namespace kestrelml::stt {

using Answer = Poco::JSON::Object::Ptr;

KsNN_ErrorCode checkSetModelDir(const Answer& answer, KsNNBase& target, bool debug);

/// Appends the languages in ascending order of their codes. Those before a faulty entry stay in `languages`.
KsNN_ErrorCode checkGetSupportedLanguages(const Answer& answer, std::vector<KsNNLanguage>& languages,
                                          KsNNBase& target, bool debug);

KsNN_ErrorCode checkAudioUpload(const Answer& answer, KsNNBase& target, bool debug);

/// Appends the segments to those that `entry` holds already. Those before a faulty one stay.
KsNN_ErrorCode checkFinalizeTranscript(const Answer& answer, KsNNDB_STTClipEntry& entry, KsNNBase& target,
                                       bool debug);

/// Appends the segments to those that `transcript` holds already.
KsNN_ErrorCode buildTranscriptFromJson(const Answer& answer, KsNNTranscript& transcript, KsNNBase& target);

KsNN_ErrorCode checkCancel(const Answer& answer, KsNNBase& target, bool debug);

KsNN_ErrorCode checkGetProgress(const Answer& answer, float& progress, KsNNBase& target, bool debug);

} // namespace kestrelml::stt
