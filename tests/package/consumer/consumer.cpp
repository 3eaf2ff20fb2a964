// A host in miniature: one object of each class, no service running.

#include "kestrelml/align/KsNNAlignment.h"
#include "kestrelml/align/KsNNTextLines.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/stt/KsNNSpeechToTextCYTHON.h"
#include "kestrelml/stt/KsNNSpeechToTextREST.h"

int main() {
    KsNNDatabase store("https://127.0.0.1:1/", nullptr, nullptr, nullptr, false);
    if (store.testDefault(false) != KsNN_Exception || store.GetErrorStr().empty()) return 1;

    KsNNTextLines lines;
    lines.addLineUTF8("some text", 1, "en");
    KsNNAlignment alignment;
    if (store.Align(lines, lines, alignment, false) != KsNN_Success || alignment.size() != 1) return 2;

    const KsNNSpeechToTextREST service(0, 0, 0, "");
    const KsNNSpeechToTextCYTHON embedded(0, 0, 0, false, "", "");
    return service.getLanguage() == embedded.getLanguage() ? 0 : 3;
}
