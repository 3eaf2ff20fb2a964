#include "apps/kestrel/script/HtmlPage.h"

#include "apps/kestrel/base/Timecode.h"

#include <gmock/gmock.h>

namespace kestrel {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(HtmlPage, ShowsWhereLinesBeginAndWhichAreLost) {
    KsNNDB_STTClipEntry transcript;
    transcript.clipName = "a<b>.mov";
    KsNNDBEntrySeg segment;
    segment.transcript = "Well, the \"bridge\" is gone";
    segment.language = "en";
    segment.speakerID = "1";
    segment.wordStartsMS = {0, 500, 900, 1500, 1700};
    segment.wordEndsMS = {400, 800, 1400, 1600, 2000};
    transcript.segments = {segment};

    PlacedLine found{
        .script = {7, "ANNA", "The <bridge> is gone"}, .score = 0.9F, .startMs = 60'500, .word = "the"};
    found.wordIndex = 1;
    found.span = {6, 9};
    const PlacedLine lost{.script = {9, "", "Nobody saw it & left"}, .word = ""};
    const std::string page = alignmentPage("script.txt", {found, lost}, transcript, 60'000,
                                           {timecode, [](const auto&) { return "Anna & Co"; }});

    EXPECT_THAT(page, HasSubstr("a&lt;b&gt;.mov"));
    EXPECT_THAT(page, HasSubstr("1 of 2 script lines found"));
    EXPECT_THAT(page, HasSubstr("<a href=\"#word-0-1\">The &lt;bridge&gt; is gone</a>"));
    EXPECT_THAT(page, HasSubstr("<time>00:01:00.500</time>"));
    EXPECT_THAT(page,
                HasSubstr("id=\"word-0-1\" href=\"#line-0\" title=\"script line 7\">the</a> &quot;bridge"));
    EXPECT_THAT(page, HasSubstr("<span class=\"who\">Anna &amp; Co</span>"));
    EXPECT_THAT(page, HasSubstr("<li class=\"lost\" id=\"line-1\">"));
    EXPECT_THAT(page, HasSubstr("Nobody saw it &amp; left<br><strong>Not found"));
    EXPECT_THAT(page, Not(HasSubstr("http"))); // complete in itself
}

} // namespace
} // namespace kestrel
