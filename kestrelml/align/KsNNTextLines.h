#pragma once

/// @file
/// The lines of a script or of a transcript.

#include "kestrelml/core/Export.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Ordered list of text lines, each with a number that the caller chooses and a language. Copyable.
class KSNN_API KsNNTextLines {
public:
    /// Appends a line. Both strings are copied up to their NUL; two lines may carry the same number.
    void addLineUTF8(const char* text, int lineNumber, const char* language);
    /// Returns the text of line `index` and writes its number and language.
    /// The pointers stay valid until the list changes.
    /// @throws std::out_of_range when `index` is not below `size()`.
    const char* getLineUTF8(std::size_t index, int& lineNumber, const char** language) const;
    std::size_t size() const;

private:
    struct Line {
        std::string language;
        std::int32_t lineNumber;
        std::string text;
    };
    std::vector<Line> mLines;
};
