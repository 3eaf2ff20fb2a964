#include "handlers/Handlers.h"

#ifndef KESTREL_VERSION
#define KESTREL_VERSION "unknown"
#endif

namespace kestrel::index {

Router makeRouter(Services& services) {
    Router router;
    addRootHandlers(router);
    addIndexHandlers(router, services);
    addDocumentHandlers(router, services);
    addBulkHandlers(router, services);
    addSearchHandlers(router, services);
    addByQueryHandlers(router, services);
    addSecurityHandlers(router, services);
    return router;
}

void addRootHandlers(Router& router) {
    router.add({"GET", "HEAD"}, "/", {}, [](const Request& request, const Router::PathParams&) {
        request.user->requireCluster(RightMonitorService, "cluster:monitor/main");
        return Answer::json({{"name", "kestrel-index"},
                             {"cluster_name", "kestrel"},
                             {"version", {{"distribution", "kestrel-index"}, {"number", KESTREL_VERSION}}},
                             {"tagline", "You Know, for Search"}});
    });
}

} // namespace kestrel::index
