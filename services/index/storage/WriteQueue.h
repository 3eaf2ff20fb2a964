#pragma once

#include "engine/Index.h"
#include "storage/DocumentStore.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
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
/// afterwards.
class WriteBatch {
public:
    WriteBatch(DocumentStore& store, RetiredDocuments& retired) : mStore(store), mRetired(retired) {}

    DocumentStore& store() { return mStore; }
    /// The document's row as earlier writes of the batch left it.
    std::optional<RowId> rowOf(const IndexPtr& index, const std::string& id) const;
    StoredDocument load(RowId row);

    /// Writes a document that is not there. Gives its row.
    RowId add(const IndexPtr& index, const std::string& id, std::string_view source, Prepared content);
    /// Writes the next state of a document that is there.
    RowId replace(const IndexPtr& index, const StoredDocument& old, RowId oldRow, std::string_view source,
                  Prepared content);
    void remove(const IndexPtr& index, const StoredDocument& old, RowId oldRow);
    /// To be done once the batch is on disk, in order with the changes of documents.
    void afterCommit(std::function<void()> action);

private:
    friend class WriteQueue;
    using Key = std::pair<const Index*, std::string>;

    void setRow(const IndexPtr& index, const std::string& id, std::optional<RowId> row);
    void change(const IndexPtr& index, DocumentChange change);
    void storeMappings();
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
    std::vector<std::pair<Key, std::optional<std::optional<RowId>>>> mUndo;
};

/// One thread writes for all. Jobs that wait while a transaction reaches the disk share the next one, so that
/// many writers cost one flush.
class WriteQueue {
public:
    using Job = std::function<void(WriteBatch&)>;
    enum class Sharing { shared, alone };

    WriteQueue(DocumentStore& store, RetiredDocuments& retired);
    ~WriteQueue();
    WriteQueue(const WriteQueue&) = delete;
    WriteQueue& operator=(const WriteQueue&) = delete;

    /// Returns when what the job wrote is on disk and visible; throws what it threw. A job may be run twice
    /// (when the transaction that it shared failed). A job alone sees every earlier write in the indices.
    void run(Job job, Sharing sharing = Sharing::shared);

    /// Keeps documents from changing while it is held.
    std::unique_lock<std::mutex> pause() { return std::unique_lock(mGate); }

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

    DocumentStore& mStore;
    RetiredDocuments& mRetired;
    std::mutex mGate;
    std::mutex mMutex;
    std::condition_variable mArrived;
    std::deque<EntryPtr> mWaiting;
    bool mStopping = false;
    std::thread mThread;
};

} // namespace kestrel::index
