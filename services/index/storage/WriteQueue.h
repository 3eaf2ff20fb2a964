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
#include <shared_mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kestrel::index {

using IndexPtr = std::shared_ptr<Index>;

/// Learns of documents that are about to leave the store, before they do.
class RetiredDocuments {
public:
    virtual ~RetiredDocuments() = default;
    virtual void retire(const Index& index, RowId row, const StoredDocument& document) = 0;
};

/// The writes of one transaction. They reach the disk together; the indices in memory learn of them
/// afterwards, of fields that they add to mappings too. What can fail fails before anything of it is seen.
class WriteBatch {
public:
    WriteBatch(DocumentStore& store, RetiredDocuments& retired) : mStore(store), mRetired(retired) {}

    DocumentStore& store() { return mStore; }
    /// The document's row as earlier writes of the batch left it.
    std::optional<RowId> rowOf(const IndexPtr& index, const std::string& id) const;
    /// Throws an ApiError when the document is damaged.
    StoredDocument load(RowId row);
    /// As load, for a document that is to be replaced or deleted whatever state it is in.
    struct Old {
        StoredDocument document;
        RowId row;
        bool readable = true;
    };
    Old loadOld(const IndexPtr& index, const std::string& id, RowId row);
    RowId takeRow(const IndexPtr& index);

    /// Takes a document apart, adding the fields that the mapping lacks. Call it last before the write, when
    /// nothing else can refuse the document: fields of refused documents are not kept.
    Prepared prepare(const IndexPtr& index, const Json& document, const std::string& id);

    struct Written {
        RowId row;
        std::int64_t version;
    };
    /// Writes a document that is not there.
    Written add(const IndexPtr& index, const std::string& id, std::string_view source, Prepared content);
    /// Writes the next state of a document that is there.
    Written replace(const IndexPtr& index, const Old& old, std::string_view source, Prepared content);
    Written remove(const IndexPtr& index, const Old& old);
    /// To be done once the batch is on disk, in order with the changes of documents. Must not throw.
    void afterCommit(std::function<void()> action);

private:
    friend class WriteQueue;
    using Key = std::pair<const Index*, std::string>;

    MappingPtr mappingOf(const IndexPtr& index) const;
    /// What the index holds of a stored document; nothing of one that cannot be indexed.
    Prepared contentOf(const IndexPtr& index, const Old& old);
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
        std::function<void()> action; ///< set: the step is this and not a change
    };

    DocumentStore& mStore;
    RetiredDocuments& mRetired;
    std::vector<Step> mSteps;
    std::map<Key, std::optional<RowId>> mRows;
    std::map<IndexPtr, MappingPtr> mMappings; ///< those with further fields
    std::map<IndexPtr, std::size_t> mTouched; ///< indices that rows were taken of
    std::size_t mChildren = 0;                ///< nested objects of all documents
    std::vector<std::function<void()>> mUndo;
};

/// One thread writes for all. Jobs that wait while a transaction reaches the disk share the next one, so that
/// many writers cost one flush.
class WriteQueue {
public:
    using Job = std::function<void(WriteBatch&)>;
    enum class Sharing { Shared, Alone };

    WriteQueue(DocumentStore& store, RetiredDocuments& retired);
    ~WriteQueue();
    WriteQueue(const WriteQueue&) = delete;
    WriteQueue& operator=(const WriteQueue&) = delete;

    /// Returns when what the job wrote is on disk and visible; throws what it threw. A job may be run twice
    /// (when the transaction that it shared failed). A job alone sees every earlier write in the indices.
    void run(Job job, Sharing sharing = Sharing::Shared);

    /// Has rows of removed indices removed, piece by piece between the writes.
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
    /// Refuses further writes: what is on disk, or in memory, is no longer known for certain.
    void setReadOnly(const std::string& why);
    void maintain();
    void purgePiece();

    DocumentStore& mStore;
    RetiredDocuments& mRetired;
    FairSharedMutex mGate; ///< exclusive: a transaction
    std::mutex mMutex;
    std::condition_variable mArrived;
    std::deque<EntryPtr> mWaiting;
    bool mStopping = false;
    bool mPurging = false;
    std::string mReadOnly; ///< why; written by the writer alone
    std::atomic<bool> mIsReadOnly{false};
    std::thread mThread;
};

} // namespace kestrel::index
