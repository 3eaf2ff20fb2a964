#include "kestrelml/store/Credentials.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Query.h"
#include "kestrelml/store/Request.h"
#include "kestrelml/stt/KsNNSpeechToTextCYTHON.h"
#include "kestrelml/text/TextNormaliser.h"

#include <iostream>

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

/// Project identifiers are matched exactly inside their pair with the name, so the pairs are nested
/// documents.
Object::Ptr indexDefinition() {
    const Object::Ptr keyword = object("type", "keyword");
    Object::Ptr project = object("projectGuid", keyword);
    project->set("projectName", keyword);
    Object::Ptr projectList = object("type", "nested");
    projectList->set("properties", project);
    Object::Ptr definition = object("settings", object("number_of_shards", 1));
    definition->set("mappings", object("properties", object("projectList", projectList)));
    return definition;
}

} // namespace

KsNNDatabase::KsNNDatabase(const char* uri, const char* transcriptIndex, const char* languageCode,
                           const char* semanticIndex, bool ownsInterpreterBridge)
    : KsNNBase("https://127.0.0.1:9281/"), mOwnsInterpreterBridge(ownsInterpreterBridge) {
    setCredentialSource(storeCredentials);
    choose(mTranscriptIndex, transcriptIndex, "transcript_oai_small_multi_index");
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
    ResetErrorStr();
    Request request(*this, "KsNNDatabase::testDefault err: ", debug);
    if (const auto code = request.sendExpectingOk("GET", "")) return code;
    return request.read([&](const Object& answer) {
        const Var tagline = answer.get("tagline");
        const bool isIndexService =
            !tagline.isEmpty() && tagline.convert<std::string>() == "You Know, for Search";
        return isIndexService ? KsNN_Success : request.fail();
    });
}

KsNN_ErrorCode KsNNDatabase::CheckIndex(bool& exists, const std::string& index, bool debug) {
    ResetErrorStr();
    exists = false;
    Request request(*this, "KsNNDatabase::CheckIndex err: ", debug);
    if (const auto code = request.send("GET", index)) return code;
    if (!request.hasStatus({200, 404})) return request.fail();
    exists = request.hasStatus({200});
    return KsNN_Success;
}

KsNN_ErrorCode KsNNDatabase::CreateIndex(const std::string& index, bool debug) {
    bool exists = false;
    if (const auto code = CheckIndex(exists, index, debug)) return code;
    if (!exists) {
        Request request(*this, "KsNNDatabase::CreateIndex err: ", debug);
        if (const auto code = request.sendExpectingOk("PUT", index, indexDefinition())) return code;
    }
    if (const auto code = CheckIndex(exists, index, debug)) return code;
    return exists ? KsNN_Success : KsNN_Error;
}

KsNN_ErrorCode KsNNDatabase::Refresh(std::string index, bool& exists, bool debug, bool allIndices) {
    if (const auto code = CheckIndex(exists, index, debug)) return code;
    if (!exists) return KsNN_Success;
    Request request(*this, "KsNNDatabase::Refresh err: ", debug);
    return request.sendExpectingOk("POST", allIndices ? "/_refresh" : index + "/_refresh");
}

KsNN_ErrorCode KsNNDatabase::DeleteIndex(const std::string& index, bool debug) {
    bool exists = false;
    if (const auto code = Refresh(mTranscriptIndex, exists, debug, false)) return code;
    if (const auto code = CheckIndex(exists, index, debug)) return code;
    if (!exists) {
        if (debug) {
            std::cout << "KsNNDatabase::DeleteIndex: Warning! Early return, index does not exist to delete."
                      << std::endl;
        }
        return KsNN_Success;
    }
    Request request(*this, "KsNNDatabase::DeleteIndex err: ", debug);
    if (const auto code = request.sendExpectingOk("DELETE", index)) return code;
    CheckIndex(exists, index, debug);
    if (!exists) return KsNN_Success;
    return request.failWith("KsNNDatabase::DeleteIndex err: Deletion not successful. Index still exists.");
}
