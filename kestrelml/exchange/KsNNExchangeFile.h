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
#include <vector>

namespace kestrelml {

/// Takes one page of an exchange file, as JSON text: an answer of the index service to a search, with its
/// documents in "hits" of "hits". A result other than `KsNN_Success` ends the reading.
using ExchangePageVisitor = std::function<KsNN_ErrorCode(const std::string& page)>;

/// Reads an exchange file. Never more than one of its pages is held.
/// @param path UTF-8.
/// @returns `KsNN_Success`, the first other result of `visit`, or `KsNN_Error` when the file cannot be read:
///          it is missing, a directory, empty, truncated, damaged, encrypted under another pass phrase, or
///          something else, or no pass phrase is set.
KSNN_API KsNN_ErrorCode readExchangeFile(KsNNDatabase& store, const std::string& path,
                                         const ExchangePageVisitor& visit, bool debug);

/// What an export takes; the members are the parameters of `KsNNDatabase::ExportDBContentsToKST`.
struct ExchangeSelection {
    std::vector<std::string> mediaGuids;
    std::string projectGuid;
    std::vector<std::string> projectGuids;
    int pageSize = 1000;
};

/// Exports as `KsNNDatabase::ExportDBContentsToKST` does, and adds a page to the file. One without documents
/// does not change what is imported, and may carry members of the application's own.
/// @param path     UTF-8. What was there before stays unless everything succeeds.
/// @param lastPage JSON text of the page; empty: none.
/// @param counter, progress As there; the added page does not count.
/// @returns as there, but `KsNN_Error` when no pass phrase is set. A missing transcript index leaves an empty
///          file, without the page.
KSNN_API KsNN_ErrorCode exportExchangeFile(KsNNDatabase& store, const ExchangeSelection& selection,
                                           const std::string& path, const std::string& lastPage, int& counter,
                                           const KsNNProgressCallback& progress, bool debug);

} // namespace kestrelml
