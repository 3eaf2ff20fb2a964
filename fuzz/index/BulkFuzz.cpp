// Bodies of bulk requests; afterwards every document that was taken can be read.

#include "fuzz/index/Service.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static kestrel_fuzz::Service service;
    service.ask("DELETE", kestrel_fuzz::Service::kIndex, "");
    service.ask("PUT", kestrel_fuzz::Service::kIndex + std::string("/_bulk"), kestrel_fuzz::text(data, size));
    service.ask("GET", kestrel_fuzz::Service::kIndex + std::string("/_search"),
                R"({"size": 100, "sort": ["_doc"]})");
    return 0;
}
