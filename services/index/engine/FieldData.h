#pragma once

#include "engine/OrdinalSet.h"
#include "engine/PreparedDocument.h"
#include "engine/Similarity.h"
#include "engine/StringTable.h"
#include "engine/VectorColumn.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kestrel::index {

class SnapshotReader;
class SnapshotWriter;

/// What the index keeps of one field: the documents that hold it, and, in the derived classes, its values.
/// All of it is derived from the documents.
class FieldData {
public:
    virtual ~FieldData() = default;
    void add(Ordinal ordinal, const PreparedField& field) {
        mPresent.add(ordinal);
        addContent(ordinal, field);
    }
    void remove(Ordinal ordinal, const PreparedField& field) {
        mPresent.remove(ordinal);
        removeContent(ordinal, field);
    }
    const Bitmap& present() const { return mPresent; }
    /// Removes documents whose content is no longer known, in one pass over all values.
    void forget(const Bitmap& ordinals) {
        forgetContent(ordinals);
        mPresent -= ordinals;
    }

    /// Writes a part of what is large; false when nothing of it is left for save.
    virtual bool saveAhead(SnapshotWriter&) const { return false; }
    void save(SnapshotWriter& writer) const;
    void load(SnapshotReader& reader);
    /// Throws SnapshotError when the content that load read, of the documents that are there, is damaged.
    virtual void requireIntact() const {}

    static std::unique_ptr<FieldData> make(const Field& field);

private:
    virtual void addContent(Ordinal ordinal, const PreparedField& field) = 0;
    virtual void removeContent(Ordinal ordinal, const PreparedField& field) = 0;
    virtual void forgetContent(const Bitmap& ordinals) = 0;
    virtual void saveContent(SnapshotWriter& writer) const = 0;
    virtual void loadContent(SnapshotReader& reader) = 0;

    Bitmap mPresent;
};

/// Full text: for each term the documents that contain it and how often, compressed, in document order.
/// Removed documents stay in the lists (readers skip them) but leave the statistics at once.
class TextData final : public FieldData {
public:
    const StringTable& terms() const { return mTerms; }
    std::uint32_t documentFrequency(std::uint32_t term) const { return mPostings[term].documents; }
    const FieldStatistics& statistics() const { return mStatistics; }
    std::uint8_t encodedLength(Ordinal ordinal) const { return mLengths[ordinal]; }

    /// Terms in byte order; those numbered from sortedTerms().size() on are not sorted yet.
    const std::vector<std::uint32_t>& sortedTerms() const { return mSorted; }

    /// Calls visit(ordinal, frequency) for each document of the term, removed ones included.
    template <typename Visit>
    void forEach(std::uint32_t term, Visit&& visit) const {
        const std::string& bytes = mPostings[term].bytes;
        Ordinal ordinal = 0;
        for (std::size_t at = 0; at < bytes.size();) {
            const std::uint32_t head = readNumber(bytes, at);
            ordinal += head >> 1U;
            visit(ordinal, (head & 1U) != 0 ? 1U : readNumber(bytes, at));
        }
    }

private:
    struct Postings {
        std::string
            bytes; ///< per document: distance to the last one * 2 + (frequency is 1), else the frequency too
        Ordinal last = 0;
        std::uint32_t documents = 0;
    };

    void addContent(Ordinal ordinal, const PreparedField& field) override;
    void removeContent(Ordinal ordinal, const PreparedField& field) override;
    void forgetContent(const Bitmap& ordinals) override;
    void saveContent(SnapshotWriter& writer) const override;
    void loadContent(SnapshotReader& reader) override;
    void sortNewTerms();

    static void appendNumber(std::string& bytes, std::uint32_t number) {
        for (; number >= 0x80; number >>= 7U)
            bytes.push_back(static_cast<char>((number & 0x7FU) | 0x80U));
        bytes.push_back(static_cast<char>(number));
    }
    static std::uint32_t readNumber(const std::string& bytes, std::size_t& at) {
        std::uint32_t number = 0;
        for (std::uint32_t shift = 0;; shift += 7) {
            const auto byte = static_cast<unsigned char>(bytes[at++]);
            number |= static_cast<std::uint32_t>(byte & 0x7FU) << shift;
            if (byte < 0x80) return number;
        }
    }

    StringTable mTerms;
    std::vector<Postings> mPostings;
    std::vector<std::uint32_t> mSorted;
    std::vector<std::uint8_t> mLengths;
    FieldStatistics mStatistics;
};

/// Exact values (keywords, booleans): the set of documents for each value.
class KeywordData final : public FieldData {
public:
    const StringTable& values() const { return mValues; }
    const OrdinalSet& documents(std::uint32_t value) const { return mDocuments[value]; }
    const OrdinalSet* find(std::string_view value) const;
    FieldStatistics statistics() const { return {present().cardinality(), mEntries}; }

private:
    void addContent(Ordinal ordinal, const PreparedField& field) override;
    void removeContent(Ordinal ordinal, const PreparedField& field) override;
    void forgetContent(const Bitmap& ordinals) override;
    void saveContent(SnapshotWriter& writer) const override;
    void loadContent(SnapshotReader& reader) override;

    StringTable mValues;
    std::vector<OrdinalSet> mDocuments;
    std::uint64_t mEntries = 0;
};

/// Numbers. A single value is kept in the column. Several values (such as word times, which are rarely
/// queried) are only marked, and a query reads them from the document.
class NumberData final : public FieldData {
public:
    const Bitmap& several() const { return mSeveral; }
    SortableNumber single(Ordinal ordinal) const { return mColumn[ordinal]; }

private:
    void addContent(Ordinal ordinal, const PreparedField& field) override;
    void removeContent(Ordinal ordinal, const PreparedField& field) override;
    void forgetContent(const Bitmap& ordinals) override;
    void saveContent(SnapshotWriter& writer) const override;
    void loadContent(SnapshotReader& reader) override;

    std::vector<SortableNumber> mColumn;
    Bitmap mSeveral;
};

/// Embeddings.
class VectorData final : public FieldData {
public:
    std::size_t dimensions() const { return mVectors.dimensions(); }
    const float* vector(Ordinal ordinal) const { return mVectors.at(mSlots[ordinal]); }
    float magnitude(Ordinal ordinal) const { return mMagnitudes[mSlots[ordinal]]; }

    bool saveAhead(SnapshotWriter& writer) const override { return mVectors.saveAhead(writer); }
    void requireIntact() const override;

private:
    void addContent(Ordinal ordinal, const PreparedField& field) override;
    void removeContent(Ordinal ordinal, const PreparedField& field) override;
    void forgetContent(const Bitmap& ordinals) override;
    void saveContent(SnapshotWriter& writer) const override;
    void loadContent(SnapshotReader& reader) override;

    std::vector<std::uint32_t> mSlots; ///< by ordinal
    std::vector<std::uint32_t> mFreeSlots;
    VectorColumn mVectors;
    std::vector<float> mMagnitudes; ///< by slot
};

} // namespace kestrel::index
