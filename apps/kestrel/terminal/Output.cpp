#include "apps/kestrel/terminal/Output.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>
#include <utility>

namespace kestrel {

void printResult(const std::string& text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
        throw Failure(fmt::format("cannot write the results: {}", std::strerror(errno)));
}

void printResult(const Poco::JSON::Object::Ptr& document) {
    printResult(toText(document));
}

void tell(const std::string& message) {
    fmt::print(stderr, "{}\n", message);
}

std::string emphasised(const std::string& text) {
    static const bool terminal = ::isatty(STDOUT_FILENO) != 0;
    return terminal ? "\033[1m" + text + "\033[0m" : "**" + text + "**";
}

ProgressLine::ProgressLine(std::string title) : mTitle(std::move(title)) {
}

ProgressLine::~ProgressLine() {
    clear();
}

void ProgressLine::show(const std::string& stage, double fraction) {
    static const bool terminal = ::isatty(STDERR_FILENO) != 0;
    const int step = terminal ? 1 : 25;
    const int percent = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * 100) / step * step;
    if (stage == mStage && percent <= mPercent) return;
    mStage = stage;
    mPercent = percent;
    if (terminal) {
        fmt::print(stderr, "\r\033[K{}  {} {:3} %", mTitle, stage, percent);
        mShown = true;
    } else {
        fmt::print(stderr, "{}  {} {:3} %\n", mTitle, stage, percent);
    }
    std::fflush(stderr);
}

void ProgressLine::done(const std::string& summary) {
    clear();
    fmt::print(stderr, "{}  {}\n", mTitle, summary);
}

void ProgressLine::clear() {
    if (std::exchange(mShown, false)) fmt::print(stderr, "\r\033[K");
}

} // namespace kestrel
