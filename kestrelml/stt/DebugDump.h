#pragma once

/// @file
/// Files for investigating a transcription that went wrong, written where an operation's debug flag asks for
/// them: to the folder $KESTREL_DEBUG_DIR when it is set, else to a folder of the user in the system's
/// temporary folder that nobody else can read. A dump that cannot be written is mentioned in the debug text
/// and changes no result.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kestrelml::stt {

/// Writes the samples as raw 16-bit values to a new numbered file, "KsNNAudio-<process>-<number>.raw".
void dumpAudio(const std::int16_t* samples, std::size_t numSamples) noexcept;

/// Writes the bytes to the named file, in place of what it held.
void dumpFile(const std::string& name, std::string_view bytes) noexcept;

} // namespace kestrelml::stt
