#include "query/Scrolls.h"

#include "base/ApiError.h"
#include "base/RandomId.h"
#include "base/Work.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace kestrel::index {

namespace {

constexpr std::size_t kMaximumContexts = 500;

ApiError unknownScroll(const std::string& id) {
    return {404, "search_context_missing_exception", fmt::format("No search context found for id [{}]", id)};
}

} // namespace

Scrolls::Page Scrolls::open(Found found, SearchRequest request, std::chrono::seconds keepAlive,
                            const std::string& owner) {
    auto context = std::make_shared<Context>();
    context->found = std::move(found);
    context->request = std::move(request);
    context->owner = owner;
    context->expires = Clock::now() + keepAlive;
    const std::string id = randomId(24);
    {
        const std::lock_guard lock(mMutex);
        dropExpired();
        if (openCount() >= kMaximumContexts)
            throw ApiError(
                429, "too_many_scroll_contexts_exception",
                fmt::format("Trying to create too many scroll contexts. Must be less than or equal to: [{}]. "
                            "Close scrolls that are no longer needed, or wait until they expire.",
                            kMaximumContexts));
        mContexts[id] = context;
    }
    const std::lock_guard lock(context->mutex);
    return readPage(id, *context);
}

Scrolls::Page Scrolls::next(const std::string& id, std::chrono::seconds keepAlive, const std::string& owner) {
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
    return readPage(id, *context);
}

Scrolls::Page Scrolls::readPage(const std::string& id, Context& context) {
    Page page{id, {}, context.found.total, context.found.maximumScore, context.request};
    const std::size_t end = std::min(context.next + context.request.size, context.found.rows.size());
    for (std::size_t position = context.next; position < end; ++position) {
        checkStillWanted();
        page.hits.push_back(renderHit(context.found, position, read(context.found.rows[position]),
                                      context.request.withSource));
        takeMemory(page.hits.back().size());
    }
    const std::lock_guard lock(mMutex);
    context.next = end;
    if (end < context.found.rows.size() || context.exhausted) return page;
    // Only the memory of having ended is kept: the next page is empty.
    context.exhausted = true;
    context.found.rows = {};
    context.found.keys = {};
    context.found.scores = {};
    context.next = 0;
    dropUnneededDocuments();
    return page;
}

StoredDocument Scrolls::read(RowId row) {
    if (auto document = mStore.read(row)) return std::move(*document);
    const std::lock_guard lock(mMutex);
    for (const auto& [index, documents] : mRetired)
        if (const auto kept = documents.find(row); kept != documents.end()) return kept->second;
    throw ApiError(404, "search_context_missing_exception", "the index of the scroll was deleted");
}

void Scrolls::retire(const Index& index, RowId row, const StoredDocument& document) {
    const std::lock_guard lock(mMutex);
    const bool wanted = std::any_of(mContexts.begin(), mContexts.end(), [&](const auto& entry) {
        return !entry.second->exhausted && entry.second->found.index.get() == &index;
    });
    if (wanted) mRetired[&index][row] = document;
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
    std::erase_if(mContexts, [&](const auto& entry) { return entry.second->found.index.get() == &index; });
    dropUnneededDocuments();
}

void Scrolls::dropExpired() {
    const auto now = Clock::now();
    if (std::erase_if(mContexts, [&](const auto& entry) { return entry.second->expires < now; }) > 0)
        dropUnneededDocuments();
}

void Scrolls::dropUnneededDocuments() {
    std::set<const Index*> scrolled;
    for (const auto& [id, context] : mContexts)
        if (!context->exhausted) scrolled.insert(context->found.index.get());
    std::erase_if(mRetired, [&](const auto& entry) { return !scrolled.contains(entry.first); });
}

std::size_t Scrolls::openCount() const {
    return static_cast<std::size_t>(std::count_if(
        mContexts.begin(), mContexts.end(), [](const auto& entry) { return !entry.second->exhausted; }));
}

} // namespace kestrel::index
