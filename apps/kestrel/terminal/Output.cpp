#include "apps/kestrel/terminal/Output.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/base/Printable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace kestrel {

namespace {

bool isTerminal(int descriptor) {
    return ::isatty(descriptor) != 0;
}

/// Whether the terminal there understands more than text.
bool understandsCodes(int descriptor) {
    const char* kind = std::getenv("TERM");
    return isTerminal(descriptor) && kind != nullptr && std::string_view(kind) != "dumb";
}

/// See no-color.org.
bool isColorWanted() {
    const char* unwanted = std::getenv("NO_COLOR");
    return unwanted == nullptr || *unwanted == '\0';
}

/// Nothing is to be done about messages that cannot be written.
void say(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

} // namespace

void printResult(const std::string& text) {
    static const bool terminal = isTerminal(STDOUT_FILENO);
    const std::string shown = terminal ? printable(text) : text;
    if (std::fwrite(shown.data(), 1, shown.size(), stdout) == shown.size() && std::fflush(stdout) == 0)
        return;
    if (errno == EPIPE) throw OutputClosed("nobody reads the results");
    throw Failure(fmt::format("cannot write the results: {}", std::strerror(errno)));
}

void printResult(const Poco::JSON::Object::Ptr& document) {
    printResult(toText(document));
}

void tell(const std::string& message) {
    say(printable(message) + "\n");
}

std::string emphasised(const std::string& text) {
    static const bool isShown = understandsCodes(STDOUT_FILENO) && isColorWanted();
    return isShown ? kEmphasisOn + text + kEmphasisOff : text;
}

ProgressLine::ProgressLine(const std::string& title) : mTitle(printableName(title)) {
}

ProgressLine::~ProgressLine() {
    clear();
}

void ProgressLine::show(const std::string& stage, double fraction, const std::string& note) {
    static const bool inPlace = understandsCodes(STDERR_FILENO);
    const int step = inPlace ? 1 : 25;
    const int percent = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * 100) / step * step;
    if (stage == mStage && percent <= mPercent) return;
    mStage = stage;
    mPercent = percent;
    const std::string line =
        fmt::format("{}  {} {:3} %{}", mTitle, stage, percent, note.empty() ? "" : ", " + note);
    say(inPlace ? "\r\033[K" + line : line + "\n");
    mShown = inPlace;
}

void ProgressLine::done(const std::string& summary) {
    clear();
    tell(fmt::format("{}  {}", mTitle, summary));
}

void ProgressLine::clear() {
    if (std::exchange(mShown, false)) say("\r\033[K");
}

} // namespace kestrel
