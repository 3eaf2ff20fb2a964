#include "query/Scrolls.h"

#include "base/ApiError.h"
#include "base/RandomId.h"
#include "base/Work.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <set>
#include <utility>

namespace kestrel::index {

namespace {

constexpr auto kSweepPause = std::chrono::seconds(1);

ApiError unknownScroll(const std::string& id) {
    return {404, "search_context_missing_exception", fmt::format("No search context found for id [{}]", id)};
}

ApiError tooMany(const std::string& what) {
    return {429, "too_many_scroll_contexts_exception",
            fmt::format(
                "Trying to create too many scroll contexts. {}. Close scrolls that are no longer needed, or "
                "wait until they expire.",
                what)};
}

std::size_t bytesOf(const Found& found) {
    std::size_t bytes = found.rows.capacity() * sizeof(RowId) + found.scores.capacity() * sizeof(float) +
                        found.keys.capacity() * sizeof(std::int64_t);
    for (const SortColumn& column : found.columns)
        bytes += column.bytes();
    return bytes;
}

std::size_t bytesOf(const StoredDocument& document) {
    return document.id.size() + document.source.size() + sizeof(StoredDocument);
}

} // namespace

Scrolls::Scrolls(DocumentStore& store, const Limits& limits)
    : mStore(store), mLimits(limits), mSweeper([this] { sweep(); }) {
}

Scrolls::~Scrolls() {
    {
        const std::lock_guard lock(mMutex);
        mStop = true;
    }
    mStopping.notify_one();
    mSweeper.join();
}

void Scrolls::sweep() {
    std::unique_lock lock(mMutex);
    while (!mStopping.wait_for(lock, kSweepPause, [this] { return mStop; }))
        dropExpired();
}

Scrolls::Page Scrolls::open(const IndexPtr& index, SearchRequest request, std::chrono::seconds keepAlive,
                            const std::string& owner, WriteQueue& writes) {
    auto context = std::make_shared<Context>();
    context->index = index;
    context->request = std::move(request);
    context->owner = owner;
    context->opened = Clock::now();
    context->expires = Clock::time_point::max();
    const std::string id = randomId(24);
    const std::lock_guard page(context->mutex);
    {
        const std::lock_guard lock(mMutex);
        dropExpired();
        if (count(false) >= mLimits.open)
            throw tooMany(fmt::format("Must be less than or equal to: [{}]", mLimits.open));
        mContexts[id] = context;
    }
    try {
        // A transaction in progress may not have kept the documents that it removes.
        writes.pause().unlock();
        context->found = search(index, mStore, context->request, SIZE_MAX);
        for (SortColumn& column : context->found.columns)
            column.keepShownOnly();
        context->request.query = nullptr; // pages do not need it, and it may be large
        {
            const std::lock_guard lock(mMutex);
            const std::size_t others = foundBytes();
            const std::size_t bytes = bytesOf(context->found);
            if (others > 0 && others + bytes > mLimits.foundBytes)
                throw tooMany(
                    fmt::format("The open ones hold [{}] bytes, this one needs [{}]", others, bytes));
            context->bytes = bytes;
        }
        Page first = readPage(id, *context, writes);
        const std::lock_guard lock(mMutex);
        context->expires = Clock::now() + keepAlive;
        return first;
    } catch (...) {
        const std::lock_guard lock(mMutex);
        mContexts.erase(id);
        dropUnneededDocuments();
        throw;
    }
}

Scrolls::Page Scrolls::next(const std::string& id, std::chrono::seconds keepAlive, const std::string& owner,
                            WriteQueue& writes) {
    ContextPtr context;
    {
        const std::lock_guard lock(mMutex);
        dropExpired();
        const auto known = mContexts.find(id);
        if (known == mContexts.end() || known->second->owner != owner) throw unknownScroll(id);
        context = known->second;
        if (keepAlive.count() > 0) context->expires = Clock::now() + keepAlive;
    }
    const std::lock_guard lock(context->mutex);
    return readPage(id, *context, writes);
}

Scrolls::Page Scrolls::readPage(const std::string& id, Context& context, WriteQueue& writes) {
    Page page{
        id, {}, context.found.total, context.found.maximumScore, context.found.timedOut, context.request};
    const std::size_t end = std::min(context.next + context.request.size, context.found.rows.size());
    const auto first = context.found.rows.begin();
    const std::vector<StoredDocument> documents =
        read(context,
             {first + static_cast<std::ptrdiff_t>(context.next), first + static_cast<std::ptrdiff_t>(end)},
             writes);
    for (std::size_t i = 0; i < documents.size(); ++i) {
        checkStillWanted();
        page.hits.push_back(renderHit(context.found, context.next + i, documents[i], context.request.source));
        takeMemory(page.hits.back().size());
    }
    const std::lock_guard lock(mMutex);
    context.next = end;
    if (end < context.found.rows.size() || context.exhausted) return page;
    // Only the fact that it has ended is kept: the next page is empty.
    context.exhausted = true;
    dropEnded();
    Found ended;
    ended.index = context.index;
    ended.total = context.found.total;
    ended.maximumScore = context.found.maximumScore;
    ended.timedOut = context.found.timedOut;
    context.found = std::move(ended);
    context.bytes = 0;
    context.next = 0;
    dropUnneededDocuments();
    return page;
}

std::vector<StoredDocument> Scrolls::read(const Context& context, const std::vector<RowId>& rows,
                                          WriteQueue& writes) try {
    if (auto documents = mStore.read(rows)) return std::move(*documents);
    std::vector<StoredDocument> documents;
    for (const RowId row : rows) {
        checkStillWanted();
        documents.push_back(readOne(context, row, writes));
        takeMemory(documents.back().source.size());
    }
    return documents;
} catch (const DamagedRow& e) {
    context.index->setAside(e.row());
    throw ApiError(500, "i_o_exception", fmt::format("index [{}]: {}", context.index->name(), e.what()));
}

StoredDocument Scrolls::readOne(const Context& context, RowId row, WriteQueue& writes) {
    if (auto document = mStore.read(row)) return std::move(*document);
    if (auto kept = readKept(*context.index, row)) return std::move(*kept);
    {
        // The transaction that removed it may have been rolled back.
        const auto paused = writes.pause();
        if (auto document = mStore.read(row)) return std::move(*document);
    }
    throw ApiError(
        404, "search_context_missing_exception",
        "the index of the scroll was deleted, or its documents were changed beyond what is kept for scrolls");
}

std::optional<StoredDocument> Scrolls::readKept(const Index& index, RowId row) {
    const std::lock_guard lock(mMutex);
    const auto kept = mRetired.find(&index);
    if (kept == mRetired.end()) return std::nullopt;
    const auto document = kept->second.documents.find(row);
    return document == kept->second.documents.end() ? std::nullopt : std::optional(document->second);
}

void Scrolls::retire(const Index& index, RowId row, const StoredDocument& document) {
    const std::lock_guard lock(mMutex);
    const bool wanted = std::any_of(mContexts.begin(), mContexts.end(), [&](const auto& entry) {
        return !entry.second->exhausted && entry.second->index.get() == &index;
    });
    if (!wanted) return;
    Kept& kept = mRetired[&index];
    if (kept.documents.emplace(row, document).second) kept.bytes += bytesOf(document);
    while (keptBytes() > mLimits.keptBytes)
        dropOldest();
}

std::size_t Scrolls::close(const std::vector<std::string>& ids, const std::string& owner) {
    const std::lock_guard lock(mMutex);
    std::size_t closed = 0;
    for (const std::string& id : ids) {
        const auto known = mContexts.find(id);
        if (known == mContexts.end() || known->second->owner != owner) continue;
        mContexts.erase(known);
        ++closed;
    }
    dropUnneededDocuments();
    return closed;
}

std::size_t Scrolls::closeAll(const std::string& owner) {
    const std::lock_guard lock(mMutex);
    const std::size_t closed =
        std::erase_if(mContexts, [&](const auto& entry) { return entry.second->owner == owner; });
    dropUnneededDocuments();
    return closed;
}

void Scrolls::closeIndex(const Index& index) {
    const std::lock_guard lock(mMutex);
    std::erase_if(mContexts, [&](const auto& entry) { return entry.second->index.get() == &index; });
    dropUnneededDocuments();
}

void Scrolls::dropExpired() {
    const auto now = Clock::now();
    if (std::erase_if(mContexts, [&](const auto& entry) { return entry.second->expires < now; }) > 0)
        dropUnneededDocuments();
}

void Scrolls::dropOldest() {
    auto oldest = mContexts.end();
    for (auto it = mContexts.begin(); it != mContexts.end(); ++it)
        if (!it->second->exhausted && mRetired.contains(it->second->index.get()) &&
            (oldest == mContexts.end() || it->second->opened < oldest->second->opened))
            oldest = it;
    if (oldest != mContexts.end()) {
        spdlog::warn(
            "a scroll of user [{}] on index [{}] ends: documents changed beyond what is kept for scrolls",
            oldest->second->owner, oldest->second->index->name());
        mContexts.erase(oldest);
    }
    dropUnneededDocuments();
}

void Scrolls::dropEnded() {
    if (count(true) <= mLimits.ended) return;
    auto oldest = mContexts.end();
    for (auto it = mContexts.begin(); it != mContexts.end(); ++it)
        if (it->second->exhausted &&
            (oldest == mContexts.end() || it->second->opened < oldest->second->opened))
            oldest = it;
    mContexts.erase(oldest);
}

void Scrolls::dropUnneededDocuments() {
    std::set<const Index*> scrolled;
    for (const auto& [id, context] : mContexts)
        if (!context->exhausted) scrolled.insert(context->index.get());
    std::erase_if(mRetired, [&](const auto& entry) { return !scrolled.contains(entry.first); });
}

std::size_t Scrolls::count(bool exhausted) const {
    return static_cast<std::size_t>(std::count_if(mContexts.begin(), mContexts.end(), [&](const auto& entry) {
        return entry.second->exhausted == exhausted;
    }));
}

std::size_t Scrolls::foundBytes() const {
    std::size_t bytes = 0;
    for (const auto& [id, context] : mContexts)
        bytes += context->bytes;
    return bytes;
}

std::size_t Scrolls::keptBytes() const {
    std::size_t bytes = 0;
    for (const auto& [index, kept] : mRetired)
        bytes += kept.bytes;
    return bytes;
}

} // namespace kestrel::index
