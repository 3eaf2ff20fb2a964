// Bodies that make an index. What is taken can be shown, and makes the same index again.

#include "fuzz/index/Service.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using kestrel::index::Json;
    static kestrel_fuzz::Service service;
    static const std::string index = kestrel_fuzz::Service::kIndex;
    service.ask("DELETE", index, "");
    if (service.ask("PUT", index, kestrel_fuzz::text(data, size)).status != 200) return 0;
    const Json mappings = Json::parse(service.ask("GET", index + "/_mapping", "").body).at(index);
    service.ask("DELETE", index, "");
    const bool same = service.ask("PUT", index, mappings.dump()).status == 200 &&
                      Json::parse(service.ask("GET", index + "/_mapping", "").body).at(index) == mappings;
    if (!same) std::abort();
    return 0;
}
