#pragma once

#include "engine/Index.h"
#include "storage/DocumentStore.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <shared_mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kestrel::index {

using IndexPtr = std::shared_ptr<Index>;

/// Is told of documents before they leave the store.
class RetiredDocuments {
public:
    virtual ~RetiredDocuments() = default;
    virtual void retire(const Index& index, RowId row, const StoredDocument& document) = 0;
};

/// The writes of one transaction. They reach the disk together and are published to the indices in memory
/// afterwards, including the fields that they add to mappings. Whatever can fail happens before the commit.
class WriteBatch {
public:
    WriteBatch(DocumentStore& store, RetiredDocuments& retired) : mStore(store), mRetired(retired) {}

    DocumentStore& store() { return mStore; }
    /// The document's row after the earlier writes of the batch.
    std::optional<RowId> rowOf(const IndexPtr& index, const std::string& id) const;
    /// Throws an ApiError when the document is damaged.
    StoredDocument load(RowId row);
    /// For a document that is replaced or deleted even if it is damaged.
    struct Old {
        StoredDocument document;
        RowId row = 0;
        bool readable = true;
        Prepared content = nullptr; ///< what the index holds of it, when it is known already
    };
    Old loadOld(const IndexPtr& index, const std::string& id, RowId row);
    /// What the index holds of a stored document; empty for one that could not be indexed.
    Prepared contentOf(const IndexPtr& index, const std::string& id, const Json& document) const;
    /// A row that no document gets, for a write that leaves none.
    RowId takeRow(const IndexPtr& index);

    /// Parses a document and adds its new fields to the mapping. Call it last before the write, when nothing
    /// else can refuse the document, since refused documents must not leave fields.
    Prepared prepare(const IndexPtr& index, const Json& document, const std::string& id);

    struct Written {
        RowId row;
        std::int64_t version;
    };
    /// Writes a document that does not exist.
    Written add(const IndexPtr& index, const std::string& id, std::string_view source, Prepared content);
    /// Writes the next state of an existing document.
    Written replace(const IndexPtr& index, const Old& old, std::string_view source, Prepared content);
    Written remove(const IndexPtr& index, const Old& old);
    /// Runs the action after the commit, in order with the changes of documents. It must not throw.
    void afterCommit(std::function<void()> action);

private:
    friend class WriteQueue;
    using Key = std::pair<const Index*, std::string>;

    MappingPtr mappingOf(const IndexPtr& index) const;
    Prepared contentOf(const IndexPtr& index, const Old& old) const;
    void requireRoom(const IndexPtr& index, const PreparedDocument& content);
    void setRow(const IndexPtr& index, const std::string& id, std::optional<RowId> row);
    void change(const IndexPtr& index, DocumentChange change);
    void beforeCommit();
    void publish();

    struct Mark {
        std::size_t steps, undo;
    };
    Mark mark() const { return {mSteps.size(), mUndo.size()}; }
    void revert(Mark mark);

    struct Step {
        IndexPtr index;
        DocumentChange change;
        std::function<void()> action; ///< if set, the step is this instead of a change
    };

    DocumentStore& mStore;
    RetiredDocuments& mRetired;
    std::vector<Step> mSteps;
    std::map<Key, std::optional<RowId>> mRows;
    std::map<IndexPtr, MappingPtr> mMappings; ///< extended by the batch
    std::set<IndexPtr> mVacant; ///< indices whose last row may be of no document and has to be remembered
    std::size_t mChildren = 0;  ///< nested objects of all documents
    std::vector<std::function<void()>> mUndo;
};

/// One thread makes all writes. Jobs that arrive while a transaction is written share the next one, so that
/// many writers cost one synchronisation.
class WriteQueue {
public:
    using Job = std::function<void(WriteBatch&)>;
    enum class Sharing { Shared, Alone };

    WriteQueue(DocumentStore& store, RetiredDocuments& retired);
    ~WriteQueue();
    WriteQueue(const WriteQueue&) = delete;
    WriteQueue& operator=(const WriteQueue&) = delete;

    /// Returns when what the job wrote is on disk and visible; rethrows what the job threw. A job runs again
    /// when a transaction that it shared has failed. Sharing::Alone: the job sees all earlier writes in the
    /// indices.
    void run(Job job, Sharing sharing = Sharing::Shared);

    /// Starts removing the rows of removed indices, piece by piece between writes.
    void purgeSoon();

    /// Waits for the transaction in progress, and holds back the next one for as long as the lock is held.
    std::shared_lock<FairSharedMutex> pause() { return std::shared_lock(mGate); }

private:
    struct Entry {
        Job job;
        Sharing sharing;
        std::promise<void> done;
        std::exception_ptr error;
    };
    using EntryPtr = std::unique_ptr<Entry>;

    void loop();
    std::vector<EntryPtr> next();
    void write(std::vector<EntryPtr>& group);
    void transact(std::vector<EntryPtr>& group);
    void rollback();
    void refuse(Entry& entry, const SqliteError& error);
    /// Refuses further writes: it is no longer known what is on disk or in memory.
    void setReadOnly(const std::string& why);
    void maintain();
    void purgePiece();

    DocumentStore& mStore;
    RetiredDocuments& mRetired;
    FairSharedMutex mGate; ///< held exclusively by each transaction
    std::mutex mMutex;
    std::condition_variable mArrived;
    std::deque<EntryPtr> mWaiting;
    bool mStopping = false;
    bool mPurging = false;
    std::string mReadOnly; ///< the reason; used by the writer only
    std::atomic<bool> mIsReadOnly{false};
    std::thread mThread;
};

} // namespace kestrel::index
