#include "kestrelml/core/Report.h"

#include "kestrelml/core/Debug.h"

#include <Poco/Exception.h>
#include <unicode/unistr.h>

#include <sstream>
#include <stdexcept>

namespace {

/// A parser's exception quotes what it could not read, which need not be UTF-8.
std::string asUtf8(const std::string& text) {
    std::string result;
    return icu::UnicodeString::fromUTF8(text).toUTF8String(result);
}

} // namespace

void reportError(const Poco::Exception* caught, const char* message, unsigned location, KsNNBase* target,
                 bool debug) {
    std::ostringstream report;
    if (caught != nullptr) {
        report << "KsNN Error: " << location << ", \n"
               << '\t' << caught->displayText() << '\n'
               << "\tmessage = " << caught->message() << '\n'
               << "\tname = " << caught->name() << '\n'
               << "\tclassName = " << caught->className() << '\n';
    }
    if (message != nullptr) report << "KsNN Error: " << location << ", " << message << '\n';
    const std::string text = asUtf8(report.str());
    if (target != nullptr) target->SetErrorStr(text);
    kestrelml::detail::debugLine(debug, text);
}

namespace kestrelml::detail {

KsNN_ErrorCode fail(KsNNBase* target, const std::string& message, bool debug, SourceLocation where) {
    reportError(nullptr, message.c_str(), where.line(), target, debug);
    return KsNN_Error;
}

KsNN_ErrorCode reportCaught(const OnException& rule, KsNNBase* target, bool debug, SourceLocation where) {
    try {
        throw;
    } catch (const Poco::Exception& caught) {
        reportError(&caught, rule.afterDetails, where.line(), target, debug);
    } catch (const std::runtime_error& caught) {
        reportError(nullptr, rule.quotesRuntimeErrors ? caught.what() : rule.message, where.line(), target,
                    debug);
    } catch (...) {
        reportError(nullptr, rule.message, where.line(), target, debug);
    }
    return rule.code;
}

} // namespace kestrelml::detail
