#include "apps/kestrel/script/Script.h"

#include <gmock/gmock.h>

namespace kestrel {

bool operator==(const ScriptLine& left, const ScriptLine& right) {
    return left.number == right.number && left.character == right.character && left.text == right.text;
}

void PrintTo(const ScriptLine& line, std::ostream* out) {
    *out << line.number << " [" << line.character << "] " << line.text;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(Script, PlainTextIsALineALine) {
    EXPECT_THAT(readScript("Hello there.\r\n\r\n  How are you?\n", ScriptFormat::Auto),
                ElementsAre(ScriptLine{1, "", "Hello there."}, ScriptLine{3, "", "How are you?"}));
}

TEST(Script, PlainTextNamesItsSpeakersBeforeAColon) {
    EXPECT_THAT(readScript("ANNA: Hello.\nÉLODIE: Bonjour.\nNote: three\n", ScriptFormat::Auto),
                ElementsAre(ScriptLine{1, "ANNA", "Hello."}, ScriptLine{2, "ÉLODIE", "Bonjour."},
                            ScriptLine{3, "", "Note: three"}));
}

TEST(Script, FountainGivesItsDialogueOnly) {
    const char* const text = "Title: The River\n"
                             "Author: Somebody\n"
                             "\n"
                             "INT. KITCHEN - DAY\n"
                             "\n"
                             "Anna enters. /* cut\n"
                             "this */\n"
                             "\n"
                             "ANNA (V.O.)\n"
                             "(whispering)\n"
                             "Is it *really* you?\n"
                             "It is late. [[check]]\n"
                             "\n"
                             "She waits.\n"
                             "\n"
                             "@McAvoy\n"
                             "~Sing to me\n"
                             "\n"
                             "BEN ^\n"
                             "No.\n"
                             "\n"
                             "CUT TO:\n"
                             "\n"
                             "> THE END <\n";
    EXPECT_THAT(readScript(text, ScriptFormat::Auto),
                ElementsAre(ScriptLine{11, "ANNA", "Is it really you?"},
                            ScriptLine{12, "ANNA", "It is late."}, ScriptLine{17, "McAvoy", "Sing to me"},
                            ScriptLine{20, "BEN", "No."}));
}

TEST(Script, ScreenplayPagesKeepTheirIndentedLines) {
    const char* const text = "                    ANNA\n"
                             "          The bridge is gone,\n"
                             "          and nobody saw it.\n"
                             "                                     12.\n"
                             "\n"
                             "Ben turns.\n"
                             "\n"
                             "                    BEN (CONT'D)\n"
                             "              (to nobody\n"
                             "              in particular)\n"
                             "          I did.\n";
    EXPECT_THAT(readScript(text, ScriptFormat::Auto),
                ElementsAre(ScriptLine{2, "ANNA", "The bridge is gone,"},
                            ScriptLine{3, "ANNA", "and nobody saw it."}, ScriptLine{11, "BEN", "I did."}));
}

TEST(Script, TheFormatCanBeForced) {
    const char* const text = "ANNA\nHello.\n";
    EXPECT_THAT(readScript(text, ScriptFormat::Screenplay), ElementsAre(ScriptLine{2, "ANNA", "Hello."}));
    EXPECT_THAT(readScript(text, ScriptFormat::Plain),
                ElementsAre(ScriptLine{1, "", "ANNA"}, ScriptLine{2, "", "Hello."}));
    EXPECT_THAT(readScript("", ScriptFormat::Auto), IsEmpty());
    EXPECT_THAT(readScript("/* never closed", ScriptFormat::Screenplay), IsEmpty());
}

} // namespace
} // namespace kestrel
