#include "kestrelml/core/KsNNBase.h"

#include <utility>

KsNNSpeakerKV::~KsNNSpeakerKV() = default;

KsNNBase::KsNNBase(const char* uri) : mURI(uri) {
}

KsNNBase::~KsNNBase() = default;

void KsNNBase::SetErrorStr(std::string text) {
    mErrorStr = std::move(text);
}

void KsNNBase::ResetErrorStr() {
    mErrorStr.clear();
}

const std::string& KsNNBase::GetErrorStr() const {
    return mErrorStr;
}

void KsNNBase::SetLastRESTCall(std::string line) {
    mLastRESTCall = std::move(line);
}

std::string KsNNBase::GetLastRESTCall() const {
    return mLastRESTCall;
}

std::string KsNNBase::GetURI() const {
    return mURI;
}

void KsNNBase::SetURI(const char* uri) {
    mURI = uri;
}
