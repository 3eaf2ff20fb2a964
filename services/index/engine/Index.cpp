#include "engine/Index.h"

#include "base/ApiError.h"
#include "engine/SnapshotFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <utility>

namespace kestrel::index {

namespace {

constexpr std::uint32_t kSnapshotFormat = 2;
constexpr std::string_view kHashProbe = "kestrel";

} // namespace

Index::Index(IndexInfo info, MappingPtr mapping, RowId lastRow)
    : mInfo(std::move(info)), mMapping(std::move(mapping)), mLastRow(lastRow), mSpaces(mMapping->spaces()) {
}

MappingPtr Index::mapping() const {
    const std::shared_lock lock(mMutex);
    return mMapping;
}

Prepared Index::prepare(const Json& document, const std::string& id) const {
    const MappingPtr known = mapping();
    auto prepared = DocumentParser(*known).parse(document, id);
    return prepared ? std::make_shared<const PreparedDocument>(std::move(*prepared)) : nullptr;
}

void Index::setMapping(MappingPtr mapping) {
    const std::unique_lock lock(mMutex);
    mMapping = std::move(mapping);
}

bool Index::hasRoomFor(std::size_t documents, std::size_t children) const {
    const std::shared_lock lock(mMutex);
    return documents < std::size_t{kNoOrdinal - mSpaces[0].next} &&
           std::all_of(mSpaces.begin() + 1, mSpaces.end(),
                       [&](const Space& space) { return children < std::size_t{kNoOrdinal - space.next}; });
}

bool Index::knows(std::string_view id) const {
    const std::shared_lock lock(mMutex);
    return mIds.find(id) != StringTable::kAbsent;
}

void Index::remember(std::string_view id) {
    const std::unique_lock lock(mMutex);
    if (mIds.findOrAdd(id) == mOrdinals.size()) mOrdinals.push_back(kNoOrdinal);
}

void Index::setAside(RowId row) {
    const std::unique_lock lock(mMutex);
    const auto place = std::lower_bound(mRows.begin(), mRows.end(), row);
    if (place == mRows.end() || *place != row) return;
    const auto ordinal = static_cast<Ordinal>(place - mRows.begin());
    if (!mSpaces[0].live.contains(ordinal)) return; // deleted or replaced meanwhile
    hide(ordinal);
    mSetAside.insert(row);
}

std::optional<RowId> Index::rowOf(std::string_view id) const {
    const IndexView view(*this);
    const auto ordinal = view.ordinalOf(id);
    return ordinal ? std::optional(mRows[*ordinal]) : std::nullopt;
}

void Index::apply(const std::vector<DocumentChange>& changes) {
    const std::unique_lock lock(mMutex);
    mChanges += changes.size();
    mIncomplete = true; // remains set if memory runs out halfway
    for (const DocumentChange& change : changes) {
        if (change.removed) {
            // A document that was set aside may be readable again, but its content is not in the index.
            const bool setAside = mSetAside.erase(change.removed->row) > 0;
            remove(change.id, setAside ? nullptr : change.removed->content.get());
        }
        if (change.added) add(change.id, *change.added);
    }
    mIncomplete = false;
}

void Index::requireComplete() const {
    if (mIncomplete)
        throw ApiError(
            503, "no_shard_available_action_exception",
            fmt::format("index [{}] lacks stored documents in memory: restart the service", name()),
            {{"index", name()}});
}

FieldData& Index::dataOf(FieldId id) {
    if (mData.size() <= id) mData.resize(id + 1);
    if (!mData[id]) mData[id] = FieldData::make(mMapping->at(id));
    return *mData[id];
}

void Index::add(const std::string& id, const DocumentChange::State& state) {
    Space& documents = mSpaces[0];
    const Ordinal ordinal = documents.next++;
    documents.live.add(ordinal);
    mRows.push_back(state.row);
    const std::uint32_t number = mIds.findOrAdd(id);
    if (number == mOrdinals.size()) mOrdinals.push_back(kNoOrdinal);
    mOrdinals[number] = ordinal;
    if (!state.content) {
        hide(ordinal);
        mSetAside.insert(state.row);
        return;
    }
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

void Index::hide(Ordinal ordinal) {
    mSpaces[0].live.remove(ordinal);
    for (std::size_t i = 1; i < mSpaces.size(); ++i) {
        Space& space = mSpaces[i];
        const auto [first, last] = std::equal_range(space.parents.begin(), space.parents.end(), ordinal);
        for (auto child = first; child != last; ++child)
            space.live.remove(static_cast<Ordinal>(child - space.parents.begin()));
    }
}

void Index::remove(const std::string& id, const PreparedDocument* known) {
    Ordinal& current = mOrdinals[mIds.find(id)];
    const Ordinal ordinal = std::exchange(current, kNoOrdinal);
    // The statistics still count an unreadable document until the index is rebuilt.
    if (known == nullptr) return hide(ordinal);
    const PreparedDocument& content = *known;
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

void Index::forget(const std::vector<RowId>& gone) {
    const std::unique_lock lock(mMutex);
    std::vector<Bitmap> ordinals(mSpaces.size());
    for (const RowId row : gone) {
        const auto place = std::lower_bound(mRows.begin(), mRows.end(), row);
        if (place != mRows.end() && *place == row)
            ordinals[0].add(static_cast<Ordinal>(place - mRows.begin()));
        mSetAside.erase(row);
    }
    for (std::size_t i = 1; i < mSpaces.size(); ++i)
        for (const Ordinal child : mSpaces[i].live)
            if (ordinals[0].contains(mSpaces[i].parents[child])) ordinals[i].add(child);
    for (Ordinal& ordinal : mOrdinals)
        if (ordinal != kNoOrdinal && ordinals[0].contains(ordinal)) ordinal = kNoOrdinal;
    for (FieldId id = 0; id < mData.size(); ++id)
        if (mData[id]) mData[id]->forget(ordinals[mMapping->at(id).space]);
    for (std::size_t i = 0; i < mSpaces.size(); ++i)
        mSpaces[i].live -= ordinals[i];
    mChanges += gone.size();
}

std::vector<RowId> Index::rows() const {
    const std::shared_lock lock(mMutex);
    std::vector<RowId> rows(mSetAside.begin(), mSetAside.end());
    for (const Ordinal ordinal : mSpaces[0].live)
        rows.push_back(mRows[ordinal]);
    std::sort(rows.begin(), rows.end());
    return rows;
}

std::size_t Index::documentCount() const {
    const std::shared_lock lock(mMutex);
    return mSpaces[0].live.cardinality();
}

/// Holds the writer up for a moment only, each time.
bool Index::saveAhead(SnapshotWriter& writer) const {
    const std::shared_lock lock(mMutex);
    return std::any_of(mData.begin(), mData.end(),
                       [&](const auto& data) { return data && data->saveAhead(writer); });
}

void Index::requireIntact() const {
    const std::shared_lock lock(mMutex);
    for (const auto& data : mData)
        if (data) data->requireIntact();
}

void Index::save(SnapshotWriter& writer) const {
    while (saveAhead(writer)) {
    }
    const std::shared_lock lock(mMutex);
    requireComplete();
    writer.number(kSnapshotFormat);
    // Hash tables are saved as they are, so the hash function has to be the same.
    writer.number<std::uint64_t>(std::hash<std::string_view>{}(kHashProbe));
    writer.text(mInfo.uuid);
    writer.number<std::uint64_t>(mMapping->size());
    for (FieldId id = 0; id < mMapping->size(); ++id) {
        writer.text(mMapping->at(id).path);
        writer.text(mMapping->at(id).typeName);
    }
    writer.column(mRows);
    mIds.save(writer);
    writer.column(mOrdinals);
    writer.column(std::vector<RowId>(mSetAside.begin(), mSetAside.end()));
    for (const Space& space : mSpaces) {
        writer.column(space.parents);
        writer.bitmap(space.live);
        writer.number(space.next);
    }
    writer.number<std::uint64_t>(mData.size());
    for (const auto& data : mData) {
        writer.number<std::uint8_t>(data ? 1 : 0);
        if (data) data->save(writer);
    }
}

RowId Index::load(SnapshotReader& reader) {
    const std::unique_lock lock(mMutex);
    if (reader.number<std::uint32_t>() != kSnapshotFormat ||
        reader.number<std::uint64_t>() != std::hash<std::string_view>{}(kHashProbe))
        throw SnapshotError("the snapshot was written by another version");
    if (reader.text() != mInfo.uuid) throw SnapshotError("the snapshot belongs to another index");
    const auto fields = reader.number<std::uint64_t>();
    for (std::uint64_t i = 0; i < fields; ++i) {
        const std::string path = reader.text();
        const std::string type = reader.text();
        const auto id = static_cast<FieldId>(i);
        if (i >= mMapping->size() || mMapping->at(id).path != path || mMapping->at(id).typeName != type)
            throw SnapshotError("the snapshot does not fit the mapping");
    }
    reader.column(mRows);
    mIds.load(reader);
    reader.column(mOrdinals);
    std::vector<RowId> setAside;
    reader.column(setAside);
    mSetAside.insert(setAside.begin(), setAside.end());
    for (Space& space : mSpaces) {
        reader.column(space.parents);
        space.live = reader.bitmap();
        space.next = reader.number<Ordinal>();
    }
    mData.resize(reader.size(1));
    if (mData.size() > mMapping->size()) throw SnapshotError("the snapshot does not fit the mapping");
    for (FieldId id = 0; id < mData.size(); ++id) {
        if (reader.number<std::uint8_t>() == 0) continue;
        mData[id] = FieldData::make(mMapping->at(id));
        if (!mData[id]) throw SnapshotError("the snapshot does not fit the mapping");
        mData[id]->load(reader);
    }
    if (mSpaces[0].next != mRows.size() || mOrdinals.size() != mIds.size())
        throw SnapshotError("the snapshot is damaged");
    if (mSpaces[0].live.cardinality() < mRows.size() / 2)
        throw SnapshotError("most of the snapshot is of deleted documents");
    return mRows.empty() ? 0 : mRows.back();
}

std::optional<Ordinal> IndexView::ordinalOf(std::string_view id) const {
    const std::uint32_t number = mIndex.mIds.find(id);
    if (number == StringTable::kAbsent || mIndex.mOrdinals[number] == Index::kNoOrdinal) return std::nullopt;
    return mIndex.mOrdinals[number];
}

} // namespace kestrel::index
