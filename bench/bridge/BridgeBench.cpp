// What the embedded interpreter costs a host: the time until its first call is answered, and the memory of
// many transcriptions in one process.
//
//   kestrel_bridge_bench <model folder> <recording.wav> [transcriptions]

#include "kestrelml/stt/KsNNSpeechToTextCYTHON.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <numeric>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr std::size_t kWavHeader = 44;

double millisecondsSince(std::chrono::steady_clock::time_point begin) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
}

KsNNSpeechToTextCYTHON makeEngine(const std::string& modelDir) {
    return {0, 0, 0, false, modelDir, std::filesystem::temp_directory_path().string()};
}

void check(KsNN_ErrorCode code, const KsNNBase& engine) {
    if (code == KsNN_Success) return;
    std::cerr << "code " << code << ": " << engine.GetErrorStr();
    std::exit(1);
}

/// Time from nothing to an answer of the module, in a process of its own.
double startUpMilliseconds(const std::string& modelDir) {
    int channel[2];
    if (pipe(channel) != 0) std::exit(1);
    const pid_t child = fork();
    if (child == 0) {
        const auto begin = std::chrono::steady_clock::now();
        KsNNSpeechToTextCYTHON engine = makeEngine(modelDir);
        check(engine.SetModelDir(modelDir, false), engine);
        const double elapsed = millisecondsSince(begin);
        _exit(write(channel[1], &elapsed, sizeof elapsed) == sizeof elapsed ? 0 : 1);
    }
    double elapsed = 0;
    const bool answered = read(channel[0], &elapsed, sizeof elapsed) == sizeof elapsed;
    int status = 0;
    waitpid(child, &status, 0);
    close(channel[0]);
    close(channel[1]);
    if (!answered || status != 0) std::exit(1);
    return elapsed;
}

double residentMegabytes() {
    std::ifstream statm("/proc/self/statm");
    long total = 0;
    long resident = 0;
    statm >> total >> resident;
    return static_cast<double>(resident * sysconf(_SC_PAGESIZE)) / 1e6;
}

std::vector<std::int16_t> readRecording(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file.seekg(kWavHeader)) {
        std::cerr << "cannot read " << path << '\n';
        std::exit(1);
    }
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    std::vector<std::int16_t> samples(bytes.size() / sizeof(std::int16_t));
    bytes.copy(reinterpret_cast<char*>(samples.data()), samples.size() * sizeof(std::int16_t));
    return samples;
}

void transcribe(KsNNSpeechToTextCYTHON& engine, const std::vector<std::int16_t>& samples) {
    KsNNDB_STTClipEntry entry;
    check(engine.ProcessAudio(samples.data(), 0, samples.size(), "clip", "project", false), engine);
    check(engine.FinalizeTranscript(entry, samples.size(), "clip", "project", "", "en", false), engine);
}

/// Slope of the last three quarters: the first runs fill caches that stay.
double growthPerRun(const std::vector<double>& megabytes) {
    const std::size_t begin = megabytes.size() / 4;
    const auto count = static_cast<double>(megabytes.size() - begin);
    const double meanX = (count - 1) / 2;
    const double meanY =
        std::accumulate(megabytes.begin() + static_cast<std::ptrdiff_t>(begin), megabytes.end(), 0.0) / count;
    double covariance = 0;
    double variance = 0;
    for (std::size_t i = begin; i < megabytes.size(); ++i) {
        const double x = static_cast<double>(i - begin) - meanX;
        covariance += x * (megabytes[i] - meanY);
        variance += x * x;
    }
    return variance > 0 ? covariance / variance : 0;
}

} // namespace

int main(int count, char** arguments) {
    if (count < 3) {
        std::cerr << "usage: kestrel_bridge_bench <model folder> <recording.wav> [transcriptions]\n";
        return 2;
    }
    const std::string modelDir = arguments[1];
    std::vector<double> startUps(7);
    for (double& startUp : startUps)
        startUp = startUpMilliseconds(modelDir);
    std::printf("start-up: first %.0f ms, median of the others %.0f ms\n", startUps.front(), [&] {
        std::sort(startUps.begin() + 1, startUps.end());
        return startUps[4];
    }());

    const std::vector<std::int16_t> samples = readRecording(arguments[2]);
    const int runs = count > 3 ? std::atoi(arguments[3]) : 20;
    KsNNSpeechToTextCYTHON engine = makeEngine(modelDir);
    std::vector<double> megabytes;
    for (int run = 1; run <= runs; ++run) {
        const auto begin = std::chrono::steady_clock::now();
        transcribe(engine, samples);
        megabytes.push_back(residentMegabytes());
        std::printf("transcription %2d: %6.1f s, resident %7.1f MB\n", run, millisecondsSince(begin) / 1000,
                    megabytes.back());
        std::fflush(stdout);
    }
    std::printf("growth over the last %zu: %.3f MB a transcription\n",
                megabytes.size() - megabytes.size() / 4, growthPerRun(megabytes));
    return 0;
}
