#include "storage/Catalogue.h"

#include "base/ApiError.h"
#include "base/RandomId.h"
#include "storage/DataFolder.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <future>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace kestrel::index {

namespace {

constexpr std::size_t kMaximumNameBytes = 255;
constexpr std::size_t kLoadedAtOnce = 1000;

std::int64_t nowMs() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

/// Builds an index from its documents: they are taken apart by all processors, and enter the index in order.
class IndexLoader {
public:
    explicit IndexLoader(Index& index) : mIndex(index) {}

    void add(RowId row, StoredDocument document) {
        mBatch.emplace_back(row, std::move(document));
        if (mBatch.size() == kLoadedAtOnce) send();
    }

    void finish() {
        send();
        while (!mPending.empty())
            applyOldest();
    }

private:
    using Batch = std::vector<std::pair<RowId, StoredDocument>>;

    void send() {
        mPending.push_back(std::async(std::launch::async, [&index = mIndex, batch = std::move(mBatch)] {
            std::vector<DocumentChange> changes;
            for (const auto& [row, document] : batch)
                changes.push_back(changeFor(index, row, document));
            return changes;
        }));
        mBatch.clear();
        if (mPending.size() > std::max(1U, std::thread::hardware_concurrency())) applyOldest();
    }

    static DocumentChange changeFor(Index& index, RowId row, const StoredDocument& document) {
        try {
            Prepared content = index.prepare(parseJson(document.source), document.id);
            return {document.id, std::nullopt, DocumentChange::State{row, std::move(content)}};
        } catch (const ApiError& e) {
            throw DataFolderError(
                fmt::format("document [{}] of index [{}] is damaged: {}; nothing was changed", document.id,
                            index.name(), e.what()));
        }
    }

    void applyOldest() {
        mIndex.apply(mPending.front().get());
        mPending.pop_front();
    }

    Index& mIndex;
    Batch mBatch;
    std::deque<std::future<std::vector<DocumentChange>>> mPending;
};

} // namespace

void checkIndexName(const std::string& name) {
    const auto refuse = [&name](const std::string& why) {
        throw ApiError(400, "invalid_index_name_exception",
                       fmt::format("Invalid index name [{}], {}", name, why),
                       {{"index_uuid", "_na_"}, {"index", name}});
    };
    if (name.empty() || name == "." || name == "..") refuse("must not be empty, '.' or '..'");
    if (name.size() > kMaximumNameBytes)
        refuse(fmt::format("index name is too long, ({} > 255)", name.size()));
    if (name.find_first_of("_-+") == 0) refuse("must not start with '_', '-', or '+'");
    if (name.find_first_of(R"( "*\<|,>/?#:)") != std::string::npos)
        refuse(
            R"(must not contain the following characters [' ','"','*','\\','<','|',',','>','/','?','#',':'])");
    if (std::any_of(name.begin(), name.end(), [](char c) { return c >= 'A' && c <= 'Z'; }))
        refuse("must be lowercase");
}

bool matchesPattern(std::string_view pattern, std::string_view text) {
    std::size_t p = 0, t = 0, star = std::string_view::npos, retry = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            retry = t;
        } else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == text[t])) {
            ++p;
            ++t;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            t = ++retry;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*')
        ++p;
    return p == pattern.size();
}

void Catalogue::load() {
    const auto started = std::chrono::steady_clock::now();
    std::size_t documents = 0;
    for (const DocumentStore::StoredIndex& stored : mStore.indices()) {
        auto index = std::make_shared<Index>(stored.info, stored.mappings, stored.lastRow);
        IndexLoader loader(*index);
        mStore.forEachDocument(stored, [&](RowId row, StoredDocument document) {
            loader.add(row, std::move(document));
            ++documents;
        });
        loader.finish();
        insert(index);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
    spdlog::info("{} documents in {} indices read in {:.2f} s", documents, mByName.size(), took.count());
}

void Catalogue::insert(const IndexPtr& index) {
    const std::unique_lock lock(mMutex);
    mByName[index->name()] = index;
}

IndexPtr Catalogue::find(const std::string& name) const {
    const std::shared_lock lock(mMutex);
    const auto found = mByName.find(name);
    return found == mByName.end() ? nullptr : found->second;
}

IndexPtr Catalogue::get(const std::string& name) const {
    if (IndexPtr index = find(name)) return index;
    throw indexNotFound(name);
}

std::vector<IndexPtr> Catalogue::all() const {
    const std::shared_lock lock(mMutex);
    std::vector<IndexPtr> indices;
    for (const auto& [name, index] : mByName)
        indices.push_back(index);
    return indices;
}

IndexPtr Catalogue::create(const std::string& name, const Json& settings, const Json& mappings) {
    checkIndexName(name);
    const Mapping checked(mappings); // refuses what cannot be mapped before anything is written
    IndexPtr created;
    mWrites.run(
        [&](WriteBatch& batch) {
            if (const IndexPtr existing = find(name))
                throw ApiError(400, "resource_already_exists_exception",
                               fmt::format("index [{}/{}] already exists", name, existing->info().uuid),
                               {{"index_uuid", existing->info().uuid}, {"index", name}});
            IndexInfo info{0, name, randomId(16), nowMs(), settings};
            info.number = batch.store().insertIndex(info, checked.toJson());
            const RowId first = info.number << kSequenceBits;
            created = std::make_shared<Index>(std::move(info), mappings, first);
            batch.afterCommit([this, created] { insert(created); });
        },
        WriteQueue::Sharing::alone);
    return created;
}

IndexPtr Catalogue::getOrCreate(const std::string& name) {
    if (IndexPtr index = find(name)) return index;
    try {
        return create(name, Json::object(), Json::object());
    } catch (const ApiError& e) {
        // Another writer was faster.
        if (e.type() != "resource_already_exists_exception") throw;
        return get(name);
    }
}

void Catalogue::remove(const std::string& name) {
    mWrites.run(
        [&](WriteBatch& batch) {
            const IndexPtr index = get(name);
            batch.store().removeIndex(index->info().number);
            batch.afterCommit([this, index] {
                index->markDeleted();
                const std::unique_lock lock(mMutex);
                mByName.erase(index->name());
            });
        },
        WriteQueue::Sharing::alone);
}

} // namespace kestrel::index
