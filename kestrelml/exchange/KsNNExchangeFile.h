#pragma once

/// @file
/// Exchange files as applications look into them, and what may travel beside the transcripts. The files are
/// those of `KsNNDatabase::ExportDBContentsToKST` and `ImportDBContentsFromKST`, encrypted under the pass
/// phrase that is stored (`KsNNDatabase::SetCredentials`).
///
/// All functions leave a report in the store's error text when they fail. One thread at a time uses a store.

#include "kestrelml/store/KsNNDatabase.h"

#include <functional>
#include <string>

namespace kestrelml {

/// Takes one page of an exchange file, as JSON text: an answer of the index service to a search, with its
/// documents in "hits" of "hits". A result other than `KsNN_Success` ends the reading.
using ExchangePageVisitor = std::function<KsNN_ErrorCode(const std::string& page)>;

/// Reads an exchange file. Never more than one of its pages is held.
/// @param path UTF-8.
/// @returns `KsNN_Success`, the first other result of `visit`, or `KsNN_Error` when the file cannot be read:
///          it is missing, empty, truncated, damaged, encrypted under another pass phrase, or something else.
KSNN_API KsNN_ErrorCode readExchangeFile(KsNNDatabase& store, const std::string& path,
                                         const ExchangePageVisitor& visit, bool debug);

/// Copies an exchange file and adds a page. One without documents does not change what is imported, and may
/// carry members of the application's own. Never more than one page is held.
/// @param from, to UTF-8; different files. What was at `to` before stays unless everything succeeds.
/// @param page JSON text of the page.
/// @returns as `readExchangeFile`, and `KsNN_Error` when `to` cannot be written.
KSNN_API KsNN_ErrorCode copyExchangeFile(KsNNDatabase& store, const std::string& from, const std::string& to,
                                         const std::string& page, bool debug);

/// Creates the document of a speaker who has an identifier already, because segments that came from another
/// installation bear it. The speaker belongs to no project then; `KsNNDatabase::ShareSpeakers` adds one.
/// One whom the store knows stays as it is.
/// @returns `KsNN_Success`, or `KsNN_Error` when the store refuses it.
KSNN_API KsNN_ErrorCode createSpeakerAs(KsNNDatabase& store, const KsNNSpeakerKV& speaker, bool debug);

} // namespace kestrelml
