#include "apps/kestrel/base/Timecode.h"
#include "apps/kestrel/forms/Forms.h"
#include "apps/kestrel/forms/XmlText.h"

namespace kestrel {

namespace {

void writeHead(XmlText& document, const std::string& title) {
    const XmlText::Element head(document, "head");
    {
        const XmlText::Element metadata(document, "metadata");
        const XmlText::Element name(document, "ttm:title");
        document.characters(title);
    }
    {
        const XmlText::Element styling(document, "styling");
        document.empty("style", {{"xml:id", "subtitle"},
                                 {"tts:fontFamily", "proportionalSansSerif"},
                                 {"tts:fontSize", "80%"},
                                 {"tts:lineHeight", "125%"},
                                 {"tts:textAlign", "center"},
                                 {"tts:color", "#FFFFFFFF"},
                                 {"tts:backgroundColor", "#000000C2"}});
    }
    const XmlText::Element layout(document, "layout");
    document.empty("region", {{"xml:id", "bottom"},
                              {"tts:origin", "10% 10%"},
                              {"tts:extent", "80% 80%"},
                              {"tts:displayAlign", "after"}});
}

} // namespace

Written writeTtml(const Selection& selection, const FormOptions& options) {
    const Subtitles subtitles = subtitlesOf(selection, options, SpeakerNames::InText);
    const std::string language = selection.items.empty() ? "" : selection.items.front().passage.language;
    XmlText document;
    {
        const XmlText::Element root(
            document, "tt",
            {{"xmlns", "http://www.w3.org/ns/ttml"},
             {"xmlns:ttm", "http://www.w3.org/ns/ttml#metadata"},
             {"xmlns:ttp", "http://www.w3.org/ns/ttml#parameter"},
             {"xmlns:tts", "http://www.w3.org/ns/ttml#styling"},
             {"ttp:contentProfiles", "http://www.w3.org/ns/ttml/profile/imsc1.1/text"},
             {"ttp:timeBase", "media"},
             {"xml:lang", language.empty() ? "und" : language}});
        writeHead(document, selection.title);
        const XmlText::Element body(document, "body", {{"region", "bottom"}, {"style", "subtitle"}});
        const XmlText::Element division(document, "div");
        for (const Cue& cue : subtitles.cues) {
            const XmlText::Element paragraph(
                document, "p", {{"begin", timecode(cue.startMs)}, {"end", timecode(cue.endMs)}});
            for (std::size_t i = 0; i < cue.lines.size(); ++i) {
                if (i > 0) document.empty("br");
                document.characters(cue.lines[i]);
            }
        }
    }
    return {document.finish(), readingWarning(subtitles, options.subtitles)};
}

} // namespace kestrel
