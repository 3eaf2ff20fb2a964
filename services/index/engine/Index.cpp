#include "engine/Index.h"

#include "base/ApiError.h"

#include <fmt/format.h>

#include <algorithm>
#include <mutex>
#include <utility>

namespace kestrel::index {

Index::Index(IndexInfo info, const Json& mappings, RowId lastRow)
    : mInfo(std::move(info)), mMapping(mappings), mLastRow(lastRow), mSpaces(mMapping.spaces()) {
}

Prepared Index::prepare(const Json& document, const std::string& id) {
    DocumentParser parser(*this, id);
    return std::make_shared<const PreparedDocument>(parser.parse(document));
}

Json Index::mappings() const {
    const std::shared_lock lock(mMutex);
    return mMapping.toJson();
}

FieldId Index::resolve(const std::string& path, FieldType ifNew, SpaceId space) {
    {
        const std::shared_lock lock(mMutex);
        if (const auto known = mMapping.idOf(path)) return *known;
    }
    const std::unique_lock lock(mMutex);
    if (const auto known = mMapping.idOf(path)) return *known;
    const FieldId id = mMapping.addDynamic(path, ifNew, space);
    ++mMappingVersion;
    return id;
}

const Field& Index::field(FieldId id) const {
    const std::shared_lock lock(mMutex);
    return mMapping.at(id);
}

std::size_t Index::dimensions(FieldId id, std::size_t ifUnknown) {
    const std::unique_lock lock(mMutex);
    if (mMapping.at(id).dimensions == 0) {
        mMapping.fixDimensions(id, ifUnknown);
        ++mMappingVersion;
    }
    return mMapping.at(id).dimensions;
}

std::optional<RowId> Index::rowOf(std::string_view id) const {
    const IndexView view(*this);
    const auto ordinal = view.ordinalOf(id);
    return ordinal ? std::optional(mRows[*ordinal]) : std::nullopt;
}

void Index::apply(const std::vector<DocumentChange>& changes) {
    const std::unique_lock lock(mMutex);
    for (const DocumentChange& change : changes) {
        if (change.removed) remove(change.id, *change.removed->content);
        if (change.added) add(change.id, *change.added);
    }
}

FieldData& Index::dataOf(FieldId id) {
    if (mData.size() <= id) mData.resize(id + 1);
    if (!mData[id]) mData[id] = FieldData::make(mMapping.at(id));
    return *mData[id];
}

void Index::add(const std::string& id, const DocumentChange::State& state) {
    Space& documents = mSpaces[0];
    if (documents.next == kNoOrdinal)
        throw std::length_error("index is full: restart the service to renumber it");
    const Ordinal ordinal = documents.next++;
    documents.live.add(ordinal);
    mRows.push_back(state.row);
    const std::uint32_t number = mIds.findOrAdd(id);
    if (number == mOrdinals.size()) mOrdinals.push_back(kNoOrdinal);
    mOrdinals[number] = ordinal;
    for (const PreparedField& field : state.content->fields)
        dataOf(field.field).add(ordinal, field);
    for (const PreparedDocument::Child& child : state.content->children) {
        Space& space = mSpaces[child.space];
        const Ordinal childOrdinal = space.next++;
        space.parents.push_back(ordinal);
        space.live.add(childOrdinal);
        for (const PreparedField& field : child.fields)
            dataOf(field.field).add(childOrdinal, field);
    }
}

void Index::remove(const std::string& id, const PreparedDocument& content) {
    Ordinal& current = mOrdinals[mIds.find(id)];
    const Ordinal ordinal = std::exchange(current, kNoOrdinal);
    mSpaces[0].live.remove(ordinal);
    for (const PreparedField& field : content.fields)
        dataOf(field.field).remove(ordinal, field);
    std::vector<Ordinal> nextChild(mSpaces.size(), kNoOrdinal);
    for (const PreparedDocument::Child& child : content.children) {
        Space& space = mSpaces[child.space];
        if (nextChild[child.space] == kNoOrdinal)
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
    const std::uint32_t number = mIndex.mIds.find(id);
    if (number == StringTable::kAbsent || mIndex.mOrdinals[number] == Index::kNoOrdinal) return std::nullopt;
    return mIndex.mOrdinals[number];
}

} // namespace kestrel::index
