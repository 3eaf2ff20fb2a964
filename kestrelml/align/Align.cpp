#include "kestrelml/align/FlattenedText.h"
#include "kestrelml/align/KsNNAlignment.h"
#include "kestrelml/align/KsNNTextLines.h"
#include "kestrelml/align/LineAligner.h"
#include "kestrelml/core/Debug.h"
#include "kestrelml/core/Report.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <sstream>

using namespace kestrelml::detail;

namespace {

constexpr int kSchemaVersion = 2;
constexpr const char* kFailed = "KsNNDatabase::Align error: ";

char lowByte(char16_t unit) {
    return static_cast<char>(static_cast<unsigned char>(unit & 0xFF));
}

void printPositions(const FlattenedText& script, const FlattenedText& transcript,
                    const PositionMap& positions) {
    std::ostringstream out;
    for (std::int32_t x = 0; x < script.text().length(); ++x) {
        const std::int32_t y = positions(x);
        out << x << '\'' << lowByte(script.text()[x]) << "' --> " << y << '\'';
        if (y >= 0 && y < transcript.text().length()) out << lowByte(transcript.text()[y]);
        out << "'\n";
    }
    writeDebug(out.str());
}

void printResult(std::size_t count, const LineAligner::Result& result) {
    std::string script;
    std::string transcript;
    result.scriptExcerpt.toUTF8String(script);
    result.transcriptExcerpt.toUTF8String(transcript);
    debugLine(true, "Line: ", count, ", Score: ", result.item.score, ", ", script, " -> ", transcript);
}

KsNNTextLines linesOf(const KsNNDB_STTClipEntry& entry) {
    KsNNTextLines lines;
    int number = 0;
    for (const KsNNDBEntrySeg& segment : entry.segments) {
        lines.addLineUTF8(segment.transcript.c_str(), number++, segment.language.c_str());
    }
    return lines;
}

void fillStartTimes(const KsNNDB_STTClipEntry& entry, KsNNAlignment& alignment) {
    for (KsNNAlignmentItem& item : alignment) {
        const auto line = static_cast<std::size_t>(item.lineNumber);
        const auto word = static_cast<std::size_t>(item.wordIndex);
        if (line < entry.segments.size() && word < entry.segments[line].wordStartsMS.size()) {
            item.startMs = entry.segments[line].wordStartsMS[word];
        }
    }
}

} // namespace

KsNN_ErrorCode KsNNDatabase::Align(const KsNNTextLines& script, const KsNNTextLines& transcript,
                                   KsNNAlignment& alignment, bool debug) {
    ResetErrorStr();
    const FlattenedText a(script, mTransliterator);
    const FlattenedText b(transcript, mTransliterator);
    const LineAligner aligner(a, b, mTransliterator);
    if (debug) printPositions(a, b, aligner.positions());

    alignment.clear();
    for (std::size_t i = 0; i < a.lines().size(); ++i) {
        if (b.words().empty()) {
            alignment.emplace_back(0, 0, 0.0F, 0);
            continue;
        }
        const LineAligner::Result result = aligner.align(i);
        alignment.push_back(result.item);
        if (debug) printResult(alignment.size(), result);
    }
    return KsNN_Success;
}

KsNN_ErrorCode KsNNDatabase::Align(const KsNNTextLines& script, const KsNNDB_STTClipEntry& entry,
                                   KsNNAlignment& alignment, bool debug) {
    const bool aligned = Align(script, linesOf(entry), alignment, debug) == KsNN_Success;
    if (!aligned || alignment.size() != script.size()) return fail(this, kFailed, debug);
    fillStartTimes(entry, alignment);
    return KsNN_Success;
}

KsNN_ErrorCode KsNNDatabase::Align(const KsNNTextLines& script, const std::string& mediaGuid,
                                   const std::string& projectGuid, KsNNAlignment& alignment, bool debug) {
    alignment.clear();
    bool complete = false;
    KsNNDB_STTClipEntry entry;
    if (GetProgressComplete(mediaGuid, projectGuid, complete, false, kSchemaVersion) != KsNN_Success ||
        GetDBContents(mediaGuid, projectGuid, entry, debug, kSchemaVersion) != KsNN_Success) {
        return fail(this, kFailed, debug);
    }
    return Align(script, entry, alignment, debug);
}

KsNN_ErrorCode KsNNDatabase::AlignRange(const KsNNTextLines& script, const std::string& mediaGuid,
                                        const std::string& projectGuid, int startMS, int endMS,
                                        KsNNAlignment& alignment, bool debug) {
    alignment.clear();
    bool complete = false;
    KsNNDB_STTClipEntry entry;
    if (GetProgressComplete(mediaGuid, projectGuid, complete, false, kSchemaVersion) != KsNN_Success ||
        GetDBContentsRange(mediaGuid, projectGuid, startMS, endMS, entry, debug) != KsNN_Success) {
        return fail(this, kFailed, debug);
    }
    return Align(script, entry, alignment, debug);
}
