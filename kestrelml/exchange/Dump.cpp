#include "kestrelml/exchange/TranscriptLayout.h"
#include "kestrelml/platform/Paths.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"

#include <cerrno>
#include <fstream>
#include <system_error>

using namespace kestrelml::detail;

namespace {

/// Null when there is no such layout: hosts give any number.
TranscriptLayout layoutOf(KsNNFileExportType type) {
    switch (type) {
    case KsNNExportStatusLine:
        return writeCheckListing;
    case KsNNExportText:
        return writeReadableScript;
    case KsNNExportSubtitles:
        return writeSubtitleScript;
    }
    return nullptr;
}

} // namespace

KsNN_ErrorCode KsNNDatabase::DumpDBContentsToFile(KsNNDB_STTClipEntry& entry, std::string& path,
                                                  KsNNFileExportType layout, std::vector<KsNNTC>& timecodes,
                                                  bool debug, std::string projectName) {
    const Operation operation(*this, "KsNNDatabase::DumpDBContentsToFile err: ", debug);
    if (timecodes.size() != entry.segments.size()) return operation.fail();
    std::ofstream file(kestrelml::platform::pathFromUtf8(path), std::ios::binary | std::ios::trunc);
    if (!file.is_open()) return operation.fail();
    const TranscriptLayout write = layoutOf(layout);
    if (!write) return operation.fail();

    const auto nameSpeaker = [&](const KsNNDBEntrySeg& seg, std::string& label) {
        if (seg.speakerGuid.empty() || seg.speakerGuid == "Unk") return KsNN_Success;
        return GetSpeakerName(seg.speakerGuid, label, debug) == KsNN_Success ? KsNN_Success
                                                                             : operation.fail();
    };
    const auto normalWords = [&](const KsNNDBEntrySeg& seg) {
        std::vector<icu::UnicodeString> words;
        getNormalizedWords(icu::UnicodeString::fromUTF8(seg.transcript), seg.language, words);
        std::vector<std::string> texts(words.size());
        for (std::size_t i = 0; i < words.size(); ++i)
            words[i].toUTF8String(texts[i]);
        return texts;
    };
    const std::string& project = projectName.empty() ? entry.projectName : projectName;
    errno = 0;
    const KsNN_ErrorCode code = write({entry, project, timecodes, nameSpeaker, normalWords, debug}, file);
    file.flush();
    if (code == KsNN_Success && !file.good())
        return operation.failSaying(std::generic_category().message(errno == 0 ? EIO : errno));
    return code;
}
