#include "index/Index.h"

#include "http/ApiError.h"

#include <fmt/format.h>

#include <algorithm>
#include <mutex>
#include <utility>

namespace kestrel {

Index::Index(IndexInfo info, const Json& mappings, RowId lastRow)
    : info_(std::move(info)), mapping_(mappings), lastRow_(lastRow), spaces_(mapping_.spaces()) {
}

Prepared Index::prepare(const Json& document, const std::string& id) {
    DocumentParser parser(*this, id);
    return std::make_shared<const PreparedDocument>(parser.parse(document));
}

Json Index::mappings() const {
    const std::shared_lock lock(mutex_);
    return mapping_.toJson();
}

FieldId Index::resolve(const std::string& path, FieldType ifNew, SpaceId space) {
    {
        const std::shared_lock lock(mutex_);
        if (const auto known = mapping_.idOf(path)) return *known;
    }
    const std::unique_lock lock(mutex_);
    if (const auto known = mapping_.idOf(path)) return *known;
    const FieldId id = mapping_.addDynamic(path, ifNew, space);
    ++mappingVersion_;
    return id;
}

const Field& Index::field(FieldId id) const {
    const std::shared_lock lock(mutex_);
    return mapping_.at(id);
}

std::size_t Index::dimensions(FieldId id, std::size_t ifUnknown) {
    const std::unique_lock lock(mutex_);
    if (mapping_.at(id).dimensions == 0) {
        mapping_.fixDimensions(id, ifUnknown);
        ++mappingVersion_;
    }
    return mapping_.at(id).dimensions;
}

std::optional<RowId> Index::rowOf(std::string_view id) const {
    const IndexView view(*this);
    const auto ordinal = view.ordinalOf(id);
    return ordinal ? std::optional(rows_[*ordinal]) : std::nullopt;
}

void Index::apply(const std::vector<DocumentChange>& changes) {
    const std::unique_lock lock(mutex_);
    for (const DocumentChange& change : changes) {
        if (change.removed) remove(change.id, *change.removed->content);
        if (change.added) add(change.id, *change.added);
    }
}

FieldData& Index::dataOf(FieldId id) {
    if (data_.size() <= id) data_.resize(id + 1);
    if (!data_[id]) data_[id] = FieldData::make(mapping_.at(id));
    return *data_[id];
}

void Index::add(const std::string& id, const DocumentChange::State& state) {
    Space& documents = spaces_[0];
    if (documents.next == noOrdinal)
        throw std::length_error("index is full: restart the service to renumber it");
    const Ordinal ordinal = documents.next++;
    documents.live.add(ordinal);
    rows_.push_back(state.row);
    const std::uint32_t number = ids_.findOrAdd(id);
    if (number == ordinals_.size()) ordinals_.push_back(noOrdinal);
    ordinals_[number] = ordinal;
    for (const PreparedField& field : state.content->fields)
        dataOf(field.field).add(ordinal, field);
    for (const PreparedDocument::Child& child : state.content->children) {
        Space& space = spaces_[child.space];
        const Ordinal childOrdinal = space.next++;
        space.parents.push_back(ordinal);
        space.live.add(childOrdinal);
        for (const PreparedField& field : child.fields)
            dataOf(field.field).add(childOrdinal, field);
    }
}

void Index::remove(const std::string& id, const PreparedDocument& content) {
    Ordinal& current = ordinals_[ids_.find(id)];
    const Ordinal ordinal = std::exchange(current, noOrdinal);
    spaces_[0].live.remove(ordinal);
    for (const PreparedField& field : content.fields)
        dataOf(field.field).remove(ordinal, field);
    std::vector<Ordinal> nextChild(spaces_.size(), noOrdinal);
    for (const PreparedDocument::Child& child : content.children) {
        Space& space = spaces_[child.space];
        if (nextChild[child.space] == noOrdinal)
            nextChild[child.space] =
                static_cast<Ordinal>(std::lower_bound(space.parents.begin(), space.parents.end(), ordinal) -
                                     space.parents.begin());
        const Ordinal childOrdinal = nextChild[child.space]++;
        space.live.remove(childOrdinal);
        for (const PreparedField& field : child.fields)
            dataOf(field.field).remove(childOrdinal, field);
    }
}

std::optional<Ordinal> IndexView::ordinalOf(std::string_view id) const {
    const std::uint32_t number = index_.ids_.find(id);
    if (number == StringTable::absent || index_.ordinals_[number] == Index::noOrdinal) return std::nullopt;
    return index_.ordinals_[number];
}

} // namespace kestrel
