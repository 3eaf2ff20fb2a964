#include "kestrelml/exchange/ExchangeWriter.h"
#include "kestrelml/exchange/WholeFile.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"
#include "kestrelml/store/Scroll.h"

#include <Poco/Exception.h>

#include <optional>
#include <sstream>

using namespace kestrelml::detail;

namespace {

/// The documents of the clips or of the projects, clip by clip and in order of their segments.
Object::Ptr exportSearch(const std::vector<std::string>& mediaGuids, const std::string& projectGuid,
                         const std::vector<std::string>& projectGuids) {
    Object::Ptr query;
    if (mediaGuids.empty()) {
        query = anyOf(ofEachProject(projectGuids));
    } else {
        query = anyOf(ofEachClip(mediaGuids));
        query->getObject("bool")->set("must", toArray(std::vector<Object::Ptr>{ofProject(projectGuid)}));
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
        const std::string element = text.str();
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

} // namespace

KsNN_ErrorCode KsNNDatabase::ExportDBContentsToKST(std::vector<std::string> mediaGuids,
                                                   std::string projectGuid,
                                                   std::vector<std::string> projectGuids, std::string path,
                                                   int& counter, KsNNProgressCallback progress, bool debug,
                                                   bool plainCopy, int pageSize) {
    Operation operation(*this, "KsNNDatabase::ExportDBContentsToKST err: ", debug);
    WholeFile file(path);
    if (!file.isOpen()) return operation.fail();
    const IndexState index = operation.refresh(mTranscriptIndex);
    if (index.isMissing()) return file.commit() ? KsNN_Success : operation.failSaying(file.failure());
    if (!index.isReady()) return index.code();
    int total = 0;
    if (const auto code = GetTotalSegmentCount(total, debug)) return code;

    std::optional<WholeFile> copy;
    if (plainCopy) copy.emplace(path + ".gtest");
    const bool hasCopy = copy && copy->isOpen();
    const KsNN_ErrorCode written = operation.guard([&] {
        ExportSinks sinks(file, hasCopy ? &*copy : nullptr, mKey, debug);
        Scroll scroll(operation, mTranscriptIndex, exportSearch(mediaGuids, projectGuid, projectGuids),
                      pageSize);
        while (scroll.hasNext()) {
            if (const auto code = operation.tell(progress, counter, total)) return code;
            if (progress) ++counter;
            if (const auto code = scroll.fetch()) return code;
            sinks.add(*scroll.page());
            counter += static_cast<int>(scroll.hits()->size());
        }
        sinks.finish();
        operation.debugLine(sinks.printed());
        if (plainCopy && !hasCopy) return operation.fail();
        sinks.commit();
        return KsNN_Success;
    });
    if (written != KsNN_Success || !mKey.empty()) return written;
    // Without a key the file is empty. Hosts have come to see that as a success; the report says what it is.
    operation.failWith("Decrypt err: Encrypted key not set.");
    return KsNN_Success;
}
