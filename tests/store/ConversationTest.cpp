// The conversations of conversations.txt: what each operation of the store asks, and what it makes of the
// answers.

#include "kestrelml/store/Schema.h"
#include "tests/store/ScriptedStore.h"

#include <fstream>
#include <regex>

namespace kestrel_test {
namespace {

using Arguments = std::vector<std::string>;

/// Runs one operation and writes down what it gave.
using Run = std::function<KsNN_ErrorCode(KsNNDatabase&, const Arguments&, std::ostream&)>;

KsNNDBEntryBase someClip() {
    KsNNDBEntryBase base;
    base.projectName = "Film \"7\"";
    base.model = "small";
    base.clipName = "A001";
    base.audioTracks = "1,2";
    base.clientApp = "Editor";
    return base;
}

KsNNDBEntrySeg someSegment(const std::string& index) {
    KsNNDBEntrySeg seg;
    seg.segment = std::stoi(index);
    seg.mediaGuid = "m";
    seg.projectGuid = "p";
    seg.transcript = "Hé\tline\nбуква 😀";
    seg.language = "fr";
    seg.speakerID = "S0";
    seg.speakerGuid = "not written";
    seg.wordStartsMS = {0, 10};
    seg.wordEndsMS = {9, 20};
    seg.projectGuidList = {"not", "written"};
    return seg;
}

void print(std::ostream& out, const std::vector<std::string>& texts) {
    for (const std::string& text : texts)
        out << text << ' ';
}

void print(std::ostream& out, const std::vector<KsNNSpeakerKV>& speakers) {
    for (const KsNNSpeakerKV& speaker : speakers)
        out << speaker.speakerGuid << '=' << speaker.speakerName << ' ';
}

KsNNSpeakerKV someSpeaker(const std::string& guid) {
    KsNNSpeakerKV speaker;
    speaker.speakerGuid = guid;
    speaker.speakerName = "Ann";
    speaker.projectGuid = "p";
    speaker.projectName = "Film";
    return speaker;
}

/// An argument names the transcript index for the duration of the operation.
void useIndex(const Arguments& arguments, std::size_t position) {
    KsNNDatabase::setTranscriptIndex(arguments.size() > position ? arguments[position] : "clips");
}

const std::map<std::string, Run> kOperations = {
    {"testDefault", [](auto& store, auto&, auto&) { return store.testDefault(false); }},
    {"CheckIndex",
     [](auto& store, auto&, auto& out) {
         bool exists = true;
         const auto code = store.CheckIndex(exists, "i", false);
         out << exists;
         return code;
     }},
    {"CreateIndex", [](auto& store, auto&, auto&) { return store.CreateIndex("i", false); }},
    {"DeleteIndex", [](auto& store, auto&, auto&) { return store.DeleteIndex("i", false); }},
    {"LockEntry",
     [](auto& store, auto& given, auto&) { return store.LockEntry(given.empty() ? "" : given[0], false); }},
    {"GetLockState",
     [](auto& store, auto&, auto& out) {
         bool locked = true;
         const auto code = store.GetLockState("m", locked, false);
         out << locked;
         return code;
     }},
    {"UnlockEntry", [](auto& store, auto&, auto&) { return store.UnlockEntry("m", false); }},
    {"UnlockAllEntries", [](auto& store, auto&, auto&) { return store.UnlockAllEntries(false); }},
    {"FindAllLockedMediaGuids",
     [](auto& store, auto&, auto& out) {
         std::vector<std::string> found = {"before"};
         const auto code = store.FindAllLockedMediaGuids(found, false);
         print(out, found);
         return code;
     }},
    {"GetSegmentCount",
     [](auto& store, auto& given, auto& out) {
         int count = -7;
         const auto code = store.GetSegmentCount("m", given[1], count, false, std::stoi(given[0]));
         out << count;
         return code;
     }},
    {"GetTotalSegmentCount",
     [](auto& store, auto&, auto& out) {
         int count = -7;
         const auto code = store.GetTotalSegmentCount(count, false);
         out << count;
         return code;
     }},
    {"GetProgressComplete",
     [](auto& store, auto& given, auto& out) {
         bool complete = true;
         const auto code = store.GetProgressComplete("m", "p", complete, false, std::stoi(given[0]));
         out << complete;
         return code;
     }},
    {"SetProgressComplete",
     [](auto& store, auto& given, auto&) {
         const std::string project = given.size() > 1 ? given[1] : "";
         return store.SetProgressComplete("m", false, std::stoi(given[0]), project);
     }},
    {"WriteToDB", [](auto& store, auto& given,
                     auto&) { return store.WriteToDB(someClip(), someSegment(given[0]), false); }},
    {"WriteToDBVer1", [](auto& store, auto& given,
                         auto&) { return store.WriteToDBVer1(someClip(), someSegment(given[0]), false); }},
    {"GetDBContents",
     [](auto& store, auto& given, auto&) {
         KsNNDB_STTClipEntry entry;
         return store.GetDBContents("m", "p", entry, false, std::stoi(given[0]));
     }},
    {"GetDBContentsRange",
     [](auto& store, auto& given, auto&) {
         KsNNDB_STTClipEntry entry;
         return store.GetDBContentsRange("m", "p", std::stoi(given[0]), std::stoi(given[1]), entry, false);
     }},
    {"Search",
     [](auto& store, auto& given, auto&) {
         std::vector<KsNNSearchResults> results;
         return store.Search("rich \"peeple\"", "p", 0.6F, results, std::stoi(given[0]), false);
     }},
    {"AppendProjectToEntry",
     [](auto& store, auto& given, auto&) {
         useIndex(given, 1);
         return store.AppendProjectToEntry("m", "p", "Film", std::stoi(given[0]), false);
     }},
    {"RemoveProjectFromEntry",
     [](auto& store, auto& given, auto&) {
         useIndex(given, 0);
         return store.RemoveProjectFromEntry("m", "p", false);
     }},
    {"AddNewProjectToProjectList",
     [](auto& store, auto&, auto&) { return store.AddNewProjectToProjectList("m", "p", "Film", false); }},
    {"GetAllEntries",
     [](auto& store, auto&, auto& out) {
         std::vector<KsNNProject> projects;
         const auto code = store.GetAllEntries(projects, false);
         for (const KsNNProject& project : projects)
             out << project.projectGuid << '=' << project.projectName << ' ';
         return code;
     }},
    {"GetAllMediaGuids",
     [](auto& store, auto& given, auto& out) {
         std::vector<std::string> clips = {"cleared"};
         const auto code = store.GetAllMediaGuids(given[0], clips, false, std::stoi(given[1]));
         print(out, clips);
         return code;
     }},
    {"GetAllInprogressEntries",
     [](auto& store, auto&, auto& out) {
         std::vector<KsNNSearchResults> rows;
         const auto code = store.GetAllInprogressEntries(rows, false);
         for (const KsNNSearchResults& row : rows)
             out << row.mediaGuid << '/' << row.projectGuid << '/' << row.text << ' ';
         return code;
     }},
    {"DeleteEntry",
     [](auto& store, auto& given, auto& out) {
         const auto told = [&](int current, int total, const char*) {
             out << current << '/' << total << ' ';
             return static_cast<KsNN_ErrorCode>(given.size() > 2 ? std::stoi(given[2]) : 0);
         };
         return store.DeleteEntry(given[0], "p", false, std::stoi(given[1]), told);
     }},
    {"HardDeleteEntries",
     [](auto& store, auto& given, auto&) { return store.HardDeleteEntries(given, false); }},
    {"DeleteAllInProgressEntries",
     [](auto& store, auto&, auto&) { return store.DeleteAllInProgressEntries(false); }},
    {"FindPhrase",
     [](auto& store, auto&, auto& out) {
         std::vector<KsNNPhraseHit> hits;
         const auto code = store.FindPhrase({"words", "p", "m", "L", "s", 0.6F, 7}, hits, false);
         for (const KsNNPhraseHit& hit : hits)
             out << hit.clipName << ' ' << hit.segment << ' ' << hit.startMS << '-' << hit.endMS;
         return code;
     }},
    {"SpeakerCreateNew",
     [](auto& store, auto&, auto& out) {
         KsNNSpeakerKV speaker = someSpeaker("");
         const auto code = store.SpeakerCreateNew(speaker, false);
         out << speaker.speakerGuid;
         return code;
     }},
    {"SpeakerGetList",
     [](auto& store, auto&, auto& out) {
         std::vector<KsNNSpeakerKV> speakers = {someSpeaker("cleared")};
         const auto code = store.SpeakerGetList("p", speakers, false);
         print(out, speakers);
         return code;
     }},
    {"GetSpeakerName",
     [](auto& store, auto&, auto& out) {
         std::string name;
         const auto code = store.GetSpeakerName("s", name, false);
         out << name;
         return code;
     }},
    {"GetAllSpeakersInSpeakerIndex",
     [](auto& store, auto&, auto& out) {
         std::vector<std::string> guids = {"before"};
         const auto code = store.GetAllSpeakersInSpeakerIndex(guids, false);
         print(out, guids);
         return code;
     }},
    {"GetAllSpeakersInProject",
     [](auto& store, auto&, auto& out) {
         std::vector<KsNNSpeakerKV> speakers;
         const auto code = store.GetAllSpeakersInProject("p", speakers, false);
         print(out, speakers);
         return code;
     }},
    {"FindReferencesOfSpeaker",
     [](auto& store, auto&, auto& out) {
         bool found = false;
         const auto code = store.FindReferencesOfSpeaker("s", "p", found, false);
         out << found;
         return code;
     }},
    {"SpeakerDelete", [](auto& store, auto&, auto&) { return store.SpeakerDelete("p", "s", false); }},
    {"SpeakerSetSegName",
     [](auto& store, auto&, auto&) {
         KsNNSpeakerKV speaker = someSpeaker("s");
         return store.SpeakerSetSegName("m", "p", speaker, 2, false);
     }},
    {"CorrectSpeakerID",
     [](auto& store, auto&, auto&) { return store.CorrectSpeakerID("m", "p", "B", 2, false); }},
    {"SpeakerRenameAllSegments",
     [](auto& store, auto&, auto&) {
         KsNNSpeakerKV speaker = someSpeaker("s");
         return store.SpeakerRenameAllSegments("m", "p", speaker, 2, false);
     }},
    {"SpeakerRenameBasedOnSpeakerGuid",
     [](auto& store, auto&, auto& out) {
         KsNNSpeakerKV speaker = someSpeaker("s");
         const auto code = store.SpeakerRenameBasedOnSpeakerGuid(speaker, "Anna", false);
         out << speaker.speakerName;
         return code;
     }},
    {"MergeSpeakersInProject",
     [](auto& store, auto&, auto&) { return store.MergeSpeakersInProject("p", "s", "t", "t", false); }},
    {"ClearSpeakerIDForEntireClip",
     [](auto& store, auto&, auto&) { return store.ClearSpeakerIDForEntireClip("m", "s", false); }},
    {"ClearSpeakerIDForEntireProject",
     [](auto& store, auto&, auto&) { return store.ClearSpeakerIDForEntireProject("p", "s", false); }},
    {"ClearSpeakerIDPerSeg",
     [](auto& store, auto&, auto&) { return store.ClearSpeakerIDPerSeg("m", 2, false); }},
    {"MigrateDatabaseVersion1to2",
     [](auto& store, auto& given, auto& out) {
         const auto told = [&](int current, int total, const char*) {
             out << current << '/' << total << ' ';
             return KsNN_Success;
         };
         const auto code = store.MigrateDatabaseVersion1to2(given[0] == "1", false, told, 2);
         out << KsNNDatabase::getTranscriptIndex();
         return code;
     }},
    {"UpdateDBUsersVersion1to2",
     [](auto& store, auto&, auto& out) {
         bool updated = true;
         const auto code = store.UpdateDBUsersVersion1to2(updated, false);
         out << updated;
         return code;
     }},
    {"DowngradeDBUsersVersion2to1",
     [](auto& store, auto&, auto&) { return store.DowngradeDBUsersVersion2to1(false); }},
};

struct Exchange {
    std::string request; ///< "METHOD /path"
    std::string body;
    Reply answer = Reply::json(200, "{}");
};

struct Conversation {
    std::string name;
    std::string operation;
    Arguments arguments;
    std::vector<Exchange> exchanges;
    int code = -1;
    std::string text; ///< Output or report.
};

/// Reads conversations.txt, which says how it is written.
class ConversationFile {
public:
    explicit ConversationFile(const std::string& path) {
        std::ifstream file(path);
        std::string whole;
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with("  ") && !whole.empty()) {
                whole += line.substr(1);
                continue;
            }
            take(whole);
            whole = line;
        }
        take(whole);
    }

    const std::vector<Conversation>& conversations() const { return mConversations; }

private:
    void take(const std::string& written) {
        if (written.empty() || written[0] == '#') return;
        if (written[0] == '@') {
            const std::size_t equals = written.find(" = ");
            mShort[written.substr(0, equals)] = expanded(written.substr(equals + 3));
            return;
        }
        const std::string line = expanded(written);
        const std::size_t space = line.find(' ');
        const std::string first = line.substr(0, space);
        const std::string rest = space == std::string::npos ? "" : line.substr(space + 1);
        if (line[0] == '[') {
            begin(line.substr(1, line.rfind(']') - 1));
        } else if (first == "<") {
            const std::size_t body = rest.find(' ');
            last().exchanges.back().answer =
                Reply::json(std::stoi(rest), body == std::string::npos ? "{}" : rest.substr(body + 1));
        } else if (first == "=") {
            last().code = std::stoi(rest);
            last().text = rest.size() > 2 ? rest.substr(2) : "";
        } else if (first == "refresh") {
            last().exchanges.push_back({"GET /" + rest, ""});
            last().exchanges.push_back({"POST /" + rest + "/_refresh", ""});
        } else {
            const std::size_t body = rest.find(' ');
            last().exchanges.push_back(
                {first + " " + rest.substr(0, body), body == std::string::npos ? "" : rest.substr(body + 1)});
        }
    }

    void begin(const std::string& name) {
        Conversation conversation;
        conversation.name = name;
        std::istringstream words(name.substr(0, name.find(": ")));
        words >> conversation.operation;
        for (std::string word; words >> word;)
            conversation.arguments.push_back(word);
        mConversations.push_back(conversation);
    }

    Conversation& last() { return mConversations.back(); }

    std::string expanded(std::string text) const {
        static const std::regex name("@[A-Za-z]+");
        for (std::smatch match; std::regex_search(text, match, name);) {
            text = match.prefix().str() + mShort.at(match.str()) + match.suffix().str();
        }
        return text;
    }

    std::map<std::string, std::string> mShort;
    std::vector<Conversation> mConversations;
};

std::string trimmed(std::string text) {
    while (!text.empty() && (text.back() == ' ' || text.back() == '\n'))
        text.pop_back();
    return text;
}

class Conversations : public ScriptedStore {
protected:
    void check(const Conversation& expected) {
        mServer.reset();
        for (const Exchange& exchange : expected.exchanges)
            mServer.script({exchange.answer});
        mStore->SetErrorStr("KsNN Error: 1, of an earlier operation\n");
        std::ostringstream output;
        const KsNN_ErrorCode code = kOperations.at(expected.operation)(*mStore, expected.arguments, output);
        KsNNDatabase::setTranscriptIndex("clips");

        EXPECT_EQ(code, expected.code) << mStore->GetErrorStr();
        checkText(expected, output.str());
        const auto requests = mServer.requests();
        for (std::size_t i = 0; i < std::min(requests.size(), expected.exchanges.size()); ++i) {
            EXPECT_EQ(requests[i].line(), expected.exchanges[i].request);
            if (expected.exchanges[i].body == "bulk") continue;
            EXPECT_EQ(json(requests[i].body), json(expected.exchanges[i].body)) << requests[i].line();
        }
        EXPECT_EQ(requests.size(), expected.exchanges.size());
    }

private:
    void checkText(const Conversation& expected, const std::string& output) const {
        const std::string report = trimmed(mStore->GetErrorStr());
        if (expected.code == KsNN_Success || expected.text == "silent") {
            EXPECT_EQ(report, "");
        }
        if (expected.code == KsNN_Success) {
            EXPECT_EQ(trimmed(output), expected.text);
        } else if (expected.text != "silent") {
            EXPECT_THAT(report, testing::StartsWith("KsNN Error: "));
            EXPECT_THAT(report, testing::EndsWith(expected.text));
        }
    }

    static std::string json(const std::string& text) { return text.empty() ? text : normalised(text); }
};

TEST_F(Conversations, AreAsWritten) {
    const ConversationFile file(KESTREL_CONVERSATIONS);
    for (const Conversation& expected : file.conversations()) {
        SCOPED_TRACE("[" + expected.name + "]");
        check(expected);
    }
    EXPECT_GT(file.conversations().size(), 60U);
}

TEST_F(Conversations, DebugOnlyPrints) {
    mServer.otherwise([](const RecordedRequest& request) {
        if (request.target.find("_count") != std::string::npos) return count(1);
        return request.target == "/clips/_doc" ? Reply::json(201, R"({"result": "created"})") : missing();
    });
    const auto write = [&](bool debug) {
        mServer.reset();
        testing::internal::CaptureStdout();
        mStore->WriteToDBVer1(someClip(), someSegment("1"), debug);
        return std::pair{mServer.conversation(), testing::internal::GetCapturedStdout()};
    };
    const auto [quietly, nothing] = write(false);
    const auto [loudly, trace] = write(true);
    EXPECT_EQ(quietly, loudly);
    EXPECT_EQ(nothing, "");
    EXPECT_THAT(trace, testing::HasSubstr("\nresult: created\n"));
    EXPECT_THAT(trace,
                testing::HasSubstr("RESTCall: No stored encrypted credentials. Using transcript_user_dbg "
                                   "credentials.\n"));
}

TEST(Schema, BulkLinesListTheProjectsOfClipAndSegment) {
    KsNNDB_STTClipEntry entry;
    static_cast<KsNNDBEntryBase&>(entry) = someClip();
    entry.projects = {{"X", "x"}, {"Y", "y"}};
    std::ostringstream bulk;
    for (const std::string index : {"0", "1"}) {
        KsNNDBEntrySeg seg = someSegment(index);
        seg.projectGuidList = {"x", "y"};
        kestrelml::detail::appendBulkCreate(entry, seg, bulk);
    }
    std::istringstream lines(bulk.str());
    std::string action;
    std::string zero;
    std::string one;
    std::getline(lines, action);
    EXPECT_EQ(action, R"({ "create" : {} })");
    std::getline(lines, zero);
    EXPECT_THAT(zero, testing::HasSubstr(R"("projectGuidList":["x","y"],"projectList":[{"projectGuid":"x",)"
                                         R"("projectName":"X"},{"projectGuid":"y","projectName":"Y"}],)"
                                         R"("schemaVersion":2)"));
    std::getline(lines, action);
    std::getline(lines, one);
    EXPECT_THAT(one, testing::HasSubstr(R"("projectGuidList":["x","y"],"segment":1)"));
    EXPECT_EQ(bulk.str().back(), '\n');
}

// A service that is starting gets four seconds.
TEST(Deletion, WaitsForAServiceAndSaysThatItIsNotRunning) {
    ScriptedServer server;
    KsNNDatabase store(server.uri().c_str(), "clips", nullptr, "images", false);
    server.reset();
    EXPECT_EQ(store.DeleteAllInProgressEntries(false), KsNN_Error);
    EXPECT_EQ(server.conversation(), (std::vector<std::string>(4, "GET /")));
    EXPECT_THAT(store.GetErrorStr(), testing::HasSubstr(", Indexing database is not running. WordHunt and "
                                                        "LineMatch are unavailable.\n"));
}

} // namespace
} // namespace kestrel_test
