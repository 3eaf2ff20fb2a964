#include "apps/kestrel/services/Store.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/home/Credentials.h"
#include "apps/kestrel/services/Services.h"

#include <fmt/format.h>

#include <sstream>

namespace kestrel {

namespace {

/// What one line of a failure report tells the user; empty for source positions, class names and the like.
std::string told(const std::string& line) {
    const std::string block = "KsNN Error: ";
    const std::string message = "\tmessage = ";
    if (line.starts_with(message)) return line.substr(message.size());
    if (!line.starts_with(block)) return "";
    const std::size_t comma = line.find(", ", block.size());
    return comma == std::string::npos ? "" : line.substr(comma + 2);
}

} // namespace

bool acceptsCredentials(const Home& home, const std::string& uri) {
    applyCredentials(home);
    KsNNDatabase store(uri.c_str(), nullptr, nullptr, nullptr, false);
    return store.testDefault(false) == KsNN_Success;
}

KsNNDatabase openStoreOfAnyVersion(const Home& home) {
    const RunningService service = require(home, Service::Index);
    applyCredentials(home);
    KsNNDatabase store(service.uri.c_str(), nullptr, nullptr, nullptr, false);
    switch (store.testDefault(false)) {
    case KsNN_Success:
        return store;
    case KsNN_Exception:
        throw Failure(
            fmt::format("the index service at {} does not answer like one ({}): run `kestrel down` and "
                        "`kestrel up`",
                        service.uri, detailOf(store)));
    default:
        throw Failure(
            fmt::format("the index service at {} refuses the password that kestrel keeps: run `kestrel "
                        "up` to read it again",
                        service.uri));
    }
}

KsNNDatabase openStore(const Home& home) {
    KsNNDatabase store = openStoreOfAnyVersion(home);
    bool isCurrent = false;
    check(store.CheckIndex(isCurrent, KsNNDatabase::getTranscriptIndex(), false), store,
          "the store's indices cannot be listed");
    // Writing would make the current index, and with both in place the old one can no longer be copied.
    if (!isCurrent && documentCount(store, kOldTranscriptIndex) > 0)
        throw Failure("the store holds transcripts of an earlier version: run `kestrel migrate` first");
    return store;
}

TranscriptIndexSwitch::TranscriptIndexSwitch(const std::string& index)
    : mBefore(KsNNDatabase::getTranscriptIndex()) {
    KsNNDatabase::setTranscriptIndex(index);
}

TranscriptIndexSwitch::~TranscriptIndexSwitch() {
    KsNNDatabase::setTranscriptIndex(mBefore);
}

int documentCount(KsNNDatabase& store, const std::string& index) {
    const TranscriptIndexSwitch there(index);
    int count = 0; // what it stays when there is no such index
    check(store.GetTotalSegmentCount(count, false), store, fmt::format("{} cannot be counted", index));
    return count;
}

std::string detailOf(const KsNNBase& object) {
    std::istringstream report(object.GetErrorStr());
    std::string detail;
    for (std::string line; std::getline(report, line);) {
        std::string text = told(line);
        while (!text.empty() && (text.back() == ' ' || text.back() == ':'))
            text.pop_back();
        if (!text.empty()) detail += (detail.empty() ? "" : "; ") + text;
    }
    return detail;
}

void check(KsNN_ErrorCode code, const KsNNBase& object, const std::string& what) {
    if (code == KsNN_Success) return;
    const std::string detail = detailOf(object);
    throw Failure(detail.empty() ? what : fmt::format("{}: {}", what, detail));
}

} // namespace kestrel
