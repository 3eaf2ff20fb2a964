#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Printable.h"
#include "apps/kestrel/script/Encoding.h"
#include "apps/kestrel/terminal/Interrupt.h"
#include "apps/kestrel/terminal/TimeLeft.h"

#include <gmock/gmock.h>

#include <array>
#include <csignal>
#include <unistd.h>

namespace kestrel {
namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

TEST(Printable, KeepsTextAndShowsWhatATerminalWouldObey) {
    EXPECT_EQ(printable("Ärger\tin 東京\n"), "Ärger\tin 東京\n");
    EXPECT_EQ(printable("a\033[2Jb\r\x7f\xc2\x9b"), "a\\x1b[2Jb\\x0d\\x7f\\x9b");
    EXPECT_EQ(printable("old \033[1mbridge\033[0m\033[31m"), "old \033[1mbridge\033[0m\\x1b[31m");
    EXPECT_EQ(printable("caf\xe9"), "caf\uFFFD");
    EXPECT_EQ(printableName("two\nlines\033[1m"), "two\\x0alines\\x1b[1m");
    EXPECT_TRUE(isUtf8("é\uFFFD"));
    EXPECT_FALSE(isUtf8("\xc3("));
}

/// Waits, as for a pipe that nobody writes to or a mount that does not answer.
void waitForEver() {
    std::array<int, 2> ends{};
    char byte = 0;
    if (::pipe(ends.data()) == 0) std::ignore = ::read(ends[0], &byte, 1);
}

TEST(Interrupts, EndWhatDoesNotLookAtThem) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    for (const int signal : {SIGINT, SIGTERM}) {
        EXPECT_EXIT(
            {
                catchInterrupts();
                ::kill(::getpid(), signal);
                waitForEver();
            },
            testing::ExitedWithCode(ExitCancelled), "cancelled");
    }
}

TEST(TimeLeft, IsJudgedBySizeOfWhatWasWorkedOn) {
    using std::chrono::seconds;
    const TimeLeft::Clock::time_point start{};
    TimeLeft left(700);
    left.begin(100, start);
    EXPECT_EQ(left.note(0.5, start + seconds(2)), ""); // too early
    EXPECT_EQ(left.note(0.5, start + seconds(10)), "about 2 min left");
    left.end(true, start + seconds(20));
    left.begin(300, start + seconds(20));
    left.end(false, start + seconds(21)); // was complete already
    left.begin(100, start + seconds(21));
    EXPECT_EQ(left.note(0.0, start + seconds(21)), "about 1 min left");
    EXPECT_EQ(durationText(seconds(59)), "59 s");
    EXPECT_EQ(durationText(seconds(3600 * 2 + 300)), "2 h 05 min");
}

struct Encoded {
    std::string bytes;
    std::string text;

    friend void PrintTo(const Encoded& encoded, std::ostream* out) {
        *out << testing::PrintToString(encoded.bytes);
    }
};

class DecodedScript : public testing::TestWithParam<Encoded> {};

TEST_P(DecodedScript, IsReadAsUtf8) {
    EXPECT_EQ(decodeText(GetParam().bytes).text, GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Encodings, DecodedScript,
                         testing::Values(Encoded{"\uFEFFANNA: d\u00e9j\u00e0 vu", "ANNA: d\u00e9j\u00e0 vu"},
                                         Encoded{"ANNA: d\xe9j\xe0 vu, tr\xe8s \xe2g\xe9",
                                                 "ANNA: déjà vu, très âgé"},
                                         Encoded{"\x93Yes\x94, she said \x96 no", "“Yes”, she said – no"},
                                         Encoded{std::string("\xff\xfeO\0k\0!\0", 8), "Ok!"},
                                         Encoded{std::string("\xfe\xff\0O\0k\0!", 8), "Ok!"}));

TEST(Encoding, WhatIsNoTextIsRefused) {
    EXPECT_THAT([] { decodeText(std::string("%PDF-1.7\0\1\0\2 text \0\0\0", 21)); },
                ThrowsMessage<Failure>(HasSubstr("is not text")));
}

} // namespace
} // namespace kestrel
