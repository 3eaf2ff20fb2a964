#include "kestrelml/stt/KsNNSpeechToTextInterface.h"

#include "kestrelml/core/Report.h"
#include "kestrelml/stt/DebugDump.h"

#include <Poco/Base64Decoder.h>
#include <Poco/Base64Encoder.h>

namespace {

constexpr const char* kSpeechServiceURI = "http://127.0.0.1:5000/";

std::vector<std::int16_t> decodeAudioBase64(std::istream& text, std::size_t numSamples) {
    std::vector<std::int16_t> samples(numSamples);
    Poco::Base64Decoder decoder(text);
    decoder.read(reinterpret_cast<char*>(samples.data()),
                 static_cast<std::streamsize>(numSamples * sizeof(std::int16_t)));
    samples.resize(static_cast<std::size_t>(decoder.gcount()) / sizeof(std::int16_t));
    return samples;
}

} // namespace

KsNNSpeechToTextInterface::KsNNSpeechToTextInterface(std::size_t /*chunkLength*/,
                                                     std::size_t /*overlapLength*/,
                                                     std::size_t /*batchCount*/)
    : KsNNBase(kSpeechServiceURI) {
}

KsNNSpeechToTextInterface::~KsNNSpeechToTextInterface() = default;

std::string KsNNSpeechToTextInterface::getLanguage() const {
    return mLanguage;
}

void KsNNSpeechToTextInterface::encodeAudioBase64(const std::int16_t* samples, std::size_t numSamples,
                                                  std::stringstream& out) {
    out.str({});
    out.clear();
    Poco::Base64Encoder encoder(out);
    encoder.write(reinterpret_cast<const char*>(samples),
                  static_cast<std::streamsize>(numSamples * sizeof(std::int16_t)));
    encoder.close();
}

KsNN_ErrorCode KsNNSpeechToTextInterface::debugInternals(const std::int16_t* samples, std::size_t numSamples,
                                                         bool writeFile) {
    ResetErrorStr();
    std::stringstream text;
    encodeAudioBase64(samples, numSamples, text);
    if (writeFile) kestrelml::stt::dumpFile("KsNNBase64.txt", text.str());

    const std::vector<std::int16_t> decoded = decodeAudioBase64(text, numSamples);
    if (!std::equal(decoded.begin(), decoded.end(), samples, samples + numSamples))
        return kestrelml::detail::fail(this, "KsNNSTT Base64 decode err", false);
    return KsNN_Success;
}

KsNN_ErrorCode KsNNSpeechToTextInterface::keepLanguages(KsNN_ErrorCode checked,
                                                        const std::vector<KsNNLanguage>& languages,
                                                        const char* failure, bool debug) {
    if (checked != KsNN_Success)
        kestrelml::detail::fail(this, failure, debug);
    else if (&languages != &mSupportedLanguages)
        mSupportedLanguages = languages;
    return checked;
}
