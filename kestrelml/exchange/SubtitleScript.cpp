#include "kestrelml/exchange/TranscriptLayout.h"

namespace kestrelml::detail {
namespace {

/// The script that subtitling programs take.
class SubtitleScript : public TranscriptLayout {
public:
    KsNN_ErrorCode write(const DumpSource& source, std::ostream& out) const override {
        out << "@ Project: " << source.projectName << '\n';
        out << "@ Clip Name: " << source.entry.clipName << "\n\n";
        out << "<begin subtitles>\n\n";
        for (std::size_t i = 0; i < source.entry.segments.size(); ++i) {
            out << source.timecodes[i].start << " " << source.timecodes[i].end << '\n';
            out << source.entry.segments[i].transcript << "\n\n";
        }
        out << "<end subtitles>\n\n";
        return KsNN_Success;
    }
};

} // namespace

std::unique_ptr<TranscriptLayout> subtitleScript() {
    return std::make_unique<SubtitleScript>();
}

} // namespace kestrelml::detail
