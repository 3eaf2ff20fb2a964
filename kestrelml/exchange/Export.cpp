#include "kestrelml/exchange/ExchangeWriter.h"
#include "kestrelml/exchange/KsNNExchangeFile.h"
#include "kestrelml/exchange/WholeFile.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"
#include "kestrelml/store/Scroll.h"

#include <Poco/Exception.h>

#include <optional>
#include <sstream>
#include <utility>

using namespace kestrelml::detail;
using kestrelml::ExchangeSelection;

namespace {

/// The documents of the clips or of the projects, clip by clip and in order of their segments.
Object::Ptr exportSearch(const ExchangeSelection& selection) {
    Object::Ptr query;
    if (selection.mediaGuids.empty()) {
        query = anyOf(ofEachProject(selection.projectGuids));
    } else {
        query = anyOf(ofEachClip(selection.mediaGuids));
        query->getObject("bool")->set("must",
                                      toArray(std::vector<Object::Ptr>{ofProject(selection.projectGuid)}));
    }
    Object::Ptr search = searchFor(query);
    const std::string clip = exact(field::kMediaGuid);
    search->set("sort", ascending({clip.c_str(), field::kSegment}));
    return search;
}

/// The places that an export's text goes to. Each page goes on at once, so that none of them holds the whole.
class ExportSinks {
public:
    ExportSinks(WholeFile& file, WholeFile* plainCopy, const std::string& passPhrase, bool debug)
        : mFile(file), mPlainCopy(plainCopy), mPrinted(debug) {
        if (!passPhrase.empty()) mWriter.emplace(file.stream(), passPhrase);
        addPlain("[");
    }

    void add(const Object& page) {
        std::ostringstream text;
        page.stringify(text);
        add(text.str());
    }

    /// @param element JSON text of a page.
    void add(const std::string& element) {
        encrypt([&] { mWriter->add(element); });
        addPlain((mIsEmpty ? "" : ",") + element);
        mIsEmpty = false;
        flush(); // a full disk need not be asked for the other pages
    }

    void finish() {
        encrypt([&] { mWriter->finish(); });
        addPlain("]");
        if (mPlainCopy != nullptr) mPlainCopy->stream() << '\n';
    }

    /// Puts the files in their places, once both are written.
    void commit() {
        flush();
        if (mPlainCopy != nullptr) require(mPlainCopy->commit(), *mPlainCopy);
        require(mFile.commit(), mFile);
    }

    /// The whole text, kept for diagnostics only.
    std::string printed() const { return mText.str(); }

private:
    /// The streams of the encryption say only that writing failed, the file says why.
    template <typename Step>
    void encrypt(Step step) {
        if (!mWriter) return;
        try {
            step();
        } catch (const std::exception&) {
            require(mFile.failure().empty(), mFile);
            throw;
        }
    }

    void addPlain(const std::string& text) {
        if (mPlainCopy != nullptr) mPlainCopy->stream() << text;
        if (mPrinted) mText << text;
    }

    void flush() {
        if (mPlainCopy != nullptr) require(mPlainCopy->flush(), *mPlainCopy);
        require(mFile.flush(), mFile);
    }

    static void require(bool isDone, const WholeFile& file) {
        if (!isDone) throw Poco::WriteFileException("The exchange file cannot be written", file.failure());
    }

    WholeFile& mFile;
    WholeFile* mPlainCopy;
    bool mPrinted;
    std::optional<ExchangeWriter> mWriter;
    std::ostringstream mText;
    bool mIsEmpty = true;
};

/// The files of an export.
struct ExportFiles {
    WholeFile& file;
    std::string plainCopy; ///< Path; empty: none.
};

/// @param lastPage JSON text that follows the pages of documents; empty: none.
KsNN_ErrorCode exportPages(KsNNDatabase& store, Operation& operation, const ExchangeSelection& selection,
                           const ExportFiles& files, const std::string& lastPage, int& counter,
                           const KsNNProgressCallback& progress, bool debug) {
    WholeFile& file = files.file;
    const std::string transcripts = KsNNDatabase::getTranscriptIndex();
    const IndexState index = operation.refresh(transcripts);
    if (index.isMissing()) return file.commit() ? KsNN_Success : operation.failSaying(file.failure());
    if (!index.isReady()) return index.code();
    int total = 0;
    if (const auto code = store.GetTotalSegmentCount(total, debug)) return code;

    std::optional<WholeFile> copy;
    if (!files.plainCopy.empty()) copy.emplace(files.plainCopy);
    const bool hasCopy = copy && copy->isOpen();
    const std::string passPhrase = KsNNDatabase::getKey();
    const KsNN_ErrorCode written = operation.guard([&] {
        ExportSinks sinks(file, hasCopy ? &*copy : nullptr, passPhrase, debug);
        Scroll scroll(operation, transcripts, exportSearch(selection), selection.pageSize);
        while (scroll.hasNext()) {
            if (const auto code = operation.tell(progress, counter, total)) return code;
            if (progress) ++counter;
            if (const auto code = scroll.fetch()) return code;
            sinks.add(*scroll.page());
            counter += static_cast<int>(scroll.hits()->size());
        }
        if (!lastPage.empty()) sinks.add(lastPage);
        sinks.finish();
        operation.debugLine(sinks.printed());
        if (copy && !hasCopy) return operation.fail();
        sinks.commit();
        return KsNN_Success;
    });
    if (written != KsNN_Success || !passPhrase.empty()) return written;
    // Without a key the file is empty. Hosts have come to see that as a success; the report says what it is.
    operation.failWith("Decrypt err: Encrypted key not set.");
    return KsNN_Success;
}

} // namespace

KsNN_ErrorCode KsNNDatabase::ExportDBContentsToKST(std::vector<std::string> mediaGuids,
                                                   std::string projectGuid,
                                                   std::vector<std::string> projectGuids, std::string path,
                                                   int& counter, KsNNProgressCallback progress, bool debug,
                                                   bool plainCopy, int pageSize) {
    Operation operation(*this, "KsNNDatabase::ExportDBContentsToKST err: ", debug);
    WholeFile file(path);
    if (!file.isOpen()) return operation.fail();
    const ExchangeSelection selection{std::move(mediaGuids), std::move(projectGuid), std::move(projectGuids),
                                      pageSize};
    return exportPages(*this, operation, selection, {file, plainCopy ? path + ".gtest" : ""}, "", counter,
                       progress, debug);
}

KsNN_ErrorCode kestrelml::exportExchangeFile(KsNNDatabase& store, const ExchangeSelection& selection,
                                             const std::string& path, const std::string& lastPage,
                                             int& counter, const KsNNProgressCallback& progress, bool debug) {
    Operation operation(store, "exportExchangeFile err: ", debug);
    if (KsNNDatabase::getKey().empty())
        return operation.failSaying("The exchange file cannot be written: no pass phrase is set");
    WholeFile file(path);
    if (!file.isOpen()) return operation.failSaying("The exchange file cannot be written: " + file.failure());
    return exportPages(store, operation, selection, {file, ""}, lastPage, counter, progress, debug);
}
