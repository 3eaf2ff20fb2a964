#include "kestrelml/semantic/TextModels.h"
#include "kestrelml/store/Credentials.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"
#include "kestrelml/stt/KsNNSpeechToTextCYTHON.h"
#include "kestrelml/text/TextNormaliser.h"

using namespace kestrelml::detail;

std::string KsNNDatabase::mTranscriptIndex;
std::string KsNNDatabase::mSpeakerIndex = "speaker_index_rel";
std::string KsNNDatabase::mSemanticIndex;
std::string KsNNDatabase::mLanguageCode;
std::string KsNNDatabase::mTempProjectGuid = "_TEMP_PROJECT_GUID_";
std::string KsNNDatabase::mTempProjectName = "_TEMP_PROJECT_NAME_";
std::string KsNNDatabase::mTempMediaGuid = "123.1234567890.0987654321";

namespace {

bool isGiven(const char* name) {
    return name != nullptr && *name != '\0';
}

/// A name that is given replaces the current one; the default only fills an empty one.
void choose(std::string& current, const char* given, const char* fallback) {
    if (isGiven(given)) {
        current = given;
    } else if (current.empty()) {
        current = fallback;
    }
}

} // namespace

KsNNDatabase::KsNNDatabase(const char* uri, const char* transcriptIndex, const char* languageCode,
                           const char* semanticIndex, bool ownsInterpreterBridge)
    : KsNNBase("https://127.0.0.1:9281/"), mOwnsInterpreterBridge(ownsInterpreterBridge) {
    setCredentialSource(storeCredentials);
    choose(mTranscriptIndex, transcriptIndex, kDefaultTranscriptIndex);
    if (isGiven(languageCode)) {
        setLanguage(languageCode);
    } else if (mLanguageCode.empty()) {
        mLanguageCode = "multi";
    }
    choose(mSemanticIndex, semanticIndex, "semantic_image_search_dbg");
    if (mTransliterator == nullptr) mTransliterator = createSearchTransliterator();
    if (isGiven(uri)) SetURI(uri);
    CreateIndex(mSpeakerIndex, false);
}

KsNNDatabase::~KsNNDatabase() {
    if (mOwnsInterpreterBridge) KsNNSpeechToTextCYTHON::Shutdown();
    textModels().release();
}

void KsNNDatabase::setTranscriptIndex(const std::string& index) {
    mTranscriptIndex = index;
}

void KsNNDatabase::setSemanticIndex(const std::string& index) {
    mSemanticIndex = index;
}

void KsNNDatabase::setLanguage(const std::string& code) {
    if (code.empty()) return;
    mLanguageCode = code;
    mTranscriptIndex = "transcript_oai_small_" + code + "_index_rel";
}

std::string KsNNDatabase::getTranscriptIndex() {
    return mTranscriptIndex;
}

std::string KsNNDatabase::getSpeakerIndex() {
    return mSpeakerIndex;
}

std::string KsNNDatabase::getSemanticIndex() {
    return mSemanticIndex;
}

std::string KsNNDatabase::getTempMediaGUID() const {
    return mTempMediaGuid;
}

std::string KsNNDatabase::getTempProjectGUID() const {
    return mTempProjectGuid;
}

std::string KsNNDatabase::getTempProjectName() const {
    return mTempProjectName;
}

KsNN_ErrorCode KsNNDatabase::testDefault(bool debug) {
    Operation operation(*this, "KsNNDatabase::testDefault err: ", debug);
    if (const auto code = operation.ask("GET", "")) return code;
    return operation.read([&](const Object& answer) {
        const Var tagline = answer.get("tagline");
        const bool isIndexService =
            !tagline.isEmpty() && tagline.convert<std::string>() == "You Know, for Search";
        return isIndexService ? KsNN_Success : operation.fail();
    });
}

KsNN_ErrorCode KsNNDatabase::CheckIndex(bool& exists, const std::string& index, bool debug) {
    exists = false;
    Operation operation(*this, "KsNNDatabase::CheckIndex err: ", debug);
    if (const auto code = operation.send("GET", index)) return code;
    if (!operation.hasStatus({200, 404})) return operation.fail();
    exists = operation.hasStatus({200});
    return KsNN_Success;
}

KsNN_ErrorCode KsNNDatabase::CreateIndex(const std::string& index, bool debug) {
    bool exists = false;
    if (const auto code = CheckIndex(exists, index, debug)) return code;
    if (!exists) {
        Operation operation(*this, "KsNNDatabase::CreateIndex err: ", debug);
        if (const auto code = operation.ask("PUT", index, indexDefinition())) return code;
    }
    if (const auto code = CheckIndex(exists, index, debug)) return code;
    return exists ? KsNN_Success : KsNN_Error;
}

KsNN_ErrorCode KsNNDatabase::Refresh(std::string index, bool& exists, bool debug, bool allIndices) {
    if (const auto code = CheckIndex(exists, index, debug)) return code;
    if (!exists) return KsNN_Success;
    Operation operation(*this, "KsNNDatabase::Refresh err: ", debug);
    return operation.ask("POST", (allIndices ? "" : index) + "/_refresh");
}

KsNN_ErrorCode KsNNDatabase::DeleteIndex(const std::string& index, bool debug) {
    Operation operation(*this, "KsNNDatabase::DeleteIndex err: ", debug);
    if (const auto code = operation.refresh(mTranscriptIndex).code()) return code;
    bool exists = false;
    if (const auto code = CheckIndex(exists, index, debug)) return code;
    if (!exists) {
        operation.debugLine(
            "KsNNDatabase::DeleteIndex: Warning! Early return, index does not exist to delete.");
        return KsNN_Success;
    }
    if (const auto code = operation.ask("DELETE", index)) return code;
    CheckIndex(exists, index, debug);
    return exists ? operation.failSaying("Deletion not successful. Index still exists.") : KsNN_Success;
}
