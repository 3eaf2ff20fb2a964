#pragma once

#include "query/Search.h"

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kestrel::index {

/// The open scrolls: lists of hits as they were when the scroll began. Documents that are changed or deleted
/// while a scroll may still show them are kept here.
class Scrolls final : public RetiredDocuments {
public:
    explicit Scrolls(DocumentStore& store) : mStore(store) {}

    struct Page {
        std::string id;
        std::vector<std::string> hits;
        std::uint64_t total = 0;
        std::optional<float> maximumScore;
        SearchRequest request;
    };

    /// Opens a scroll and gives its first page. The writer must be paused between the search and this call,
    /// so that no document slips away in between.
    Page open(Found found, SearchRequest request, std::chrono::seconds keepAlive, const std::string& owner);
    /// Refuses with 404 when there is no such scroll, or it is another user's.
    Page next(const std::string& id, std::chrono::seconds keepAlive, const std::string& owner);
    /// How many of the scrolls were there to be closed.
    std::size_t close(const std::vector<std::string>& ids, const std::string& owner);
    std::size_t closeAll(const std::string& owner);
    void closeIndex(const Index& index);

    void retire(const Index& index, RowId row, const StoredDocument& document) override;

private:
    using Clock = std::chrono::steady_clock;
    struct Context {
        std::mutex mutex; ///< one page at a time
        Found found;
        SearchRequest request;
        std::size_t next = 0;
        std::string owner;
        Clock::time_point expires;
        bool exhausted = false;
    };
    using ContextPtr = std::shared_ptr<Context>;

    Page readPage(const std::string& id, Context& context);
    StoredDocument read(RowId row);
    void dropExpired();
    void dropUnneededDocuments();
    std::size_t openCount() const;

    DocumentStore& mStore;
    std::mutex mMutex;
    std::map<std::string, ContextPtr> mContexts;
    std::map<const Index*, std::map<RowId, StoredDocument>> mRetired;
};

} // namespace kestrel::index
