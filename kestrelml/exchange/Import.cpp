#include "kestrelml/exchange/ClipAssembler.h"
#include "kestrelml/exchange/ExchangeDocuments.h"
#include "kestrelml/exchange/ExchangeReader.h"
#include "kestrelml/platform/Paths.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

using namespace kestrelml::detail;

namespace {

/// Services refuse requests beyond 100 MB and take their time over large ones, and a request with its answer
/// takes twenty times its size in memory.
constexpr std::streamoff kBulkBytes = std::streamoff{4} << 20;
/// Clips deleted by one request, which may have ten thousand documents each.
constexpr std::size_t kClipsDeletedAtOnce = 100;

// Parts of the progress.
constexpr int kParsingTotal = 1000;
constexpr int kDocumentsOfPage = 10000;
constexpr int kAfterDocuments = 200;
constexpr int kMostPages = 200'000; ///< Of which the total can still speak.
constexpr int kWritingShare = 50;

/// Gives every document of an exchange file to `visit`.
KsNN_ErrorCode forEachDocument(std::istream& file, const std::string& passPhrase,
                               const DocumentVisitor& visit) {
    int pages = 0;
    return readExchange(file, passPhrase,
                        [&](const std::string& element) { return visitDocuments(element, ++pages, visit); });
}

} // namespace

KsNN_ErrorCode KsNNDatabase::ImportDBContentsFromKST(std::string path, std::string projectGuid,
                                                     std::string projectName, KsNNProgressCallback progress,
                                                     bool debug) {
    Operation operation(*this, "KsNNDatabase::ImportDBContentsFromKST err: ", debug);
    const std::filesystem::path source = kestrelml::platform::pathFromUtf8(path);
    std::error_code ignored;
    std::ifstream file(source, std::ios::binary);
    if (!file.is_open() || std::filesystem::is_directory(source, ignored)) return operation.fail();
    if (const auto code = operation.tell(progress, 0, kParsingTotal, "Parsing KST")) return code;
    if (mKey.empty()) return operation.failWith("Decrypt err: Encrypted key not set.");

    // The file is read three times, so that no more than one of its pages is ever held: to see that it is
    // whole, to see that every document in it is right, and only then to change the store.
    int pages = 0;
    std::string content;
    const KsNN_ErrorCode parsed = operation.guard([&] {
        return readExchange(file, mKey, [&](const std::string& element) {
            if (debug) content += (pages == 0 ? "" : ",") + element;
            ++pages;
            return KsNN_Success;
        });
    });
    if (parsed != KsNN_Success) return parsed;
    operation.debugLine("KsNNDatabase::ImportDBContentsFromKST: JSON parsed from file: [", content, "]");

    std::vector<KsNNProject> projects;
    if (const auto code = GetAllEntries(projects, debug)) return code;
    const KnownProjects known(std::move(projects), {projectName, projectGuid});
    std::vector<std::string> existing;
    if (const auto code = GetAllMediaGuids(kAll, existing, debug, kMaximumHits)) return code;
    std::sort(existing.begin(), existing.end());

    const int total = std::min(pages, kMostPages) * kDocumentsOfPage + kAfterDocuments;
    int counter = 0;
    std::vector<std::string> replaced;
    ClipAssembler checking(operation, known, [&](KsNNDB_STTClipEntry& clip) {
        const std::string& mediaGuid = clip.segments.front().mediaGuid;
        if (std::binary_search(existing.begin(), existing.end(), mediaGuid)) replaced.push_back(mediaGuid);
        return KsNN_Success;
    });
    const KsNN_ErrorCode checked = operation.guard([&] {
        const KsNN_ErrorCode code = forEachDocument(file, mKey, [&](const Object& document) {
            if (const auto told = operation.tell(progress, counter, total, "Parsing transcriptions from KST"))
                return told;
            if (progress) ++counter;
            return checking.add(document);
        });
        return code == KsNN_Success ? checking.finish() : code;
    });
    if (checked != KsNN_Success) return checked;

    if (const auto code =
            operation.tell(progress, counter, total, "Overwriting existing transcriptions in database"))
        return code;
    // Does not end the import, but the host must see that clips are in the store twice.
    std::string notDeleted;
    for (auto first = replaced.begin(); first != replaced.end();) {
        const auto last = first + std::min<std::ptrdiff_t>(replaced.end() - first, kClipsDeletedAtOnce);
        if (HardDeleteEntries({first, last}, debug) != KsNN_Success) notDeleted = GetErrorStr();
        first = last;
    }
    SetErrorStr(notDeleted);
    if (const auto code = operation.tell(progress, counter + kWritingShare, total,
                                         "Writing KST transcriptions to database"))
        return code;

    std::stringstream bulk;
    bool isSent = false;
    const auto send = [&] {
        const KsNN_ErrorCode code = operation.createAll(mTranscriptIndex, bulk);
        bulk = std::stringstream();
        isSent = true;
        return code;
    };
    ClipAssembler writing(operation, known, [&](KsNNDB_STTClipEntry& clip) {
        if (bulk.tellp() > kBulkBytes) {
            if (const auto code = send()) return code;
        }
        return addToBulkCreateStream(clip, bulk, debug);
    });
    return operation.guard([&] {
        const KsNN_ErrorCode code =
            forEachDocument(file, mKey, [&](const Object& document) { return writing.add(document); });
        if (code != KsNN_Success) return code;
        if (const auto last = writing.finish()) return last;
        return bulk.tellp() > 0 || !isSent ? send() : KsNN_Success;
    });
}
