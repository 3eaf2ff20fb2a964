#include "index/FieldData.h"

#include <algorithm>
#include <cmath>

namespace kestrel {

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
    growTo(lengths_, ordinal);
    lengths_[ordinal] = encodeLength(content.length);
    if (content.length > 0) ++statistics_.documents;
    statistics_.terms += content.length;
    for (const TermCount& counted : content.terms) {
        const std::uint32_t term = terms_.findOrAdd(counted.term);
        if (term == postings_.size()) postings_.emplace_back();
        Postings& postings = postings_[term];
        appendNumber(postings.bytes, ((ordinal - postings.last) << 1U) | (counted.count == 1 ? 1U : 0U));
        if (counted.count != 1) appendNumber(postings.bytes, counted.count);
        postings.last = ordinal;
        ++postings.documents;
    }
    // New terms are searched one by one until they are sorted in: keep them few.
    if (postings_.size() - sorted_.size() > std::max<std::size_t>(256, sorted_.size() / 16)) sortNewTerms();
}

void TextData::removeContent(Ordinal, const PreparedField& field) {
    const auto& content = std::get<TextContent>(field.content);
    if (content.length > 0) --statistics_.documents;
    statistics_.terms -= content.length;
    for (const TermCount& counted : content.terms)
        --postings_[terms_.find(counted.term)].documents;
}

void TextData::sortNewTerms() {
    const auto before = [this](std::uint32_t a, std::uint32_t b) { return terms_.at(a) < terms_.at(b); };
    const auto old = static_cast<std::ptrdiff_t>(sorted_.size());
    for (auto term = static_cast<std::uint32_t>(sorted_.size()); term < terms_.size(); ++term)
        sorted_.push_back(term);
    std::sort(sorted_.begin() + old, sorted_.end(), before);
    std::inplace_merge(sorted_.begin(), sorted_.begin() + old, sorted_.end(), before);
}

const OrdinalSet* KeywordData::find(std::string_view value) const {
    const std::uint32_t number = values_.find(value);
    return number == StringTable::absent ? nullptr : &documents_[number];
}

void KeywordData::addContent(Ordinal ordinal, const PreparedField& field) {
    for (const std::string& value : std::get<KeywordContent>(field.content)) {
        const std::uint32_t number = values_.findOrAdd(value);
        if (number == documents_.size()) documents_.emplace_back();
        documents_[number].add(ordinal);
        ++entries_;
    }
}

void KeywordData::removeContent(Ordinal ordinal, const PreparedField& field) {
    for (const std::string& value : std::get<KeywordContent>(field.content)) {
        documents_[values_.find(value)].remove(ordinal);
        --entries_;
    }
}

void NumberData::addContent(Ordinal ordinal, const PreparedField& field) {
    const auto& numbers = std::get<NumberContent>(field.content);
    if (numbers.size() > 1) {
        several_.add(ordinal);
        return;
    }
    growTo(column_, ordinal);
    column_[ordinal] = numbers.front();
}

void NumberData::removeContent(Ordinal ordinal, const PreparedField&) {
    several_.remove(ordinal);
}

void VectorData::addContent(Ordinal ordinal, const PreparedField& field) {
    const auto& vector = std::get<VectorContent>(field.content);
    dimensions_ = vector.size();
    growTo(slots_, ordinal);
    if (freeSlots_.empty()) {
        slots_[ordinal] = static_cast<std::uint32_t>(magnitudes_.size());
        magnitudes_.push_back(0);
        values_.resize(values_.size() + dimensions_);
    } else {
        slots_[ordinal] = freeSlots_.back();
        freeSlots_.pop_back();
    }
    std::copy(vector.begin(), vector.end(),
              values_.begin() + static_cast<std::ptrdiff_t>(slots_[ordinal] * dimensions_));
    float squares = 0;
    for (const float value : vector)
        squares += value * value;
    magnitudes_[slots_[ordinal]] = std::sqrt(squares);
}

void VectorData::removeContent(Ordinal ordinal, const PreparedField&) {
    freeSlots_.push_back(slots_[ordinal]);
}

} // namespace kestrel
