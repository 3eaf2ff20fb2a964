// Whole requests: the method and the target in the first line, the body after it.

#include "fuzz/index/Service.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static kestrel_fuzz::Service service;
    const std::string_view input = kestrel_fuzz::text(data, size);
    const std::string_view line = input.substr(0, input.find('\n'));
    const std::string_view method = line.substr(0, line.find(' '));
    const std::string_view target = line.substr(std::min(method.size() + 1, line.size()));
    service.ask(std::string(method), std::string(target),
                input.substr(std::min(line.size() + 1, input.size())));
    return 0;
}
