#include "handlers/Services.h"

#include "security/Certificate.h"

namespace kestrel::index {

void Services::start(const DataFolder& folder) {
    users.ensureAdministrator(folder.administrator());
    ensureCertificate(folder.certificate(), folder.privateKey());
    folder.finishFirstStart();
    catalogue.load(folder.derived());
}

} // namespace kestrel::index
