#include "tests/store/Operations.h"

#include "kestrelml/store/KsNNSegments.h"
#include "kestrelml/store/KsNNSpeakers.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <iomanip>
#include <regex>

namespace kestrel_test {
namespace {

template <typename T>
void print(std::ostream& out, const T& value) {
    out << value << ' ';
}
void print(std::ostream& out, const KsNNSpeakerKV& speaker) {
    out << speaker.speakerGuid << '=' << speaker.speakerName << ' ';
}
void print(std::ostream& out, const KsNNProject& project) {
    out << project.projectGuid << '=' << project.projectName << ' ';
}
void print(std::ostream& out, const KsNNSearchResults& result) {
    out << result.mediaGuid << '/' << result.projectGuid << '/' << result.text << '@' << result.startMS
        << ' ';
}
void print(std::ostream& out, const KsNNClipSummary& clip) {
    out << clip.mediaGuid << '/' << clip.clipName << '/' << clip.isComplete << '/' << clip.segmentCount << '/'
        << clip.endMS << '/';
    for (const KsNNProject& project : clip.projects)
        out << project.projectGuid << ';';
    for (const std::string& language : clip.languages)
        out << '/' << language;
    for (const KsNNClipSpeaker& speaker : clip.speakers)
        out << '/' << speaker.speakerID << '=' << speaker.speakerGuid;
    out << ' ';
}
void print(std::ostream& out, const KsNNPhraseHit& hit) {
    out << hit.clipName << ' ' << hit.segment << ' ' << hit.startMS << '-' << hit.endMS << ' ';
}
void print(std::ostream& out, const std::map<std::string, KsNNDB_STTClipEntry>& clips) {
    for (const auto& [name, entry] : clips) {
        for (const KsNNDBEntrySeg& seg : entry.segments)
            out << name << '/' << seg.segment << ' ';
    }
}
template <typename T>
void print(std::ostream& out, const std::vector<T>& values) {
    for (const T& value : values)
        print(out, value);
}

/// The fields of a clip that a call asks for, of every segment where they are a segment's.
void print(std::ostream& out, const KsNNDB_STTClipEntry& entry, const std::string& fields) {
    std::istringstream names(fields);
    for (std::string name; std::getline(names, name, ',');) {
        if (name == "clip")
            out << entry.projectName << ' ' << entry.clipName << ' ' << entry.progressComplete << ' ';
        if (name == "projects") print(out, entry.projects);
        for (const KsNNDBEntrySeg& seg : entry.segments) {
            if (name == "index") print(out, seg.segment);
            if (name == "text") out << seg.transcript << '|';
            if (name == "label") print(out, seg.speakerID);
            if (name == "speaker") print(out, seg.speakerGuid);
            if (name == "starts") print(out, seg.wordStartsMS);
            if (name == "ends") print(out, seg.wordEndsMS);
            if (name == "project") print(out, seg.projectGuid);
            if (name == "member") print(out, seg.projectGuidList);
        }
    }
}

KsNNSpeakerKV someSpeaker(const std::string& guid, const std::string& name, const std::string& project) {
    KsNNSpeakerKV speaker;
    speaker.speakerGuid = guid;
    speaker.speakerName = name;
    speaker.projectGuid = project;
    speaker.projectName = "Film";
    return speaker;
}

/// The arguments of a call, and its output parameters.
class Call {
public:
    explicit Call(std::vector<std::string> arguments) : mArguments(std::move(arguments)) {}

    std::string operator[](std::size_t position) const {
        return position < mArguments.size() ? mArguments[position] : "";
    }
    int number(std::size_t position) const {
        return (*this)[position].empty() ? 0 : std::stoi((*this)[position]);
    }
    const std::vector<std::string>& all() const { return mArguments; }
    /// The segment that the first arguments describe: clip, index and text, which is the label as well.
    KsNNDBEntrySeg segment() const {
        if ((*this)[2].empty()) return someSegment((*this)[0], number(1));
        return someSegment((*this)[0], number(1), (*this)[2], (*this)[2]);
    }

    /// An output parameter that holds `value` before the call and is printed after it.
    template <typename T>
    T& out(T value = {}) {
        return printed(std::move(value), [](std::ostream& output, const T& kept) { print(output, kept); });
    }
    KsNNDB_STTClipEntry& entry(std::size_t fields) {
        return printed(KsNNDB_STTClipEntry(),
                       [names = (*this)[fields]](std::ostream& output, const auto& kept) {
                           print(output, kept, names);
                       });
    }
    KsNNSpeakerKV& newSpeaker(const std::string& name, const std::string& project) {
        return printed(someSpeaker("", name, project),
                       [](std::ostream& output, const auto& kept) { output << kept.speakerGuid; });
    }
    /// "contents", "unfinished", "name=A001", "clip=m" and "project=p", in any order.
    KsNNClipQuery clipQuery() const {
        KsNNClipQuery query;
        for (const std::string& argument : mArguments) {
            const std::string value = argument.substr(argument.find('=') + 1);
            if (argument.starts_with("project=")) query.projectGuid = value;
            if (argument.starts_with("clip=")) query.mediaGuid = value;
            if (argument.starts_with("name=")) query.clipName = value;
            query.unfinishedOnly |= argument == "unfinished";
            query.withContents |= argument == "contents";
        }
        return query;
    }
    KsNNSpeakerKV& speaker(std::size_t position) {
        return mSpeaker = someSpeaker((*this)[position], "Ann", "p");
    }
    /// Prints its calls; returns `code` after so many of them.
    KsNNProgressCallback progress(int code = 0, int calls = 0) {
        return [this, code, calls](int current, int total, const char*) mutable {
            mProgress << current << '/' << total << ' ';
            return static_cast<KsNN_ErrorCode>(calls-- > 0 ? 0 : code);
        };
    }
    std::string output() const {
        std::ostringstream output;
        output << mProgress.str();
        for (const auto& printer : mPrinters)
            printer(output);
        return output.str();
    }

private:
    template <typename T, typename Print>
    T& printed(T value, Print printer) {
        auto kept = std::make_shared<T>(std::move(value));
        mPrinters.emplace_back([kept, printer](std::ostream& output) { printer(output, *kept); });
        return *kept;
    }

    std::vector<std::string> mArguments;
    std::vector<std::function<void(std::ostream&)>> mPrinters;
    std::ostringstream mProgress;
    KsNNSpeakerKV mSpeaker;
};

using Texts = std::vector<std::string>;
using Speakers = std::vector<KsNNSpeakerKV>;
using Results = std::vector<KsNNSearchResults>;

/// Segments 0 and 2 of clips of a project that have consecutive numbers for names.
KsNN_ErrorCode readSegmentsOfClips(KsNNDatabase& store, Call& c) {
    kestrelml::SegmentNumbers wanted;
    for (int clip = c.number(1); clip < c.number(2); ++clip)
        wanted[std::to_string(clip)] = {0, 2};
    return kestrelml::readSegments(store, c[0], wanted, c.out<std::map<std::string, KsNNDB_STTClipEntry>>(),
                                   false);
}

// clang-format off
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): the name is both the key and the member
#define OPERATION(name, ...) {#name, [](KsNNDatabase& store, [[maybe_unused]] Call& c) { return store.name(__VA_ARGS__); }}
// clang-format on

const std::map<std::string, KsNN_ErrorCode (*)(KsNNDatabase&, Call&)> kOperations = {
    OPERATION(testDefault, false),
    OPERATION(CheckIndex, c.out(true), c[0], false),
    OPERATION(CreateIndex, c[0], false),
    OPERATION(DeleteIndex, c[0], false),
    OPERATION(LockEntry, c[0], false),
    OPERATION(GetLockState, c[0], c.out(true), false),
    OPERATION(UnlockEntry, c[0], false),
    OPERATION(UnlockAllEntries, false),
    OPERATION(FindAllLockedMediaGuids, c.out(Texts{"before"}), false),
    OPERATION(GetSegmentCount, c[0], c[1], c.out(-7), false, c.number(2)),
    OPERATION(GetTotalSegmentCount, c.out(-7), false),
    OPERATION(GetProgressComplete, c[0], c[1], c.out(true), false, c.number(2)),
    OPERATION(SetProgressComplete, c[0], false, c.number(1), c[2]),
    OPERATION(WriteToDB, someClip(), c.segment(), false),
    OPERATION(WriteToDBVer1, someClip(), c.segment(), false),
    OPERATION(GetDBContents, c[0], c[1], c.entry(3), false, c.number(2)),
    OPERATION(GetWholeClip, c[0], c[1], c.entry(2), false),
    OPERATION(GetDBContentsRange, c[0], c[1], c.number(2), c.number(3), c.entry(4), false),
    {"readSegments", readSegmentsOfClips},
    OPERATION(Search, c[0], c[1], 0.6F, c.out<Results>(), c.number(2), false),
    OPERATION(FindPhrase, {c[0], c[1], c[2], c[3], c[4], 0.6F, c.number(5)},
              c.out<std::vector<KsNNPhraseHit>>(), false),
    OPERATION(AppendProjectToEntry, c[0], c[1], c[2], c.number(3), false),
    OPERATION(RemoveProjectFromEntry, c[0], c[1], false),
    OPERATION(AddNewProjectToProjectList, c[0], c[1], c[2], false),
    OPERATION(ShareSpeakers, c[0], c[1], c[2], false),
    OPERATION(GetAllEntries, c.out<std::vector<KsNNProject>>(), false),
    OPERATION(GetAllMediaGuids, c[0], c.out(Texts{"cleared"}), false, c.number(1)),
    OPERATION(FindClips, c.clipQuery(), c.out<std::vector<KsNNClipSummary>>(), false),
    OPERATION(GetAllInprogressEntries, c.out<Results>(), false),
    OPERATION(DeleteEntry, c[0], c[1], false, c.number(2), c.progress(c.number(3), c.number(4))),
    OPERATION(HardDeleteEntries, c.all(), false),
    OPERATION(DeleteAllInProgressEntries, false),
    OPERATION(SpeakerCreateNew, c.newSpeaker(c[0], c[1]), false),
    {"createSpeakerAs",
     [](KsNNDatabase& store, Call& c) { return kestrelml::createSpeakerAs(store, c.speaker(0), false); }},
    OPERATION(SpeakerGetList, c[0], c.out(Speakers(1)), false),
    OPERATION(GetSpeakerName, c[0], c.out<std::string>(), false),
    OPERATION(GetAllSpeakersInSpeakerIndex, c.out(Texts{"before"}), false),
    OPERATION(GetAllSpeakersInProject, c[0], c.out<Speakers>(), false),
    OPERATION(FindReferencesOfSpeaker, c[0], c[1], c.out(false), false),
    OPERATION(SpeakerDelete, c[0], c[1], false),
    OPERATION(SpeakerSetSegName, c[0], c[1], c.speaker(2), c.number(3), false),
    OPERATION(CorrectSpeakerID, c[0], c[1], c[2], c.number(3), false),
    OPERATION(SpeakerRenameAllSegments, c[0], c[1], c.speaker(2), c.number(3), false),
    OPERATION(SpeakerRenameBasedOnSpeakerGuid, c.out(someSpeaker(c[0], "Ann", "p")), c[1], false),
    OPERATION(MergeSpeakersInProject, c[0], c[1], c[2], c[3], false),
    OPERATION(ClearSpeakerIDForEntireClip, c[0], c[1], false),
    OPERATION(ClearSpeakerIDForEntireProject, c[0], c[1], false),
    OPERATION(ClearSpeakerIDPerSeg, c[0], c.number(1), false),
    OPERATION(MigrateDatabaseVersion1to2, c[0] == "1", false, c.progress(), c.number(1)),
    OPERATION(UpdateDBUsersVersion1to2, c.out(true), false),
    OPERATION(DowngradeDBUsersVersion2to1, false),
};

std::string trimmed(std::string text) {
    while (!text.empty() && (text.back() == ' ' || text.back() == '\n'))
        text.pop_back();
    return text;
}

Texts wordsOf(const std::string& text) {
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), {}};
}

} // namespace

KsNNDBEntryBase someClip() {
    KsNNDBEntryBase base;
    base.projectName = "Film \"7\"";
    base.model = "small";
    base.clipName = "A001";
    base.audioTracks = "1,2";
    base.clientApp = "Editor";
    return base;
}

KsNNDBEntrySeg someSegment(const std::string& mediaGuid, int index, const std::string& text,
                           const std::string& label) {
    KsNNDBEntrySeg seg;
    seg.segment = index;
    seg.mediaGuid = mediaGuid;
    seg.projectGuid = "p";
    seg.transcript = text;
    seg.language = "fr";
    seg.speakerID = label;
    seg.speakerGuid = "not written";
    seg.projectGuidList = {"not", "written"};
    for (int start = 1000 * index;
         std::size_t(start) < 1000 * std::size_t(index) + 100 * wordsOf(text).size(); start += 100) {
        seg.wordStartsMS.push_back(start);
        seg.wordEndsMS.push_back(start + 90);
    }
    return seg;
}

KsNN_ErrorCode callOperation(KsNNDatabase& store, const std::string& call, std::string& output) {
    std::istringstream words(call);
    std::string name;
    words >> name;
    Texts arguments;
    for (std::string word; words >> std::quoted(word);) {
        if (word.starts_with("index="))
            KsNNDatabase::setTranscriptIndex(word.substr(6));
        else
            arguments.push_back(word);
    }
    Call operation(arguments);
    const KsNN_ErrorCode code = kOperations.at(name)(store, operation);
    output = trimmed(operation.output());
    return code;
}

void expectCall(KsNNDatabase& store, const std::string& call, const std::string& expected, bool inAnyOrder) {
    SCOPED_TRACE(call);
    store.SetErrorStr("KsNN Error: 1, of an earlier operation\n");
    std::string output;
    const KsNN_ErrorCode code = callOperation(store, call, output);
    const std::string report = trimmed(store.GetErrorStr());
    const std::string text = expected.size() > 2 ? expected.substr(2) : "";
    EXPECT_EQ(code, expected.at(0) - '0') << report;
    if (code != KsNN_Success && text != "silent") {
        EXPECT_THAT(report, testing::AllOf(testing::StartsWith("KsNN Error: "), testing::EndsWith(text)));
        return;
    }
    EXPECT_EQ(report, "");
    if (code != KsNN_Success) return;
    if (text.starts_with('(')) {
        EXPECT_EQ(wordsOf(output).size(), std::stoul(text.substr(1))) << output;
    } else if (inAnyOrder) {
        EXPECT_THAT(wordsOf(output), testing::UnorderedElementsAreArray(wordsOf(text)));
    } else {
        EXPECT_EQ(output, text);
    }
}

std::string expanded(std::string text, const std::map<std::string, std::string>& names) {
    static const std::regex kName("@[A-Za-z]+");
    std::string result;
    for (std::smatch match; std::regex_search(text, match, kName);) {
        const auto known = names.find(match.str());
        result += match.prefix();
        if (known == names.end()) {
            result += match.str();
            text = match.suffix();
        } else {
            text = known->second + match.suffix().str();
        }
    }
    return result + text;
}

std::vector<Block> readBlocks(const std::string& path) {
    std::ifstream file(path);
    Texts lines;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("  ")) {
            lines.back() += line.substr(1);
        } else if (!line.empty() && line[0] != '#') {
            lines.push_back(line);
        }
    }
    std::map<std::string, std::string> names;
    std::vector<Block> blocks;
    for (const std::string& line : lines) {
        const std::size_t equals = line.find(" = ");
        if (line[0] == '@' && equals < line.find(' ') + 1) {
            names[line.substr(0, equals)] = expanded(line.substr(equals + 3), names);
        } else if (line[0] == '[') {
            blocks.push_back({expanded(line.substr(1), names), {}});
        } else {
            blocks.back().lines.push_back(expanded(line, names));
        }
    }
    return blocks;
}

} // namespace kestrel_test
