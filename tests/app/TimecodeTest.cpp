#include "apps/kestrel/base/Timecode.h"

#include "apps/kestrel/base/Failure.h"

#include <gtest/gtest.h>

namespace kestrel {
namespace {

TEST(Timecode, HasHoursMinutesSecondsAndMilliseconds) {
    EXPECT_EQ(timecode(0), "00:00:00.000");
    EXPECT_EQ(timecode(3'723'456), "01:02:03.456");
    EXPECT_EQ(timecode(359'999'999), "99:59:59.999");
}

TEST(Timecode, IsReadInEveryFormPeopleWrite) {
    EXPECT_EQ(parseTimecode("90"), 90'000);
    EXPECT_EQ(parseTimecode("90.5"), 90'500);
    EXPECT_EQ(parseTimecode("1:30"), 90'000);
    EXPECT_EQ(parseTimecode("1:02:03,45"), 3'723'450);
    for (const std::int32_t time : {0, 999, 61'001, 86'400'000})
        EXPECT_EQ(parseTimecode(timecode(time)), time);
}

TEST(Timecode, RefusesWhatIsNone) {
    for (const char* text : {"", "abc", "1:2:3:4", "-5", "1.2345", "::", "9999:00:00", "1e3"})
        EXPECT_THROW(parseTimecode(text), UsageError) << text;
}

TEST(Range, HasAStartAndAnEnd) {
    EXPECT_EQ(parseRange("1:30-2:45"), std::pair(90'000, 165'000));
    EXPECT_EQ(parseRange("5-5"), std::pair(5'000, 5'000));
    for (const char* text : {"5", "5-", "-5", "6-5"})
        EXPECT_THROW(parseRange(text), UsageError) << text;
}

} // namespace
} // namespace kestrel
