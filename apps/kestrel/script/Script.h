#pragma once

#include <string>
#include <vector>

namespace kestrel {

/// One spoken line of a script.
struct ScriptLine {
    int number = 0;        ///< Line of the file, from 1.
    std::string character; ///< Who speaks it; empty when the script does not say.
    std::string text;
};

enum class ScriptFormat { Auto, Plain, Screenplay };

/// The spoken lines of a script.
///
/// Plain text: every line that is not empty; "NAME: words" gives the character. Screenplay: Fountain, or a
/// screenplay as text; the lines under each character's name, without parentheticals, notes and stage
/// directions. `Auto` takes a text for a screenplay when it starts with a scene heading, or has names above
/// spoken lines at least twice.
std::vector<ScriptLine> readScript(const std::string& text, ScriptFormat format);

} // namespace kestrel
