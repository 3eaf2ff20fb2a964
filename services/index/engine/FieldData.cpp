#include "engine/FieldData.h"

#include <algorithm>
#include <cmath>

namespace kestrel::index {

namespace {

template <typename T>
void growTo(std::vector<T>& column, Ordinal ordinal) {
    if (column.size() <= ordinal) column.resize(std::size_t{ordinal} + 1);
}

} // namespace

std::unique_ptr<FieldData> FieldData::make(const Field& field) {
    switch (field.type) {
    case FieldType::text:
        return std::make_unique<TextData>();
    case FieldType::keyword:
    case FieldType::boolean:
        return std::make_unique<KeywordData>();
    case FieldType::integer:
    case FieldType::floating:
        return std::make_unique<NumberData>();
    case FieldType::vector:
        return std::make_unique<VectorData>();
    case FieldType::object:
    case FieldType::nested:
        break;
    }
    return nullptr;
}

void TextData::addContent(Ordinal ordinal, const PreparedField& field) {
    const auto& content = std::get<TextContent>(field.content);
    growTo(mLengths, ordinal);
    mLengths[ordinal] = encodeLength(content.length);
    if (content.length > 0) ++mStatistics.documents;
    mStatistics.terms += content.length;
    for (const TermCount& counted : content.terms) {
        const std::uint32_t term = mTerms.findOrAdd(counted.term);
        if (term == mPostings.size()) mPostings.emplace_back();
        Postings& postings = mPostings[term];
        appendNumber(postings.bytes, ((ordinal - postings.last) << 1U) | (counted.count == 1 ? 1U : 0U));
        if (counted.count != 1) appendNumber(postings.bytes, counted.count);
        postings.last = ordinal;
        ++postings.documents;
    }
    // New terms are searched one by one until they are sorted in: keep them few.
    if (mPostings.size() - mSorted.size() > std::max<std::size_t>(256, mSorted.size() / 16)) sortNewTerms();
}

void TextData::removeContent(Ordinal, const PreparedField& field) {
    const auto& content = std::get<TextContent>(field.content);
    if (content.length > 0) --mStatistics.documents;
    mStatistics.terms -= content.length;
    for (const TermCount& counted : content.terms)
        --mPostings[mTerms.find(counted.term)].documents;
}

void TextData::sortNewTerms() {
    const auto before = [this](std::uint32_t a, std::uint32_t b) { return mTerms.at(a) < mTerms.at(b); };
    const auto old = static_cast<std::ptrdiff_t>(mSorted.size());
    for (auto term = static_cast<std::uint32_t>(mSorted.size()); term < mTerms.size(); ++term)
        mSorted.push_back(term);
    std::sort(mSorted.begin() + old, mSorted.end(), before);
    std::inplace_merge(mSorted.begin(), mSorted.begin() + old, mSorted.end(), before);
}

const OrdinalSet* KeywordData::find(std::string_view value) const {
    const std::uint32_t number = mValues.find(value);
    return number == StringTable::kAbsent ? nullptr : &mDocuments[number];
}

void KeywordData::addContent(Ordinal ordinal, const PreparedField& field) {
    for (const std::string& value : std::get<KeywordContent>(field.content)) {
        const std::uint32_t number = mValues.findOrAdd(value);
        if (number == mDocuments.size()) mDocuments.emplace_back();
        mDocuments[number].add(ordinal);
        ++mEntries;
    }
}

void KeywordData::removeContent(Ordinal ordinal, const PreparedField& field) {
    for (const std::string& value : std::get<KeywordContent>(field.content)) {
        mDocuments[mValues.find(value)].remove(ordinal);
        --mEntries;
    }
}

void NumberData::addContent(Ordinal ordinal, const PreparedField& field) {
    const auto& numbers = std::get<NumberContent>(field.content);
    if (numbers.size() > 1) {
        mSeveral.add(ordinal);
        return;
    }
    growTo(mColumn, ordinal);
    mColumn[ordinal] = numbers.front();
}

void NumberData::removeContent(Ordinal ordinal, const PreparedField&) {
    mSeveral.remove(ordinal);
}

void VectorData::addContent(Ordinal ordinal, const PreparedField& field) {
    const auto& vector = std::get<VectorContent>(field.content);
    mDimensions = vector.size();
    growTo(mSlots, ordinal);
    if (mFreeSlots.empty()) {
        mSlots[ordinal] = static_cast<std::uint32_t>(mMagnitudes.size());
        mMagnitudes.push_back(0);
        mValues.resize(mValues.size() + mDimensions);
    } else {
        mSlots[ordinal] = mFreeSlots.back();
        mFreeSlots.pop_back();
    }
    std::copy(vector.begin(), vector.end(),
              mValues.begin() + static_cast<std::ptrdiff_t>(mSlots[ordinal] * mDimensions));
    float squares = 0;
    for (const float value : vector)
        squares += value * value;
    mMagnitudes[mSlots[ordinal]] = std::sqrt(squares);
}

void VectorData::removeContent(Ordinal ordinal, const PreparedField&) {
    mFreeSlots.push_back(mSlots[ordinal]);
}

} // namespace kestrel::index
