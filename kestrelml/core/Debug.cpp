#include "kestrelml/core/Debug.h"

#include <iostream>

namespace kestrelml::detail {

void writeDebug(std::string_view text) {
    std::cout << text << std::flush;
}

} // namespace kestrelml::detail
