#pragma once

#include "tests/store/Operations.h"
#include "tests/store/RealStore.h"
#include "tests/support/FaultProxy.h"

#include <Poco/JSON/Parser.h>
#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <optional>
#include <set>

namespace kestrel_test {

/// An operation under test.
struct Subject {
    /// As in stories.txt; `@index` is the transcript index, `@other` one that is not there. With `run`, a
    /// name.
    const char* call;
    std::function<KsNN_ErrorCode(KsNNDatabase&)> run = nullptr;
    /// Calling again after a fault leaves the store as one undisturbed call does.
    bool isRepeatable = true;
    /// What calling again may return, besides success: the first call did the work and its answer was lost.
    KsNN_ErrorCode whenDoneAlready = KsNN_Success;
    /// Passes over failures of requests that have this in them, "METHOD /path".
    std::optional<std::string> passesOver = std::nullopt;
    /// Some failures come without a report.
    bool mayBeSilent = false;
};

/// A store behind a proxy that lets an operation's requests fail. Which requests these are is learnt from the
/// operation itself.
class Faults : public RealStore {
protected:
    Faults() : mProxy(*sService), mStoreBehindProxy(mProxy.uri().c_str(), nullptr, nullptr, nullptr, false) {
        restore();
    }
    ~Faults() override {
        remove(mOtherIndex);
        remove(KsNNDatabase::getSpeakerIndex());
        remove(KsNNDatabase::getSemanticIndex());
        if (mUsers != Users::Untouched) removeUsers();
    }

    void expectCleanFailures(const char* call) { expectCleanFailures(Subject{call}); }
    /// Fails each request of the subject in turn, in each way that there is.
    void expectCleanFailures(const Subject& subject) {
        SCOPED_TRACE(subject.call);
        const Stored before = stored();
        const auto [code, requests] = call(subject);
        ASSERT_EQ(code, KsNN_Success) << mStoreBehindProxy.GetErrorStr();
        const Stored after = stored();
        const bool onlyReads = before == after;
        for (std::size_t position = 0; position < requests.size(); ++position) {
            for (const Fault& fault : faults()) {
                SCOPED_TRACE(std::string(fault.name) + " at " + requests[position] + ", number " +
                             std::to_string(position));
                if (!onlyReads) restore();
                mProxy.failAt(position, fault);
                expectCleanFailure(subject, requests[position], position);
                if (onlyReads || !subject.isRepeatable) continue;
                EXPECT_THAT(call(subject).first, testing::AnyOf(KsNN_Success, subject.whenDoneAlready));
                EXPECT_EQ(stored(), after);
            }
        }
        if (!onlyReads) restore();
    }

    /// Two complete clips of project p, one of them of q also; one clip under way; a lock; two speakers.
    void restore() {
        remove(mOtherIndex);
        remove(KsNNDatabase::getSemanticIndex());
        createIndex(mIndex);
        createIndex(KsNNDatabase::getSpeakerIndex());
        if (!mFrames.empty()) createIndex(KsNNDatabase::getSemanticIndex());
        std::ifstream file(KESTREL_STORE_TESTS "/filled_store.txt");
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        const std::string bulk = expanded(
            text,
            {{"@index", mIndex},
             {"@speakers", KsNNDatabase::getSpeakerIndex()},
             {"@film", R"({"projectGuid": "p", "projectName": "Film"})"},
             {"@clip",
              R"("schemaVersion": 2, "model": "m", "clipName": "c", "audioTracks": "1", "clientApp": "a")"},
             {"@segment", R"("transcript": "some words", "language": "en", "speakerID": "S0",)"
                          R"("wordStartsMS": [0, 10], "wordEndsMS": [9, 19])"}});
        ASSERT_THAT(mProxy.ask("PUT", "/_bulk", bulk + mFrames), testing::HasSubstr(R"("errors":false)"));
        if (mUsers == Users::Untouched) return;
        removeUsers();
        if (mUsers == Users::Absent) return;
        for (const std::string& path : kRoles)
            mProxy.ask("PUT", "/" + path, R"({"cluster": ["monitor"]})");
        mProxy.ask("PUT", std::string("/") + kUser, R"({"password": "of the tests", "roles": []})");
    }

    enum class Users { Untouched, Absent, Present };

    std::string mIndex = KsNNDatabase::getTranscriptIndex();
    std::string mOtherIndex = mIndex + "_other";
    std::string mFrames;             ///< Lines of a bulk request for the semantic index.
    Users mUsers = Users::Untouched; ///< Whether there are the roles and the debug user at first.

private:
    /// The documents of all indices, without identifiers, and the users; nothing for no index.
    using Stored = std::multiset<std::string>;

    std::pair<KsNN_ErrorCode, std::vector<std::string>> call(const Subject& subject) {
        mProxy.pass();
        const KsNN_ErrorCode code = run(subject);
        return {code, mProxy.conversation()};
    }

    KsNN_ErrorCode run(const Subject& subject) {
        if (subject.run) return subject.run(mStoreBehindProxy);
        std::string output;
        const std::string call = expanded(subject.call, {{"@index", mIndex}, {"@other", mOtherIndex}});
        return callOperation(mStoreBehindProxy, call, output);
    }

    void expectCleanFailure(const Subject& subject, const std::string& request, std::size_t position) {
        mStoreBehindProxy.ResetErrorStr();
        const KsNN_ErrorCode code = run(subject);
        const std::string report = mStoreBehindProxy.GetErrorStr();
        if (subject.passesOver && request.find(*subject.passesOver) != std::string::npos) return;
        EXPECT_THAT(code, testing::AnyOf(KsNN_Error, KsNN_Exception));
        const bool isSilent = report.empty() && code == KsNN_Error && subject.mayBeSilent;
        if (!isSilent) {
            EXPECT_THAT(report, testing::StartsWith("KsNN Error: "));
        }
        EXPECT_EQ(mProxy.conversation().size(), position + 1) << "goes on after a failure";
    }

    void remove(const std::string& path) {
        try {
            mProxy.ask("DELETE", "/" + path);
        } catch (const std::runtime_error&) { // it was not there
        }
    }

    inline static const std::vector<std::string> kRoles = {"_security/role/transcript_index_dbg_access",
                                                           "_security/role/transcript_index_rel_access"};
    static constexpr const char* kUser = "_security/user/transcript_user_dbg";

    void removeUsers() {
        for (const std::string& path : kRoles)
            remove(path);
        remove(kUser);
    }

    void createIndex(const std::string& index) {
        remove(index);
        mProxy.ask("PUT", "/" + index,
                   R"({"mappings": {"properties": {"projectList": {"type": "nested", "properties":
                   {"projectGuid": {"type": "keyword"}, "projectName": {"type": "keyword"}}},
                   "semanticImageVector": {"type": "dense_vector", "dims": 512}}}})");
    }

    void insertUsers(Stored& documents) {
        std::vector<std::string> paths = kRoles;
        paths.emplace_back(kUser);
        for (const std::string& path : paths) {
            try {
                documents.insert(mProxy.ask("GET", "/" + path));
            } catch (const std::runtime_error&) { // it is not there
            }
        }
    }

    Stored stored() {
        Stored documents;
        if (mUsers != Users::Untouched) insertUsers(documents);
        for (const std::string& index :
             {mIndex, KsNNDatabase::getSpeakerIndex(), KsNNDatabase::getSemanticIndex(), mOtherIndex}) {
            try {
                mProxy.ask("POST", "/" + index + "/_refresh");
            } catch (const std::runtime_error&) {
                continue; // there is no such index
            }
            documents.insert(index);
            const auto answer = Poco::JSON::Parser()
                                    .parse(mProxy.ask("GET", "/" + index + "/_search", R"({"size": 100})"))
                                    .extract<Poco::JSON::Object::Ptr>();
            for (const auto& hit : *answer->getObject("hits")->getArray("hits"))
                documents.insert(Poco::Dynamic::Var::toString(
                    hit.extract<Poco::JSON::Object::Ptr>()->getObject("_source")));
        }
        return documents;
    }

    FaultProxy mProxy;
    KsNNDatabase mStoreBehindProxy;
};

} // namespace kestrel_test
