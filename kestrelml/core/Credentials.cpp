#include "kestrelml/core/Credentials.h"

#include <atomic>

namespace kestrelml::detail {
namespace {

constexpr const char* kDebugUser = "transcript_user_dbg";
constexpr const char* kDebugPassword = "Wq3ZbN8yPc2Lx6";

std::atomic<CredentialSource> credentialSource{nullptr};

} // namespace

void setCredentialSource(CredentialSource source) {
    credentialSource = source;
}

KsNN_ErrorCode credentialsFor(KsNNBase& caller, BasicCredentials& credentials, bool debug) {
    credentials = debugCredentials();
    const CredentialSource source = credentialSource;
    return source == nullptr ? KsNN_Success : source(caller, credentials, debug);
}

BasicCredentials debugCredentials() {
    return {kDebugUser, kDebugPassword};
}

std::string debugUserAndPassword() {
    return std::string(kDebugUser) + ":" + kDebugPassword;
}

} // namespace kestrelml::detail
