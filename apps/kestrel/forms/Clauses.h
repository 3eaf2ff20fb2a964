#pragma once

#include "apps/kestrel/forms/Passage.h"

#include <string>

namespace kestrel {

/// How well a text can be broken after a word; lower is better.
enum class BreakQuality {
    Sentence,
    Clause,     ///< A comma, a dash, a closing bracket.
    BeforeLink, ///< The next word begins a clause, as "and", "weil" or "que" do.
    Anywhere,
    AfterOpener, ///< The word belongs to what follows: an article, a preposition.
};

/// @param language Code of the language; one without a list of its own is broken at punctuation only.
BreakQuality breakQuality(const std::string& word, const std::string& next, const std::string& language);

} // namespace kestrel
