#include "kestrelml/exchange/ExchangeWriter.h"

namespace kestrelml::detail {

ExchangeWriter::ExchangeWriter(std::ostream& file, const std::string& passPhrase)
    : mCipher(createCipher(passPhrase)), mEncoder(file), mPlain(mEncoder, *mCipher) {
    // Without this a stream swallows what the cipher throws.
    mPlain.exceptions(std::ios::badbit);
    mPlain << '[';
}

void ExchangeWriter::add(const std::string& element) {
    if (!mIsEmpty) mPlain << ',';
    mIsEmpty = false;
    mPlain << element;
}

void ExchangeWriter::finish() {
    mPlain << ']';
    mPlain.close();
    mEncoder.close();
}

} // namespace kestrelml::detail
