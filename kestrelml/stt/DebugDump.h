#pragma once

/// @file
/// Files for whoever looks into a transcription gone wrong. They go to the folder $KESTREL_DEBUG_DIR; while
/// it is unset, nothing is written. A dump that cannot be written never fails the operation.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kestrelml::stt {

/// Writes the samples as raw 16-bit values to a new numbered file, "KsNNAudio-<process>-<number>.raw".
void dumpAudio(const std::int16_t* samples, std::size_t numSamples);

void dumpText(const std::string& fileName, std::string_view text);

} // namespace kestrelml::stt
