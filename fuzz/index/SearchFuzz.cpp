// Bodies of searches, and of deletions that the same query leads to.

#include "fuzz/index/Service.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static kestrel_fuzz::Service service;
    static const bool filled = (service.fill(), true);
    static_cast<void>(filled);
    service.ask("GET", kestrel_fuzz::Service::kIndex + std::string("/_search"),
                kestrel_fuzz::text(data, size));
    service.ask("GET", kestrel_fuzz::Service::kIndex + std::string("/_count"),
                kestrel_fuzz::text(data, size));
    return 0;
}
