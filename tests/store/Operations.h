#pragma once

#include "kestrelml/store/KsNNDatabase.h"

#include <map>

namespace kestrel_test {

/// The operations of the store by name, so that text files can list calls: `GetSegmentCount clip p 2` counts
/// the segments of "clip" in project "p". Arguments stand in the operation's own order, without outputs and
/// the debug flag; those left out at the end are empty or 0. `index=NAME` names the transcript index. Writes
/// the outputs to `output`, separated by spaces.
KsNN_ErrorCode callOperation(KsNNDatabase& store, const std::string& call, std::string& output);

/// Calls the operation and compares with "CODE TEXT": the output after code 0, else the end of the report, or
/// "silent" for no report. "(N)" stands for N words of output.
void expectCall(KsNNDatabase& store, const std::string& call, const std::string& expected,
                bool inAnyOrder = false);

/// What WriteToDB writes: a clip of project "p", and its segments of 100 ms a word from 1000 * index.
KsNNDBEntryBase someClip();
KsNNDBEntrySeg someSegment(const std::string& mediaGuid, int index,
                           const std::string& text = "Hé\tline\nбуква 😀", const std::string& label = "S0");

/// A text file of blocks: "[heading]" and the lines below it. Indented lines continue the line before,
/// "# ..." is a comment, "@name = text" lets @name stand for the text from there on.
struct Block {
    std::string heading; ///< What stands behind the "[", with the "]".
    std::vector<std::string> lines;
};
std::vector<Block> readBlocks(const std::string& path);

/// Texts for names; unknown names stay.
std::string expanded(std::string text, const std::map<std::string, std::string>& names);

} // namespace kestrel_test
