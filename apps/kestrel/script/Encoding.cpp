#include "apps/kestrel/script/Encoding.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Printable.h"

#include <unicode/ucsdet.h>
#include <unicode/unistr.h>

#include <memory>

namespace kestrel {

namespace {

constexpr const char* kUsualEncoding = "windows-1252";
constexpr int kSureEnough = 30; // of 100

struct Close {
    void operator()(UCharsetDetector* detector) const { ucsdet_close(detector); }
};

std::string encodingOf(const std::string& bytes) {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UCharsetDetector, Close> detector(ucsdet_open(&status));
    ucsdet_setText(detector.get(), bytes.data(), static_cast<std::int32_t>(bytes.size()), &status);
    const UCharsetMatch* match = ucsdet_detect(detector.get(), &status);
    if (U_FAILURE(status) || match == nullptr) return kUsualEncoding;
    if (ucsdet_getConfidence(match, &status) < kSureEnough) return kUsualEncoding;
    const std::string name = ucsdet_getName(match, &status);
    // Every text in the one is one in the other, which has quotation marks and dashes besides.
    return name == "ISO-8859-1" ? kUsualEncoding : name;
}

} // namespace

DecodedText decodeText(const std::string& bytes) {
    DecodedText decoded{bytes, ""};
    if (!isUtf8(bytes) || bytes.find('\0') != std::string::npos) {
        decoded.encoding = encodingOf(bytes);
        decoded.text.clear();
        icu::UnicodeString(bytes.data(), static_cast<std::int32_t>(bytes.size()), decoded.encoding.c_str())
            .toUTF8String(decoded.text);
    }
    if (decoded.text.starts_with("\xEF\xBB\xBF")) decoded.text.erase(0, 3); // byte order mark
    if (decoded.text.find('\0') != std::string::npos)
        throw Failure("is not text: save it as plain text first");
    return decoded;
}

} // namespace kestrel
