// Times the text functions on given files and prints JSON. bench_text.py and bench_quality.py drive it.

#include "kestrelml/align/FlattenedText.h"
#include "kestrelml/align/LineAligner.h"
#include "kestrelml/text/PhraseMatcher.h"
#include "kestrelml/text/TextNormaliser.h"
#include "kestrelml/text/matching/SequenceMatcher.h"
#include "oracles/Oracles.h"

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace {

using namespace kestrelml::detail;
using Arguments = std::vector<std::string>;
using Poco::JSON::Object;

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

icu::UnicodeString readText(const std::string& path) {
    return icu::UnicodeString::fromUTF8(readFile(path));
}

KsNNTextLines readLines(const std::string& path) {
    std::istringstream text(readFile(path));
    KsNNTextLines lines;
    for (std::string line; std::getline(text, line);) {
        lines.addLineUTF8(line.c_str(), static_cast<int>(lines.size()), "en");
    }
    return lines;
}

/// Time that this thread has computed, so that a busy machine does not count against it.
double computedMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

/// The shortest time of a call in microseconds, of as many as half a second allows. Short calls are timed
/// together, as reading the clock takes time, too.
template <typename Call>
double shortestTime(Call call) {
    const auto timeOf = [&](int calls) {
        const double start = computedMicroseconds();
        for (int i = 0; i < calls; ++i)
            call();
        return (computedMicroseconds() - start) / calls;
    };
    const int calls = 1 + static_cast<int>(100 / std::max(timeOf(1), 0.01));
    double shortest = timeOf(calls);
    const double end = computedMicroseconds() + 500'000;
    while (computedMicroseconds() < end)
        shortest = std::min(shortest, timeOf(calls));
    return shortest;
}

/// The most memory that the process has had, in KiB.
long peakMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) return std::stol(line.substr(6));
    }
    throw std::runtime_error("the system does not tell its peak memory");
}

/// sequence A B [plain]
Object timeSequence(const Arguments& arguments) {
    const icu::UnicodeString a = readText(arguments.at(0));
    const icu::UnicodeString b = readText(arguments.at(1));
    const bool plain = arguments.size() > 2;
    std::vector<MatchingBlock> blocks;
    const long before = peakMemory();
    const double time = shortestTime([&] {
        blocks = plain ? kestrel_test::plainMatchingBlocks(viewOf(a), viewOf(b))
                       : findMatchingBlocks(viewOf(a), viewOf(b));
    });
    std::uint64_t digest = 0; // enough to see that two methods found the same
    for (const MatchingBlock& block : blocks) {
        for (const std::int32_t number : {block.a, block.b, block.size}) {
            digest = (digest * 1000003 + static_cast<std::uint64_t>(number)) % 2147483647;
        }
    }
    Object result;
    result.set("us", time);
    result.set("KiB", peakMemory() - before);
    result.set("blocks", blocks.size());
    result.set("digest", digest);
    return result;
}

/// normal TEXT
Object timeNormalForm(const Arguments& arguments) {
    const std::unique_ptr<icu::Transliterator> transliterator(createSearchTransliterator());
    const icu::UnicodeString text = readText(arguments.at(0));
    icu::UnicodeString ours;
    icu::UnicodeString icus;
    Object result;
    result.set("us", shortestTime([&] { normalizeForSearch(transliterator.get(), ours = text); }));
    result.set("icu us", shortestTime([&] { transliterator->transliterate(icus = text); }));
    result.set("same", ours == trimSpaces(icus));
    return result;
}

/// phrase PHRASE TEXT THRESHOLD
Object timePhrase(const Arguments& arguments) {
    const std::unique_ptr<icu::Transliterator> transliterator(createSearchTransliterator());
    const icu::UnicodeString phrase = readText(arguments.at(0));
    const icu::UnicodeString text = readText(arguments.at(1));
    const float threshold = std::stof(arguments.at(2));
    const auto prepare = [&] { return PhraseMatcher(transliterator.get(), phrase, "en"); };
    const PhraseMatcher matcher = prepare();
    std::vector<PhraseMatch> ours;
    std::vector<PhraseMatch> plain;
    Object result;
    result.set("prepare us", shortestTime(prepare));
    result.set("us", shortestTime([&] { ours = matcher.findIn(text, threshold); }));
    result.set("plain us", shortestTime([&] {
                   plain = kestrel_test::plainPhraseMatches(*transliterator, phrase, text, "en", threshold);
               }));
    result.set("same", ours == plain);
    return result;
}

/// align SCRIPT TRANSCRIPT, one line a line
Object timeAlignment(const Arguments& arguments) {
    const std::unique_ptr<icu::Transliterator> transliterator(createSearchTransliterator());
    const KsNNTextLines script = readLines(arguments.at(0));
    const KsNNTextLines transcript = readLines(arguments.at(1));
    std::vector<KsNNAlignmentItem> items;
    const auto align = [&] {
        items.clear();
        const FlattenedText a(script, transliterator.get());
        const FlattenedText b(transcript, transliterator.get());
        const LineAligner aligner(a, b, transliterator.get());
        for (std::size_t i = 0; i < a.lines().size(); ++i)
            items.push_back(aligner.align(i).item);
    };
    Object result;
    result.set("us", shortestTime(align));
    Poco::JSON::Array rows;
    for (const KsNNAlignmentItem& item : items) {
        Poco::JSON::Array row;
        row.add(item.lineNumber);
        row.add(item.wordIndex);
        row.add(item.score);
        rows.add(row);
    }
    result.set("items", rows);
    return result;
}

Object run(const std::string& command, const Arguments& arguments) {
    if (command == "sequence") return timeSequence(arguments);
    if (command == "normal") return timeNormalForm(arguments);
    if (command == "phrase") return timePhrase(arguments);
    if (command == "align") return timeAlignment(arguments);
    throw std::runtime_error("no such command: " + command);
}

} // namespace

int main(int argc, char** argv) {
    try {
        const Arguments arguments(argv + 1, argv + argc);
        run(arguments.at(0), {arguments.begin() + 1, arguments.end()}).stringify(std::cout);
    } catch (const std::exception& error) {
        std::cerr << "kestrel_text_bench: " << error.what() << '\n';
        return 1;
    }
}
