#pragma once

#include "query/Search.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kestrel::index {

/// The open scrolls: lists of hits at the time when the scroll was opened. Documents that are changed or
/// deleted while a scroll may still show them are kept here. Memory is bounded: a scroll that would need more
/// is refused, and when the kept documents need more the oldest scrolls end.
class Scrolls final : public RetiredDocuments {
public:
    struct Limits {
        std::size_t open = 500;
        std::size_t ended = 10'000; ///< remembered, for a last empty page
        std::size_t foundBytes = std::size_t{256} * 1024 * 1024;
        std::size_t keptBytes = std::size_t{128} * 1024 * 1024;
    };

    explicit Scrolls(DocumentStore& store) : Scrolls(store, Limits()) {}
    Scrolls(DocumentStore& store, const Limits& limits);
    ~Scrolls() override;
    Scrolls(const Scrolls&) = delete;
    Scrolls& operator=(const Scrolls&) = delete;

    struct Page {
        std::string id;
        std::vector<std::string> hits;
        std::uint64_t total = 0;
        std::optional<float> maximumScore;
        bool timedOut = false;
        SearchRequest request;
    };

    /// Opens a scroll and returns its first page. Waits for the transaction in progress but does not hold up
    /// later ones, which keep the documents that they remove.
    Page open(const IndexPtr& index, SearchRequest request, std::chrono::seconds keepAlive,
              const std::string& owner, WriteQueue& writes);
    /// Throws an ApiError with status 404 when there is no such scroll, or it belongs to another user.
    Page next(const std::string& id, std::chrono::seconds keepAlive, const std::string& owner,
              WriteQueue& writes);
    /// Returns how many scrolls were closed.
    std::size_t close(const std::vector<std::string>& ids, const std::string& owner);
    std::size_t closeAll(const std::string& owner);
    void closeIndex(const Index& index);

    void retire(const Index& index, RowId row, const StoredDocument& document) override;

private:
    using Clock = std::chrono::steady_clock;
    struct Context {
        std::mutex mutex; ///< one page at a time
        IndexPtr index;
        Found found;
        SearchRequest request;
        std::size_t next = 0;
        std::size_t bytes = 0; ///< of found
        std::string owner;
        Clock::time_point opened;
        Clock::time_point expires;
        bool exhausted = false;
    };
    using ContextPtr = std::shared_ptr<Context>;
    struct Kept {
        std::map<RowId, StoredDocument> documents;
        std::size_t bytes = 0;
    };

    Page readPage(const std::string& id, Context& context, WriteQueue& writes);
    std::vector<StoredDocument> read(const Context& context, const std::vector<RowId>& rows,
                                     WriteQueue& writes);
    StoredDocument readOne(const Context& context, RowId row, WriteQueue& writes);
    std::optional<StoredDocument> readKept(const Index& index, RowId row);
    void sweep();
    void dropExpired();
    void dropOldest();
    void dropEnded();
    void dropUnneededDocuments();
    std::size_t count(bool exhausted) const;
    std::size_t foundBytes() const;
    std::size_t keptBytes() const;

    DocumentStore& mStore;
    const Limits mLimits;
    std::mutex mMutex;
    std::map<std::string, ContextPtr> mContexts;
    std::map<const Index*, Kept> mRetired;
    std::condition_variable mStopping;
    bool mStop = false;
    std::thread mSweeper;
};

} // namespace kestrel::index
