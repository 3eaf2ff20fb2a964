#include "kestrelml/core/Debug.h"
#include "kestrelml/exchange/TranscriptLayout.h"

#include <algorithm>
#include <sstream>

namespace kestrelml::detail {
namespace {

void writeLine(const DumpSource& source, std::ostream& out, const std::string& line) {
    out << line << '\n';
    debugLine(source.debug, line);
}

void writeSegment(const DumpSource& source, std::ostream& out, const KsNNDBEntrySeg& seg) {
    std::ostringstream header;
    header << "[" << seg.segment << ", " << seg.mediaGuid << ", " << seg.projectGuid << ", " << seg.language
           << ", speakerID " << seg.speakerID << "]";
    writeLine(source, out, header.str());
    const std::vector<std::string> words = source.normalWords(seg);
    const std::size_t starts = seg.wordStartsMS.size();
    const std::size_t ends = seg.wordEndsMS.size();
    if (starts != words.size() || words.size() != ends) {
        out << "*** Word Count Mismatch *** wordTot=" << starts << " wordTot2= " << words.size()
            << " i.wordEndsMS.size()=" << ends << '\n';
    }
    for (std::size_t i = 0; i < std::min({starts, words.size(), ends}); ++i) {
        std::ostringstream line;
        line << '\t' << seg.wordStartsMS[i] << "-" << seg.wordEndsMS[i] << " " << words[i];
        writeLine(source, out, line.str());
    }
}

} // namespace

KsNN_ErrorCode writeCheckListing(const DumpSource& source, std::ostream& out) {
    const KsNNDB_STTClipEntry& entry = source.entry;
    std::ostringstream summary;
    summary << "[" << source.projectName << ", " << entry.model << ", " << entry.clipName << ", "
            << entry.audioTracks << ", " << (entry.progressComplete ? "complete, " : "incomplete, ")
            << entry.clientApp << "]";
    writeLine(source, out, summary.str());
    if (const auto code = writeSpeakerBlocks(source, out)) return code;
    for (const KsNNDBEntrySeg& seg : entry.segments)
        writeSegment(source, out, seg);
    return KsNN_Success;
}

} // namespace kestrelml::detail
