#include "kestrelml/store/SelfTest.h"

#include "kestrelml/align/KsNNAlignment.h"
#include "kestrelml/align/KsNNTextLines.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <cmath>

namespace kestrelml::detail {

bool alignsAsExpected(KsNNDatabase& store) {
    constexpr float kTolerance = 0.001F;
    KsNNTextLines script;
    KsNNTextLines transcript;
    script.addLineUTF8("some text", 1, "en");
    transcript.addLineUTF8("some other text", 1, "en");
    KsNNAlignment alignment;
    if (store.Align(script, transcript, alignment, false) != KsNN_Success || alignment.size() != 1)
        return false;
    const KsNNAlignmentItem& item = alignment.front();
    return item.lineNumber == 1 && item.wordIndex == 0 && std::fabs(item.score - 0.7F) <= kTolerance;
}

} // namespace kestrelml::detail
