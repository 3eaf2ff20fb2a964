// A document, and after a line break the update of it; then it is updated once more and removed.

#include "fuzz/index/Service.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static kestrel_fuzz::Service service;
    static const std::string index = kestrel_fuzz::Service::kIndex;
    const std::string_view input = kestrel_fuzz::text(data, size);
    const std::string_view document = input.substr(0, input.find('\n'));
    service.ask("DELETE", index, "");
    service.ask("PUT", index, "");
    service.ask("PUT", index + "/_doc/1", document);
    service.ask("POST", index + "/_update/1", input.substr(std::min(document.size() + 1, input.size())));
    service.ask("POST", index + "/_update/1", R"({"doc": {"more": 1}})");
    service.ask("GET", index + "/_doc/1", "");
    service.ask("DELETE", index + "/_doc/1", "");
    return 0;
}
