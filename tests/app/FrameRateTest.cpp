// Time codes and frame rates.

#include "apps/kestrel/media/FrameRate.h"

#include "apps/kestrel/base/Failure.h"

#include <gmock/gmock.h>

#include <tuple>

namespace kestrel {
namespace {

TEST(FrameRate, IsReadAsAnExactFraction) {
    const std::tuple<const char*, std::int64_t, std::int64_t, std::int64_t> cases[] = {
        {"23.976", 24000, 1001, 24},  {"23.98", 24000, 1001, 24},      {"24", 24, 1, 24},   {"25", 25, 1, 25},
        {"29.97df", 30000, 1001, 30}, {"30000/1001", 30000, 1001, 30}, {"30", 30, 1, 30},   {"50", 50, 1, 50},
        {"59.94", 60000, 1001, 60},   {"119.88", 120000, 1001, 120},   {"12.5", 25, 2, 13},
    };
    for (const auto& [text, frames, seconds, nominal] : cases) {
        const FrameRate rate = parseFrameRate(text);
        EXPECT_EQ(std::tuple(rate.frames, rate.seconds, rate.nominal()), std::tuple(frames, seconds, nominal))
            << text;
    }
    for (const char* text : {"", "0", "fast", "25df", "-25", "25/0", "1e3", "99999"})
        EXPECT_THROW(parseFrameRate(text), UsageError) << text;
}

/// Counts as SMPTE 12M says, label after label.
class Counter {
public:
    explicit Counter(const FrameRate& rate) : mRate(rate), mNominal(rate.nominal()) {}
    std::string label() const {
        char text[16];
        std::snprintf(text, sizeof text, "%02d:%02d:%02d%c%02d", mSecond / 3600 % 24, mSecond / 60 % 60,
                      mSecond % 60, mRate.dropFrame ? ';' : ':', mFrame);
        return text;
    }
    void next() {
        if (++mFrame < mNominal) return;
        mFrame = 0;
        ++mSecond;
        if (mRate.dropFrame && mSecond % 60 == 0 && mSecond / 60 % 10 != 0)
            mFrame = static_cast<int>(mNominal / 15);
    }

private:
    const FrameRate& mRate;
    std::int64_t mNominal;
    int mSecond = 0;
    int mFrame = 0;
};

TEST(Timecode, CountsLabelByLabelAndBackAndWrapsAtMidnight) {
    for (const char* name : {"24", "29.97", "29.97df", "59.94df"}) {
        const FrameRate rate = parseFrameRate(name);
        Counter counter(rate);
        std::int64_t frame = 0;
        for (; frame < rate.nominal() * 60 * 61; ++frame, counter.next()) {
            ASSERT_EQ(timecodeOf(frame, rate), counter.label()) << name << ' ' << frame;
            ASSERT_EQ(frameOfTimecode(counter.label(), rate), frame) << name;
        }
        const std::int64_t day = frameOfTimecode("23:59:59:23", rate) + rate.nominal() - 23;
        EXPECT_EQ(timecodeOf(day, rate), timecodeOf(0, rate));
        EXPECT_EQ(timecodeOf(-1, rate).substr(0, 8), "23:59:59");
    }
}

TEST(Timecode, RefusesLabelsThatDoNotExist) {
    const FrameRate drop = parseFrameRate("29.97df");
    for (const char* text :
         {"00:01:00;00", "00:01:00;01", "00:00:00;30", "24:00:00;00", "00:60:00;00", "1:2:3"})
        EXPECT_THROW(frameOfTimecode(text, drop), UsageError) << text;
    EXPECT_EQ(frameOfTimecode("00:10:00;00", drop), 17982);
    EXPECT_EQ(frameOfTimecode("01:00:00:02", drop), 107894);
}

TEST(FrameRate, FramesOfTimesAreExactForAYear) {
    for (const char* name : {"23.976", "25", "29.97df", "59.94"}) {
        const FrameRate rate = parseFrameRate(name);
        for (const std::int64_t frame :
             {std::int64_t{0}, std::int64_t{1}, std::int64_t{1'000'003}, std::int64_t{1'900'000'001}}) {
            // A frame begins at frame * 1000 * seconds / frames milliseconds.
            const std::int64_t begin = (frame * 1000 * rate.seconds + rate.frames - 1) / rate.frames;
            EXPECT_EQ(rate.frameAt(begin), frame) << name;
            EXPECT_EQ(rate.frameFrom(begin - 1), begin > 0 ? frame : 0) << name;
            EXPECT_LE(std::abs(rate.millisecondsAt(frame) - begin), 1) << name;
        }
    }
}

} // namespace
} // namespace kestrel
