#include "tests/store/NewProcess.h"
#include "tests/store/ScriptedStore.h"

#include <iostream>

namespace kestrel_test {
namespace {

using testing::HasSubstr;

void printNames() {
    std::cerr << KsNNDatabase::getTranscriptIndex() << ' ' << KsNNDatabase::getSemanticIndex() << ' '
              << KsNNDatabase::getSpeakerIndex() << '\n';
}

TEST(Names, FirstStoreSetsTheDefaults) {
    expectInNewProcess(
        [] {
            const KsNNDatabase first("", nullptr, nullptr, nullptr, false);
            std::cerr << first.GetURI() << ' ';
            printNames();
        },
        "https://127.0.0.1:9281/ transcript_oai_small_multi_index semantic_image_search_dbg "
        "speaker_index_rel\n");
}

TEST(Names, LaterStoresKeepThemUnlessTold) {
    expectInNewProcess(
        [] {
            const KsNNDatabase first(kNobody, "mine", "en", "images", false);
            printNames();
            const KsNNDatabase second(kNobody, nullptr, "", nullptr, false);
            printNames();
            KsNNDatabase::setLanguage("");
            KsNNDatabase::setTranscriptIndex("");
            KsNNDatabase::setSemanticIndex("other");
            printNames();
            std::cerr << second.getTempProjectGUID() << ' ' << second.getTempProjectName() << ' '
                      << second.getTempMediaGUID();
        },
        "transcript_oai_small_en_index_rel images speaker_index_rel\n"
        "transcript_oai_small_en_index_rel images speaker_index_rel\n"
        " other speaker_index_rel\n"
        "_TEMP_PROJECT_GUID_ _TEMP_PROJECT_NAME_ 123.1234567890.0987654321");
}

TEST(Names, ConstructorCreatesTheSpeakerIndexAndNeverFails) {
    ScriptedServer server;
    server.script({missing(), ok(), ok()});
    const KsNNDatabase store(server.uri().c_str(), "clips", nullptr, nullptr, false);
    EXPECT_THAT(
        server.conversation(),
        testing::ElementsAre("GET /speaker_index_rel", "PUT /speaker_index_rel", "GET /speaker_index_rel"));
    const KsNNDatabase alone(kNobody, nullptr, nullptr, nullptr, false);
    EXPECT_THAT(alone.GetErrorStr(), HasSubstr("KsNN Error: "));
}

} // namespace
} // namespace kestrel_test
