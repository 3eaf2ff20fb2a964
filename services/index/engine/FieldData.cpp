#include "engine/FieldData.h"

#include "engine/SnapshotFile.h"

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
    case FieldType::Text:
        return std::make_unique<TextData>();
    case FieldType::Keyword:
    case FieldType::Boolean:
        return std::make_unique<KeywordData>();
    case FieldType::Integer:
    case FieldType::Floating:
        return std::make_unique<NumberData>();
    case FieldType::Vector:
        return std::make_unique<VectorData>();
    case FieldType::Object:
    case FieldType::Nested:
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
    // Unsorted terms are searched linearly: keep them few.
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
    growTo(mSlots, ordinal);
    if (mFreeSlots.empty()) {
        mSlots[ordinal] = mVectors.add(vector);
        mMagnitudes.push_back(0);
    } else {
        mSlots[ordinal] = mFreeSlots.back();
        mFreeSlots.pop_back();
        mVectors.replace(mSlots[ordinal], vector);
    }
    float squares = 0;
    for (const float value : vector)
        squares += value * value;
    mMagnitudes[mSlots[ordinal]] = std::sqrt(squares);
}

void VectorData::removeContent(Ordinal ordinal, const PreparedField&) {
    mFreeSlots.push_back(mSlots[ordinal]);
}

void FieldData::save(SnapshotWriter& writer) const {
    writer.bitmap(mPresent);
    saveContent(writer);
}

void FieldData::load(SnapshotReader& reader) {
    mPresent = reader.bitmap();
    loadContent(reader);
}

void TextData::forgetContent(const Bitmap& ordinals) {
    std::vector<bool> wanted(ordinals.isEmpty() ? 0 : std::size_t{ordinals.maximum()} + 1);
    for (const Ordinal ordinal : ordinals)
        wanted[ordinal] = true;
    Bitmap met;
    for (std::uint32_t term = 0; term < mTerms.size(); ++term) {
        forEach(term, [&](Ordinal ordinal, std::uint32_t frequency) {
            if (ordinal >= wanted.size() || !wanted[ordinal]) return;
            --mPostings[term].documents;
            mStatistics.terms -= frequency;
            met.add(ordinal);
        });
    }
    mStatistics.documents -= met.cardinality();
}

void TextData::saveContent(SnapshotWriter& writer) const {
    mTerms.save(writer);
    for (const Postings& postings : mPostings) {
        writer.text(postings.bytes);
        writer.number(postings.last);
        writer.number(postings.documents);
    }
    writer.column(mSorted);
    writer.column(mLengths);
    writer.number(mStatistics);
}

void TextData::loadContent(SnapshotReader& reader) {
    mTerms.load(reader);
    mPostings.resize(mTerms.size());
    for (Postings& postings : mPostings) {
        postings.bytes = reader.text();
        postings.last = reader.number<Ordinal>();
        postings.documents = reader.number<std::uint32_t>();
    }
    reader.column(mSorted);
    reader.column(mLengths);
    mStatistics = reader.number<FieldStatistics>();
}

void KeywordData::forgetContent(const Bitmap& ordinals) {
    for (OrdinalSet& documents : mDocuments)
        mEntries -= documents.removeAll(ordinals);
}

void KeywordData::saveContent(SnapshotWriter& writer) const {
    mValues.save(writer);
    std::vector<Ordinal> singles;
    singles.reserve(mDocuments.size());
    std::uint64_t several = 0;
    for (const OrdinalSet& documents : mDocuments) {
        singles.push_back(documents.single());
        several += documents.hasSeveral() ? 1U : 0U;
    }
    writer.column(singles);
    writer.number(several);
    for (std::uint32_t value = 0; value < mDocuments.size(); ++value) {
        if (!mDocuments[value].hasSeveral()) continue;
        writer.number(value);
        writer.bitmap(mDocuments[value].toBitmap());
    }
    writer.number(mEntries);
}

void KeywordData::loadContent(SnapshotReader& reader) {
    mValues.load(reader);
    std::vector<Ordinal> singles;
    reader.column(singles);
    if (singles.size() != mValues.size()) throw SnapshotError("a keyword field in a snapshot is damaged");
    mDocuments.resize(singles.size());
    for (std::size_t value = 0; value < singles.size(); ++value)
        if (singles[value] != OrdinalSet::kNone) mDocuments[value].add(singles[value]);
    for (auto several = reader.number<std::uint64_t>(); several > 0; --several) {
        const auto value = reader.number<std::uint32_t>();
        if (value >= mDocuments.size()) throw SnapshotError("a keyword field in a snapshot is damaged");
        for (const Ordinal ordinal : reader.bitmap())
            mDocuments[value].add(ordinal);
    }
    mEntries = reader.number<std::uint64_t>();
}

void NumberData::forgetContent(const Bitmap& ordinals) {
    mSeveral -= ordinals;
}

void NumberData::saveContent(SnapshotWriter& writer) const {
    writer.column(mColumn);
    writer.bitmap(mSeveral);
}

void NumberData::loadContent(SnapshotReader& reader) {
    reader.column(mColumn);
    mSeveral = reader.bitmap();
}

void VectorData::forgetContent(const Bitmap& ordinals) {
    for (const Ordinal ordinal : ordinals& present())
        mFreeSlots.push_back(mSlots[ordinal]);
}

void VectorData::saveContent(SnapshotWriter& writer) const {
    writer.column(mSlots);
    writer.column(mFreeSlots);
    mVectors.save(writer);
    writer.column(mMagnitudes);
}

void VectorData::loadContent(SnapshotReader& reader) {
    reader.column(mSlots);
    reader.column(mFreeSlots);
    mVectors.load(reader);
    reader.column(mMagnitudes);
}

void VectorData::requireIntact() const {
    for (const Ordinal ordinal : present())
        if (!mVectors.isIntact(mSlots[ordinal])) throw SnapshotError("a vector in a snapshot is damaged");
}

} // namespace kestrel::index
