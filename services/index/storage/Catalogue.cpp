#include "storage/Catalogue.h"

#include "common/RandomId.h"
#include "http/ApiError.h"
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

namespace kestrel {

namespace {

constexpr std::size_t maximumNameBytes = 255;
constexpr std::size_t loadedAtOnce = 1000;

std::int64_t nowMs() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

/// Builds an index from its documents: they are taken apart by all processors, and enter the index in order.
class IndexLoader {
public:
    explicit IndexLoader(Index& index) : index_(index) {}

    void add(RowId row, StoredDocument document) {
        batch_.emplace_back(row, std::move(document));
        if (batch_.size() == loadedAtOnce) send();
    }

    void finish() {
        send();
        while (!pending_.empty())
            applyOldest();
    }

private:
    using Batch = std::vector<std::pair<RowId, StoredDocument>>;

    void send() {
        pending_.push_back(std::async(std::launch::async, [&index = index_, batch = std::move(batch_)] {
            std::vector<DocumentChange> changes;
            for (const auto& [row, document] : batch)
                changes.push_back(changeFor(index, row, document));
            return changes;
        }));
        batch_.clear();
        if (pending_.size() > std::max(1U, std::thread::hardware_concurrency())) applyOldest();
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
        index_.apply(pending_.front().get());
        pending_.pop_front();
    }

    Index& index_;
    Batch batch_;
    std::deque<std::future<std::vector<DocumentChange>>> pending_;
};

} // namespace

void checkIndexName(const std::string& name) {
    const auto refuse = [&name](const std::string& why) {
        throw ApiError(400, "invalid_index_name_exception",
                       fmt::format("Invalid index name [{}], {}", name, why),
                       {{"index_uuid", "_na_"}, {"index", name}});
    };
    if (name.empty() || name == "." || name == "..") refuse("must not be empty, '.' or '..'");
    if (name.size() > maximumNameBytes)
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
    for (const DocumentStore::StoredIndex& stored : store_.indices()) {
        auto index = std::make_shared<Index>(stored.info, stored.mappings, stored.lastRow);
        IndexLoader loader(*index);
        store_.forEachDocument(stored, [&](RowId row, StoredDocument document) {
            loader.add(row, std::move(document));
            ++documents;
        });
        loader.finish();
        insert(index);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
    spdlog::info("{} documents in {} indices read in {:.2f} s", documents, byName_.size(), took.count());
}

void Catalogue::insert(const IndexPtr& index) {
    const std::unique_lock lock(mutex_);
    byName_[index->name()] = index;
}

IndexPtr Catalogue::find(const std::string& name) const {
    const std::shared_lock lock(mutex_);
    const auto found = byName_.find(name);
    return found == byName_.end() ? nullptr : found->second;
}

IndexPtr Catalogue::get(const std::string& name) const {
    if (IndexPtr index = find(name)) return index;
    throw indexNotFound(name);
}

std::vector<IndexPtr> Catalogue::all() const {
    const std::shared_lock lock(mutex_);
    std::vector<IndexPtr> indices;
    for (const auto& [name, index] : byName_)
        indices.push_back(index);
    return indices;
}

IndexPtr Catalogue::create(const std::string& name, const Json& settings, const Json& mappings) {
    checkIndexName(name);
    const Mapping checked(mappings); // refuses what cannot be mapped before anything is written
    IndexPtr created;
    writes_.run(
        [&](WriteBatch& batch) {
            if (const IndexPtr existing = find(name))
                throw ApiError(400, "resource_already_exists_exception",
                               fmt::format("index [{}/{}] already exists", name, existing->info().uuid),
                               {{"index_uuid", existing->info().uuid}, {"index", name}});
            IndexInfo info{0, name, randomId(16), nowMs(), settings};
            info.number = batch.store().insertIndex(info, checked.toJson());
            const RowId first = info.number << sequenceBits;
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
    writes_.run(
        [&](WriteBatch& batch) {
            const IndexPtr index = get(name);
            batch.store().removeIndex(index->info().number);
            batch.afterCommit([this, index] {
                index->markDeleted();
                const std::unique_lock lock(mutex_);
                byName_.erase(index->name());
            });
        },
        WriteQueue::Sharing::alone);
}

} // namespace kestrel
