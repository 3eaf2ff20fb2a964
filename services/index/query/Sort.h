#pragma once

#include "query/QueryCompiler.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrel::index {

struct SortSpec {
    std::string field; ///< a field, "_score" or "_doc"
    bool descending = false;
    bool smallest = true; ///< of several values the smallest counts, not the largest
    bool unmappedIsFine = false;
};

/// "sort" of a request: an array of fields, or one.
std::vector<SortSpec> parseSort(const Json& sort);

/// The sort keys of a result's documents in one field.
class SortColumn {
public:
    /// Nothing when the index has no such field.
    static std::optional<SortColumn> make(const IndexView& view, DocumentStore& store, const SortSpec& spec,
                                          const std::vector<Ordinal>& documents,
                                          const std::vector<float>& scores);

    /// Smaller keys come first.
    std::int64_t key(std::size_t position) const { return mKeys[position]; }
    /// The key as shown in "sort" of the answer.
    Json shown(std::int64_t key) const;

    /// Drops the keys, which are not needed once the hits are sorted.
    void keepShownOnly() { mKeys = {}; }
    std::size_t bytes() const;

private:
    enum class Kind { Integer, Floating, Text, Document };

    void fillNumbers(const IndexView& view, DocumentStore& store, FieldId field, const SortSpec& spec,
                     const std::vector<Ordinal>& documents);
    void fillKeywords(const KeywordData& data, const SortSpec& spec, const std::vector<Ordinal>& documents);
    /// The key of a value in the requested order; missing values sort last in both.
    std::int64_t directed(std::int64_t value) const { return mDescending ? ~value : value; }

    Kind mKind = Kind::Integer;
    bool mDescending = false;
    std::vector<std::int64_t> mKeys;
    std::vector<std::string> mTexts; ///< keywords: by rank
};

} // namespace kestrel::index
