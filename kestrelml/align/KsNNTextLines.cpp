#include "kestrelml/align/KsNNTextLines.h"

#include <stdexcept>

void KsNNTextLines::addLineUTF8(const char* text, int lineNumber, const char* language) {
    mLines.push_back({language, lineNumber, text});
}

const char* KsNNTextLines::getLineUTF8(std::size_t index, int& lineNumber, const char** language) const {
    if (index >= mLines.size()) throw std::out_of_range("invalid vector subscript");
    const Line& line = mLines[index];
    lineNumber = line.lineNumber;
    *language = line.language.c_str();
    return line.text.c_str();
}

std::size_t KsNNTextLines::size() const {
    return mLines.size();
}
