#include "kestrelml/exchange/ExchangeReader.h"

#include "kestrelml/core/Cipher.h"

#include <Poco/Base64Decoder.h>
#include <Poco/Crypto/CryptoStream.h>
#include <Poco/Exception.h>

#include <array>
#include <iterator>
#include <string_view>

namespace kestrelml::detail {
namespace {

constexpr const char* kSpaces = " \t\r\n";

constexpr const char* kUnreadable = "The exchange file cannot be read: it is encrypted under another pass "
                                    "phrase, is damaged, or is no exchange file";

/// Cuts the text of a JSON array into its elements. Looks at brackets and strings only; what lies between is
/// judged by whoever parses the element.
class Splitter {
public:
    explicit Splitter(const ElementVisitor& visit) : mVisit(visit) {}

    KsNN_ErrorCode take(std::string_view text) {
        while (!text.empty()) {
            const std::size_t used = mDepth < 2 && !mIsString ? takeBetween(text) : takeInside(text);
            text.remove_prefix(used);
            if (mCode != KsNN_Success) return mCode;
        }
        return KsNN_Success;
    }

    void finish() const {
        if (mState == State::Before) throw Poco::DataFormatException(kUnreadable);
        if (mState == State::Inside)
            throw Poco::DataFormatException("The exchange file ends too early: it is truncated or damaged");
    }

private:
    enum class State { Before, Inside, After };

    /// One character outside of nested values.
    std::size_t takeBetween(std::string_view text) {
        const char character = text.front();
        const bool isSpace = std::string_view(kSpaces).find(character) != std::string_view::npos;
        if (mState != State::Inside) {
            if (isSpace) return 1;
            if (mState == State::After)
                throw Poco::DataFormatException("The exchange file goes on after its JSON array");
            if (character != '[') throw Poco::DataFormatException(kUnreadable);
            mState = State::Inside;
            mDepth = 1;
            return 1;
        }
        if (character == ',' || character == ']') {
            endElement(character == ']');
            return 1;
        }
        mElement += character;
        follow(character);
        return 1;
    }

    /// As much of a nested value as there is.
    std::size_t takeInside(std::string_view text) {
        std::size_t used = 0;
        while (used < text.size() && (mDepth >= 2 || mIsString))
            follow(text[used++]);
        mElement += text.substr(0, used);
        return used;
    }

    void follow(char character) {
        if (mIsEscaped) {
            mIsEscaped = false;
        } else if (mIsString) {
            mIsEscaped = character == '\\';
            mIsString = character != '"';
        } else if (character == '"') {
            mIsString = true;
        } else if (character == '{' || character == '[') {
            if (++mDepth > kDeepestNesting)
                throw Poco::DataFormatException("The exchange file is nested deeper than " +
                                                std::to_string(kDeepestNesting) + " levels");
        } else if (character == '}' || character == ']') {
            --mDepth;
        }
    }

    void endElement(bool isLast) {
        const bool isBlank = mElement.find_first_not_of(kSpaces) == std::string::npos;
        // Only an array without elements may have nothing between its brackets.
        if (isBlank && (!isLast || mHasElements))
            throw Poco::DataFormatException("An element of the exchange file is missing");
        if (!isBlank) mCode = mVisit(mElement);
        mHasElements = true;
        mElement.clear();
        if (isLast) {
            mState = State::After;
            mDepth = 0;
        }
    }

    const ElementVisitor& mVisit;
    State mState = State::Before;
    std::string mElement;
    int mDepth = 0;
    bool mIsString = false;
    bool mIsEscaped = false;
    bool mHasElements = false;
    KsNN_ErrorCode mCode = KsNN_Success;
};

using Buffer = std::array<char, 1 << 16>;

/// Reads as much as there is room for; empty at the end.
std::string_view fill(Buffer& buffer, std::istream& plain) {
    plain.read(buffer.data(), std::ssize(buffer));
    return {buffer.data(), static_cast<std::size_t>(plain.gcount())};
}

/// @param next Fills the buffer with what comes next, and returns it.
template <typename Next>
KsNN_ErrorCode splitAll(Next next, const ElementVisitor& visit) {
    Splitter splitter(visit);
    Buffer buffer; // NOLINT(cppcoreguidelines-pro-type-member-init): filled by reading
    for (std::string_view text = next(buffer); !text.empty(); text = next(buffer)) {
        if (const auto code = splitter.take(text)) return code;
    }
    splitter.finish();
    return KsNN_Success;
}

} // namespace

KsNN_ErrorCode readElements(std::istream& plain, const ElementVisitor& visit) {
    return splitAll([&](Buffer& buffer) { return fill(buffer, plain); }, visit);
}

KsNN_ErrorCode readExchange(std::istream& file, const std::string& passPhrase, const ElementVisitor& visit) {
    file.clear();
    file.seekg(0);
    if (file.peek() == std::istream::traits_type::eof())
        throw Poco::DataFormatException("The exchange file is empty");
    Poco::Crypto::Cipher::Ptr cipher = createCipher(passPhrase);
    Poco::Base64Decoder decoder(file);
    Poco::Crypto::DecryptingInputStream plain(decoder, *cipher);
    // Without this a stream takes what the cipher throws for the end.
    decoder.exceptions(std::ios::badbit);
    plain.exceptions(std::ios::badbit);
    // Around the reading only: what `visit` throws has causes of its own.
    const auto decrypt = [&](Buffer& buffer) {
        try {
            return fill(buffer, plain);
        } catch (const Poco::IOException& caught) { // what ciphers throw
            throw Poco::DataFormatException(kUnreadable, caught);
        } catch (const Poco::DataFormatException&) { // the Base64 decoder's has no message
            throw Poco::DataFormatException(kUnreadable);
        }
    };
    return splitAll(decrypt, visit);
}

} // namespace kestrelml::detail
