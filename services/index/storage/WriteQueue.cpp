#include "storage/WriteQueue.h"

#include "base/ApiError.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <chrono>
#include <exception>

namespace kestrel::index {

namespace {

constexpr std::size_t kMaximumGroup = 256;
/// Documents added to an index while readers wait.
constexpr std::size_t kPublishedAtOnce = 500;

ApiError storageFailure(const SqliteError& error) {
    if (error.noSpace())
        return {507, "i_o_exception",
                fmt::format("No space left for the write; nothing of it was stored ({})", error.what())};
    if (error.syncFailed())
        return {500, "i_o_exception",
                fmt::format(
                    "it is not known whether the write is on the disk ({}); the service accepts no further "
                    "writes until it is restarted",
                    error.what())};
    return {500, "i_o_exception", fmt::format("the documents could not be written: {}", error.what())};
}

} // namespace

std::optional<RowId> WriteBatch::rowOf(const IndexPtr& index, const std::string& id) const {
    const auto pending = mRows.find(Key(index.get(), id));
    return pending != mRows.end() ? pending->second : index->rowOf(id);
}

StoredDocument WriteBatch::load(RowId row) try {
    auto document = mStore.readForWrite(row);
    if (!document)
        throw ApiError(500, "i_o_exception", fmt::format("row [{}] is missing from the store", row));
    return std::move(*document);
} catch (const DamagedRow& e) {
    throw ApiError(500, "i_o_exception", e.what());
}

WriteBatch::Old WriteBatch::loadOld(const IndexPtr& index, const std::string& id, RowId row) try {
    auto document = mStore.readForWrite(row);
    if (!document) return {{id, 1, {}}, row, false, nullptr};
    return {std::move(*document), row, true, nullptr};
} catch (const DamagedRow& e) {
    spdlog::warn("index [{}]: {}; it is overwritten", index->name(), e.what());
    return {{id, std::max<std::int64_t>(e.document().version, 1), {}}, row, false, nullptr};
}

RowId WriteBatch::takeRow(const IndexPtr& index) {
    mVacant.insert(index);
    return index->takeRow();
}

MappingPtr WriteBatch::mappingOf(const IndexPtr& index) const {
    const auto extended = mMappings.find(index);
    return extended != mMappings.end() ? extended->second : index->mapping();
}

Prepared WriteBatch::prepare(const IndexPtr& index, const Json& document, const std::string& id) {
    const MappingPtr known = mappingOf(index);
    if (auto prepared = DocumentParser(*known).parse(document, id))
        return std::make_shared<const PreparedDocument>(std::move(*prepared));
    auto extended = std::make_shared<Mapping>(*known);
    auto prepared = DocumentParser(*extended).parse(document, id);
    const auto earlier = mMappings.find(index);
    const MappingPtr before = earlier == mMappings.end() ? nullptr : earlier->second;
    mUndo.emplace_back([this, index, before] {
        if (before)
            mMappings[index] = before;
        else
            mMappings.erase(index);
    });
    mMappings[index] = std::move(extended);
    return std::make_shared<const PreparedDocument>(std::move(*prepared));
}

Prepared WriteBatch::contentOf(const IndexPtr& index, const std::string& id, const Json& document) const {
    try {
        if (auto prepared = DocumentParser(*mappingOf(index)).parse(document, id))
            return std::make_shared<const PreparedDocument>(std::move(*prepared));
    } catch (const ApiError&) {
    }
    return std::make_shared<const PreparedDocument>();
}

Prepared WriteBatch::contentOf(const IndexPtr& index, const Old& old) const {
    if (old.content || !old.readable) return old.content;
    try {
        return contentOf(index, old.document.id, parseStored(old.document.source));
    } catch (const Json::exception&) {
        return std::make_shared<const PreparedDocument>();
    }
}

void WriteBatch::requireRoom(const IndexPtr& index, const PreparedDocument& content) {
    mChildren += content.children.size();
    if (!index->hasRoomFor(mSteps.size() + 1, mChildren))
        throw ApiError(
            500, "illegal_state_exception",
            fmt::format(
                "index [{}] has used all its document numbers: restart the service to renumber the documents",
                index->name()));
}

WriteBatch::Written WriteBatch::add(const IndexPtr& index, const std::string& id, std::string_view source,
                                    Prepared content) {
    requireRoom(index, *content);
    std::int64_t version = 1;
    if (index->knows(id) || mRows.contains(Key(index.get(), id)))
        version = mStore.takeTombstone(index->info().number, id).value_or(0) + 1;
    const RowId row = index->takeRow();
    mStore.insert(row, id, version, source);
    setRow(index, id, row);
    change(index, {id, std::nullopt, DocumentChange::State{row, std::move(content)}});
    return {row, version};
}

WriteBatch::Written WriteBatch::replace(const IndexPtr& index, const Old& old, std::string_view source,
                                        Prepared content) {
    requireRoom(index, *content);
    Prepared before = contentOf(index, old);
    const RowId row = index->takeRow();
    mRetired.retire(*index, old.row, old.document);
    mStore.remove(old.row);
    mStore.insert(row, old.document.id, old.document.version + 1, source);
    setRow(index, old.document.id, row);
    change(index, {old.document.id, DocumentChange::State{old.row, std::move(before)},
                   DocumentChange::State{row, std::move(content)}});
    return {row, old.document.version + 1};
}

WriteBatch::Written WriteBatch::remove(const IndexPtr& index, const Old& old) {
    Prepared before = contentOf(index, old);
    const RowId row = takeRow(index);
    mRetired.retire(*index, old.row, old.document);
    mStore.remove(old.row);
    mStore.putTombstone(index->info().number, old.document.id, old.document.version + 1);
    setRow(index, old.document.id, std::nullopt);
    change(index, {old.document.id, DocumentChange::State{old.row, std::move(before)}, std::nullopt});
    return {row, old.document.version + 1};
}

void WriteBatch::afterCommit(std::function<void()> action) {
    mSteps.push_back({nullptr, {}, std::move(action)});
}

void WriteBatch::setRow(const IndexPtr& index, const std::string& id, std::optional<RowId> row) {
    Key key(index.get(), id);
    const auto known = mRows.find(key);
    const bool isNew = known == mRows.end();
    const std::optional<RowId> before = isNew ? std::nullopt : known->second;
    mUndo.emplace_back([this, key, isNew, before] {
        if (isNew)
            mRows.erase(key);
        else
            mRows[key] = before;
    });
    mRows[std::move(key)] = row;
}

void WriteBatch::change(const IndexPtr& index, DocumentChange change) {
    mSteps.push_back({index, std::move(change), {}});
}

void WriteBatch::revert(Mark mark) {
    mSteps.resize(mark.steps);
    for (; mUndo.size() > mark.undo; mUndo.pop_back())
        mUndo.back()();
}

void WriteBatch::beforeCommit() {
    for (const auto& [index, mapping] : mMappings)
        mStore.updateMapping(index->info().number, *mapping);
    for (const IndexPtr& index : mVacant)
        if (!index->deleted()) mStore.updateLastRow(index->info().number, index->lastRow());
}

void WriteBatch::publish() {
    for (const auto& [index, mapping] : mMappings)
        index->setMapping(mapping);
    std::vector<DocumentChange> changes;
    for (std::size_t i = 0; i < mSteps.size(); ++i) {
        Step& step = mSteps[i];
        if (step.action) {
            step.action();
            continue;
        }
        changes.push_back(std::move(step.change));
        const bool last = i + 1 == mSteps.size() || mSteps[i + 1].index != step.index;
        if (last || changes.size() == kPublishedAtOnce) {
            step.index->apply(changes);
            changes.clear();
        }
    }
}

WriteQueue::WriteQueue(DocumentStore& store, RetiredDocuments& retired)
    : mStore(store), mRetired(retired), mThread([this] { loop(); }) {
}

WriteQueue::~WriteQueue() {
    {
        const std::lock_guard lock(mMutex);
        mStopping = true;
    }
    mArrived.notify_one();
    mThread.join();
}

void WriteQueue::run(Job job, Sharing sharing) {
    auto entry = std::make_unique<Entry>(Entry{std::move(job), sharing, {}, {}});
    std::future<void> done = entry->done.get_future();
    {
        const std::lock_guard lock(mMutex);
        mWaiting.push_back(std::move(entry));
    }
    mArrived.notify_one();
    done.get();
}

void WriteQueue::purgeSoon() {
    {
        const std::lock_guard lock(mMutex);
        mPurging = true;
    }
    mArrived.notify_one();
}

void WriteQueue::loop() {
    for (;;) {
        std::vector<EntryPtr> group = next();
        if (group.empty()) {
            const std::lock_guard lock(mMutex);
            if (mStopping && mWaiting.empty()) return;
        }
        if (!group.empty()) write(group);
        for (const EntryPtr& entry : group) {
            if (entry->error)
                entry->done.set_exception(entry->error);
            else
                entry->done.set_value();
        }
        maintain();
    }
}

std::vector<WriteQueue::EntryPtr> WriteQueue::next() {
    std::unique_lock lock(mMutex);
    mArrived.wait(lock, [this] { return mStopping || mPurging || !mWaiting.empty(); });
    std::vector<EntryPtr> group;
    while (!mWaiting.empty() && group.size() < kMaximumGroup) {
        const bool alone = mWaiting.front()->sharing == Sharing::Alone;
        if (alone && !group.empty()) break;
        group.push_back(std::move(mWaiting.front()));
        mWaiting.pop_front();
        if (alone) break;
    }
    return group;
}

void WriteQueue::setReadOnly(const std::string& why) {
    if (mIsReadOnly) return;
    mReadOnly = why;
    mIsReadOnly = true;
    spdlog::critical("{}; no further writes are accepted until the service is restarted", why);
}

void WriteQueue::maintain() {
    try {
        bool purging = false;
        {
            const std::lock_guard lock(mMutex);
            mPurging = mPurging && !mStopping && !mIsReadOnly;
            purging = mPurging;
        }
        if (mIsReadOnly) return;
        if (purging) purgePiece();
        mStore.checkpointIfDue();
    } catch (const SqliteError& e) {
        // Acknowledged writes may have been lost on their way from the journal into the database.
        if (e.syncFailed())
            setReadOnly(fmt::format("the disk failed during a checkpoint ({})", e.what()));
        else
            spdlog::warn("the checkpoint failed: {}", e.what());
    }
}

void WriteQueue::purgePiece() {
    bool more = false;
    try {
        mStore.begin();
        more = mStore.purge();
        mStore.commit();
    } catch (const SqliteError& e) {
        mStore.rollback();
        if (e.syncFailed()) throw;
        spdlog::warn("rows of removed indices could not be removed; the next start continues: {}", e.what());
        more = false;
    }
    const std::lock_guard lock(mMutex);
    mPurging = more;
}

void WriteQueue::refuse(Entry& entry, const SqliteError& error) {
    entry.error = std::make_exception_ptr(storageFailure(error));
    if (error.syncFailed())
        setReadOnly(fmt::format("the disk failed to synchronise writes ({})", error.what()));
}

void WriteQueue::write(std::vector<EntryPtr>& group) {
    const std::lock_guard lock(mGate);
    try {
        transact(group);
        return;
    } catch (const SqliteError& e) {
        spdlog::error("a transaction of {} writes failed: {}", group.size(), e.what());
        if (group.size() == 1 || e.syncFailed()) {
            for (EntryPtr& entry : group)
                refuse(*entry, e);
            return;
        }
    } catch (const std::exception& e) {
        spdlog::error("a transaction of {} writes failed: {}", group.size(), e.what());
        for (EntryPtr& entry : group)
            entry->error = std::current_exception();
        return;
    }
    // Alone, small writes may still succeed.
    for (EntryPtr& entry : group) {
        std::vector<EntryPtr> single;
        single.push_back(std::move(entry));
        single.front()->error = nullptr;
        try {
            transact(single);
        } catch (const SqliteError& e) {
            refuse(*single.front(), e);
        } catch (const std::exception&) {
            single.front()->error = std::current_exception();
        }
        entry = std::move(single.front());
    }
}

void WriteQueue::rollback() {
    try {
        mStore.rollback();
    } catch (const SqliteError& e) {
        spdlog::error("rolling back failed: {}", e.what());
    }
}

void WriteQueue::transact(std::vector<EntryPtr>& group) {
    if (mIsReadOnly) {
        const ApiError refusal(
            503, "cluster_block_exception",
            fmt::format("blocked by: [FORBIDDEN/read-only]: {}; restart the service", mReadOnly));
        for (const EntryPtr& entry : group)
            entry->error = std::make_exception_ptr(refusal);
        return;
    }
    WriteBatch batch(mStore, mRetired);
    try {
        mStore.begin();
        for (const EntryPtr& entry : group) {
            const WriteBatch::Mark mark = batch.mark();
            mStore.writer().execute("SAVEPOINT job");
            try {
                entry->job(batch);
                mStore.writer().execute("RELEASE job");
            } catch (const SqliteError&) {
                throw;
            } catch (...) {
                entry->error = std::current_exception();
                mStore.writer().execute("ROLLBACK TO job; RELEASE job");
                batch.revert(mark);
            }
        }
        batch.beforeCommit();
        mStore.commit();
    } catch (...) {
        rollback();
        throw;
    }
    try {
        batch.publish();
    } catch (const std::exception& e) {
        // The writes are stored, but memory lacks some of them until the next start.
        setReadOnly(fmt::format("stored documents could not be loaded into memory ({})", e.what()));
        const ApiError refusal(500, "exception", "the write is stored, but visible only after a restart");
        for (const EntryPtr& entry : group)
            if (!entry->error) entry->error = std::make_exception_ptr(refusal);
    }
}

} // namespace kestrel::index
