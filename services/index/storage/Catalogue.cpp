#include "storage/Catalogue.h"

#include "base/ApiError.h"
#include "base/RandomId.h"
#include "engine/SnapshotFile.h"
#include "storage/Snapshots.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <future>
#include <iterator>
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

/// Builds an index from its documents, which are parsed on all processors and added in order.
class IndexLoader {
public:
    explicit IndexLoader(Index& index) : mIndex(index) {}

    void add(RowId row, StoredDocument document, bool intact) {
        mBatch.push_back({row, std::move(document), intact});
        if (mBatch.size() == kLoadedAtOnce) send();
    }

    void finish() {
        send();
        while (!mPending.empty())
            applyOldest();
    }

    std::size_t setAside() const { return mSetAside; }
    bool extendedMapping() const { return mExtendedMapping; }

private:
    struct Loaded {
        RowId row;
        StoredDocument document;
        bool intact;
    };
    struct Taken {
        DocumentChange change;
        std::string source; ///< kept when the mapping lacks fields of the document
    };

    void send() {
        mPending.push_back(
            std::async(std::launch::async, [&index = mIndex, batch = std::move(mBatch)]() mutable {
                std::vector<Taken> taken;
                for (Loaded& loaded : batch)
                    taken.push_back(takeApart(index, loaded));
                return taken;
            }));
        mBatch.clear();
        if (mPending.size() > std::max(1U, std::thread::hardware_concurrency())) applyOldest();
    }

    static Taken takeApart(const Index& index, Loaded& loaded) {
        const StoredDocument& document = loaded.document;
        Taken taken{{document.id, std::nullopt, DocumentChange::State{loaded.row, nullptr}}, {}};
        if (!loaded.intact) {
            spdlog::error("document [{}] of index [{}] is damaged: it is set aside", document.id,
                          index.name());
            return taken;
        }
        try {
            taken.change.added->content = index.prepare(parseStored(document.source), document.id);
            if (!taken.change.added->content) taken.source = std::move(loaded.document.source);
        } catch (const ApiError& e) {
            // It can be read, but not searched.
            spdlog::error("document [{}] of index [{}] does not fit its mapping: {}", document.id,
                          index.name(), e.what());
            taken.change.added->content = std::make_shared<const PreparedDocument>();
        } catch (const Json::exception& e) {
            spdlog::error("document [{}] of index [{}] is damaged ({}): it is set aside", document.id,
                          index.name(), e.what());
        }
        return taken;
    }

    void applyOldest() {
        std::vector<DocumentChange> changes;
        for (Taken& taken : mPending.front().get()) {
            if (!taken.source.empty()) taken.change.added->content = extendFor(taken);
            mSetAside += taken.change.added->content ? 0U : 1U;
            changes.push_back(std::move(taken.change));
        }
        mIndex.apply(changes);
        mPending.pop_front();
    }

    /// For a document with fields that the mapping lacks, which earlier versions could store.
    Prepared extendFor(const Taken& taken) {
        auto mapping = std::make_shared<Mapping>(*mIndex.mapping());
        try {
            auto prepared = DocumentParser(*mapping).parse(parseStored(taken.source), taken.change.id);
            mIndex.setMapping(std::move(mapping));
            mExtendedMapping = true;
            return std::make_shared<const PreparedDocument>(std::move(*prepared));
        } catch (const ApiError& e) {
            spdlog::error("document [{}] of index [{}] does not fit its mapping: {}", taken.change.id,
                          mIndex.name(), e.what());
            return std::make_shared<const PreparedDocument>();
        }
    }

    Index& mIndex;
    std::vector<Loaded> mBatch;
    std::deque<std::future<std::vector<Taken>>> mPending;
    std::size_t mSetAside = 0;
    bool mExtendedMapping = false;
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

IndexPtr Catalogue::fromSnapshot(const DocumentStore::StoredIndex& stored, const std::filesystem::path& file,
                                 RowId& covered) try {
    if (!std::filesystem::exists(file)) return nullptr;
    SnapshotReader reader(file);
    auto index = std::make_shared<Index>(stored.info, stored.mapping, stored.lastRow);
    covered = index->load(reader);
    reader.finish();
    std::vector<RowId> present = mStore.rowsUpTo(stored.info.number, covered);
    std::sort(present.begin(), present.end());
    const std::vector<RowId> known = index->rows();
    if (covered > stored.lastRow ||
        !std::includes(known.begin(), known.end(), present.begin(), present.end()))
        throw SnapshotError("the snapshot is not of these documents");
    std::vector<RowId> gone;
    std::set_difference(known.begin(), known.end(), present.begin(), present.end(), std::back_inserter(gone));
    if (!gone.empty()) index->forget(gone);
    index->requireIntact();
    return index;
} catch (const SnapshotError& e) {
    spdlog::warn("index [{}] is rebuilt from its documents: {}", stored.info.name, e.what());
    // Once later writes reach its row numbers it could be mistaken for a valid one.
    std::error_code ignored;
    std::filesystem::remove(file, ignored);
    return nullptr;
}

void Catalogue::load(const std::filesystem::path& snapshots) {
    const auto started = std::chrono::steady_clock::now();
    std::size_t documents = 0;
    std::size_t read = 0;
    for (const DocumentStore::StoredIndex& stored : mStore.indices()) {
        if (!stored.mapping) {
            mDamaged[stored.info.name] = stored.info.number;
            continue;
        }
        RowId covered = 0;
        IndexPtr index = fromSnapshot(stored, Snapshots::fileOf(snapshots, stored.info), covered);
        if (!index) {
            covered = 0;
            index = std::make_shared<Index>(stored.info, stored.mapping, stored.lastRow);
        }
        IndexLoader loader(*index);
        mStore.forEachDocument(stored, covered, [&](RowId row, StoredDocument document, bool intact) {
            loader.add(row, std::move(document), intact);
            ++read;
        });
        loader.finish();
        documents += index->documentCount();
        mStore.forEachTombstone(stored.info.number, [&](const std::string& id) { index->remember(id); });
        if (loader.extendedMapping())
            mWrites.run([&](WriteBatch& batch) {
                batch.store().updateMapping(stored.info.number, *index->mapping());
            });
        if (loader.setAside() > 0)
            spdlog::error(
                "{} documents of index [{}] are damaged and set aside: write them again, delete them, or "
                "restore a backup",
                loader.setAside(), index->name());
        insert(index);
    }
    mWrites.purgeSoon();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
    spdlog::info("{} documents in {} indices are ready after {:.2f} s; {} of them were read", documents,
                 mByName.size(), took.count(), read);
}

void Catalogue::insert(const IndexPtr& index) {
    const std::unique_lock lock(mMutex);
    mByName[index->name()] = index;
}

IndexPtr Catalogue::find(const std::string& name) const {
    const std::shared_lock lock(mMutex);
    const auto found = mByName.find(name);
    if (found != mByName.end()) return found->second;
    if (mDamaged.contains(name))
        throw ApiError(
            500, "corrupt_index_exception",
            fmt::format("the description of index [{}] is damaged: delete the index, or restore a backup",
                        name),
            {{"index", name}});
    return nullptr;
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
    const auto mapping = std::make_shared<const Mapping>(mappings); // refuses before anything is written
    IndexPtr created;
    mWrites.run(
        [&](WriteBatch& batch) {
            if (const IndexPtr existing = find(name))
                throw ApiError(400, "resource_already_exists_exception",
                               fmt::format("index [{}/{}] already exists", name, existing->info().uuid),
                               {{"index_uuid", existing->info().uuid}, {"index", name}});
            IndexInfo info{0, name, randomId(16), nowMs(), settings};
            info.number = batch.store().insertIndex(info, *mapping);
            const RowId first = info.number << kSequenceBits;
            created = std::make_shared<Index>(std::move(info), mapping, first);
            batch.afterCommit([this, created] { insert(created); });
        },
        WriteQueue::Sharing::Alone);
    return created;
}

IndexPtr Catalogue::getOrCreate(const std::string& name) {
    if (IndexPtr index = find(name)) return index;
    try {
        return create(name, Json::object(), Json::object());
    } catch (const ApiError& e) {
        // Another request was faster.
        if (e.type() != "resource_already_exists_exception") throw;
        return get(name);
    }
}

IndexPtr Catalogue::remove(const std::string& name) {
    IndexPtr index;
    mWrites.run(
        [&](WriteBatch& batch) {
            if (const auto damaged = damagedNumber(name)) {
                batch.store().removeIndex(*damaged);
                batch.afterCommit([this, name] {
                    const std::unique_lock lock(mMutex);
                    mDamaged.erase(name);
                });
                return;
            }
            index = get(name);
            batch.store().removeIndex(index->info().number);
            batch.afterCommit([this, &index] {
                index->markDeleted();
                const std::unique_lock lock(mMutex);
                mByName.erase(index->name());
            });
        },
        WriteQueue::Sharing::Alone);
    mWrites.purgeSoon();
    return index;
}

std::optional<std::int64_t> Catalogue::damagedNumber(const std::string& name) const {
    const std::shared_lock lock(mMutex);
    const auto found = mDamaged.find(name);
    return found == mDamaged.end() ? std::nullopt : std::optional(found->second);
}

} // namespace kestrel::index
