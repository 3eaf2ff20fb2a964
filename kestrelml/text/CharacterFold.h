#pragma once

#include <string>
#include <string_view>

namespace kestrelml::detail {

/// Appends the search normal form of `text` to `normal` if each of its UTF-16 units can be mapped by itself.
///
/// Returns false, leaving `normal` unchanged, for text that holds anything whose form depends on its
/// neighbours: surrogates and whatever composes with the character before it.
bool appendFolded(std::u16string_view text, std::u16string& normal);

} // namespace kestrelml::detail
