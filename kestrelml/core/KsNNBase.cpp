#include "kestrelml/core/KsNNBase.h"

#include <Poco/Exception.h>

#include <iostream>
#include <sstream>
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

void reportError(const Poco::Exception* caught, const char* message, unsigned location, KsNNBase* target,
                 bool debug) {
    std::ostringstream report;
    if (caught != nullptr) {
        report << "KsNN Error: " << location << ", " << std::endl;
        report << '\t' << caught->displayText() << std::endl;
        report << "\tmessage = " << caught->message() << std::endl;
        report << "\tname = " << caught->name() << std::endl;
        report << "\tclassName = " << caught->className() << std::endl;
    }
    if (message != nullptr) {
        report << "KsNN Error: " << location << ", " << message << std::endl;
    }
    if (target != nullptr) {
        target->SetErrorStr(report.str());
    }
    if (debug) {
        std::cout << report.str() << std::endl;
    }
}
