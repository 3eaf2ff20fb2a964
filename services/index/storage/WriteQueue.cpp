#include "storage/WriteQueue.h"

#include "base/ApiError.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <exception>

namespace kestrel::index {

namespace {

constexpr std::size_t kMaximumGroup = 256;
/// Readers wait no longer than this many documents take to enter an index.
constexpr std::size_t kPublishedAtOnce = 500;

ApiError storageFailure(const SqliteError& error) {
    if (error.noSpace())
        return {507, "i_o_exception",
                fmt::format("No space left for the write; nothing of it was stored ({})", error.what())};
    return {500, "i_o_exception", fmt::format("the documents could not be written: {}", error.what())};
}

} // namespace

std::optional<RowId> WriteBatch::rowOf(const IndexPtr& index, const std::string& id) const {
    const auto pending = mRows.find(Key(index.get(), id));
    return pending != mRows.end() ? pending->second : index->rowOf(id);
}

StoredDocument WriteBatch::load(RowId row) {
    auto document = mStore.readForWrite(row);
    if (!document)
        throw ApiError(500, "i_o_exception", fmt::format("row [{}] is missing from the store", row));
    return std::move(*document);
}

RowId WriteBatch::add(const IndexPtr& index, const std::string& id, std::string_view source,
                      Prepared content) {
    const RowId row = index->takeRow();
    mStore.insert(row, id, 1, source);
    setRow(index, id, row);
    change(index, {id, std::nullopt, DocumentChange::State{row, std::move(content)}});
    return row;
}

RowId WriteBatch::replace(const IndexPtr& index, const StoredDocument& old, RowId oldRow,
                          std::string_view source, Prepared content) {
    const RowId row = index->takeRow();
    mRetired.retire(*index, oldRow, old);
    mStore.remove(oldRow);
    mStore.insert(row, old.id, old.version + 1, source);
    setRow(index, old.id, row);
    change(index, {old.id, DocumentChange::State{oldRow, index->prepare(parseJson(old.source), old.id)},
                   DocumentChange::State{row, std::move(content)}});
    return row;
}

void WriteBatch::remove(const IndexPtr& index, const StoredDocument& old, RowId oldRow) {
    mRetired.retire(*index, oldRow, old);
    mStore.remove(oldRow);
    setRow(index, old.id, std::nullopt);
    change(index, {old.id, DocumentChange::State{oldRow, index->prepare(parseJson(old.source), old.id)},
                   std::nullopt});
}

void WriteBatch::afterCommit(std::function<void()> action) {
    mSteps.push_back({nullptr, {}, std::move(action)});
}

void WriteBatch::setRow(const IndexPtr& index, const std::string& id, std::optional<RowId> row) {
    Key key(index.get(), id);
    const auto [place, inserted] = mRows.try_emplace(key, row);
    mUndo.emplace_back(std::move(key), inserted ? std::nullopt : std::optional(place->second));
    place->second = row;
}

void WriteBatch::change(const IndexPtr& index, DocumentChange change) {
    mSteps.push_back({index, std::move(change), {}});
}

void WriteBatch::revert(Mark mark) {
    mSteps.resize(mark.steps);
    for (; mUndo.size() > mark.undo; mUndo.pop_back()) {
        auto& [key, before] = mUndo.back();
        if (before)
            mRows[key] = *before;
        else
            mRows.erase(key);
    }
}

void WriteBatch::storeMappings() {
    for (const Step& step : mSteps) {
        if (!step.index) continue;
        const std::uint64_t version = step.index->mappingVersion();
        if (version == step.index->storedMappingVersion()) continue;
        mStore.updateMappings(step.index->info().number, step.index->mappings());
        step.index->setStoredMappingVersion(version);
    }
}

void WriteBatch::publish() {
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

void WriteQueue::loop() {
    for (;;) {
        std::vector<EntryPtr> group = next();
        if (group.empty()) return;
        write(group);
        for (const EntryPtr& entry : group) {
            if (entry->error)
                entry->done.set_exception(entry->error);
            else
                entry->done.set_value();
        }
    }
}

std::vector<WriteQueue::EntryPtr> WriteQueue::next() {
    std::unique_lock lock(mMutex);
    mArrived.wait(lock, [this] { return mStopping || !mWaiting.empty(); });
    std::vector<EntryPtr> group;
    while (!mWaiting.empty() && group.size() < kMaximumGroup) {
        const bool alone = mWaiting.front()->sharing == Sharing::alone;
        if (alone && !group.empty()) break;
        group.push_back(std::move(mWaiting.front()));
        mWaiting.pop_front();
        if (alone) break;
    }
    return group;
}

void WriteQueue::write(std::vector<EntryPtr>& group) {
    const std::lock_guard lock(mGate);
    try {
        transact(group);
        return;
    } catch (const SqliteError& e) {
        spdlog::error("a transaction of {} writes failed: {}", group.size(), e.what());
        if (group.size() == 1) {
            group.front()->error = std::make_exception_ptr(storageFailure(e));
            return;
        }
    }
    // What is small enough may still go through by itself.
    for (EntryPtr& entry : group) {
        std::vector<EntryPtr> single;
        single.push_back(std::move(entry));
        single.front()->error = nullptr;
        try {
            transact(single);
        } catch (const SqliteError& e) {
            single.front()->error = std::make_exception_ptr(storageFailure(e));
        }
        entry = std::move(single.front());
    }
}

void WriteQueue::transact(std::vector<EntryPtr>& group) {
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
        batch.storeMappings();
        mStore.commit();
    } catch (const SqliteError&) {
        try {
            mStore.rollback();
        } catch (const SqliteError& e) {
            spdlog::error("rolling back failed: {}", e.what());
        }
        throw;
    }
    batch.publish();
}

} // namespace kestrel::index
