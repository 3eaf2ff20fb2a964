// The exchange file's reader, on bytes as they are and on what could be inside.

#include "fuzz/text/Require.h"
#include "kestrelml/exchange/ClipAssembler.h"
#include "kestrelml/exchange/ExchangeDocuments.h"
#include "kestrelml/exchange/ExchangeReader.h"
#include "kestrelml/store/Schema.h"

#include <Poco/Exception.h>

#include <cstddef>
#include <cstdint>
#include <sstream>

using namespace kestrelml::detail;

namespace {

/// A store that reaches no service: its address cannot be parsed.
KsNNDatabase& store() {
    static KsNNDatabase instance("https://[", nullptr, nullptr, nullptr, false);
    return instance;
}

KsNN_ErrorCode checkClip(KsNNDB_STTClipEntry& clip) {
    std::ostringstream bulk;
    for (const KsNNDBEntrySeg& seg : clip.segments) {
        kestrel_fuzz::require(seg.segment >= 0, "segment's number");
        kestrel_fuzz::require(seg.wordStartsMS.size() == seg.wordEndsMS.size(), "times");
        kestrel_fuzz::require(!seg.projectGuidList.empty(), "projects");
        kestrel_fuzz::require(seg.mediaGuid == clip.segments.front().mediaGuid, "clip");
        appendBulkCreate(clip, seg, bulk);
    }
    std::size_t lines = 0;
    for (const char character : bulk.str())
        lines += character == '\n' ? 1U : 0U;
    kestrel_fuzz::require(lines == 2 * clip.segments.size(), "lines of the bulk request");
    return KsNN_Success;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const Operation operation(store(), "fuzz: ", false);
    const KnownProjects projects({{"P", "p"}, {"Q", "q"}}, {"Own", "o"});
    ClipAssembler assembler(operation, projects, checkClip);
    std::istringstream plain(bytes);
    std::istringstream encrypted(bytes);
    int pages = 0;
    try {
        readElements(plain, [&](const std::string& element) {
            return visitDocuments(element, ++pages,
                                  [&](const Object& document) { return assembler.add(document); });
        });
        assembler.finish();
    } catch (const Poco::Exception&) { // says what is wrong with the file
    }
    try {
        readExchange(encrypted, "pass phrase", [](const std::string&) { return KsNN_Success; });
    } catch (const Poco::Exception&) { // as above
    }
    return 0;
}
