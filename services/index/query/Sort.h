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
    bool smallest = true; ///< of several values, which one counts
    bool unmappedIsFine = false;
};

/// "sort" of a request: an array of fields, or one.
std::vector<SortSpec> parseSort(const Json& sort);

/// What the documents of one result sort by, in one field.
class SortColumn {
public:
    /// Nothing when the index has no such field.
    static std::optional<SortColumn> make(const IndexView& view, DocumentStore& store, const SortSpec& spec,
                                          const std::vector<Ordinal>& documents,
                                          const std::vector<float>& scores);

    /// Smaller keys come first.
    std::int64_t key(std::size_t position) const { return mKeys[position]; }
    /// What the answer's "sort" says for a document with the key.
    Json shown(std::int64_t key) const;

    /// Drops the keys, which are of no use once the hits are in order.
    void keepShownOnly() { mKeys = {}; }
    std::size_t bytes() const;

private:
    enum class Kind { Integer, Floating, Text, Document };

    void fillNumbers(const IndexView& view, DocumentStore& store, FieldId field, const SortSpec& spec,
                     const std::vector<Ordinal>& documents);
    void fillKeywords(const KeywordData& data, const SortSpec& spec, const std::vector<Ordinal>& documents);
    /// Brings a value into the order asked for; a missing value sorts last either way.
    std::int64_t directed(std::int64_t value) const { return mDescending ? ~value : value; }

    Kind mKind = Kind::Integer;
    bool mDescending = false;
    std::vector<std::int64_t> mKeys;
    std::vector<std::string> mTexts; ///< keywords: by rank
};

} // namespace kestrel::index
