#include "tools/Check.h"

#include "base/ApiError.h"
#include "engine/SnapshotFile.h"
#include "storage/DataFolder.h"
#include "storage/Schema.h"
#include "storage/Snapshots.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <iterator>
#include <map>
#include <memory>
#include <set>

namespace kestrel::index {

namespace {

constexpr std::size_t kShownFindings = 100;
constexpr std::size_t kProgressStep = 20'000;

class Checker {
public:
    Checker(const std::filesystem::path& documents, std::filesystem::path snapshots, const Progress& progress)
        : mConnection(documents, SqliteConnection::Access::ReadOnly), mSnapshots(std::move(snapshots)),
          mProgress(progress) {
        if (schema::isOutdated(mConnection, documents))
            throw DataFolderError(fmt::format(
                "{} has an earlier format: start the service on it once to upgrade it", documents.string()));
        // Everything below reads the same state of the database.
        mConnection.execute("BEGIN");
    }

    CheckReport run() {
        checkStructure();
        readIndices();
        checkSecurity();
        checkDocuments();
        for (auto& [number, index] : mIndices)
            checkSnapshot(*index);
        return std::move(mReport);
    }

private:
    template <typename... Args>
    void found(fmt::format_string<Args...> text, Args&&... args) {
        if (++mReport.findings <= kShownFindings)
            mReport.damage.push_back(fmt::format(text, std::forward<Args>(args)...));
    }

    void checkStructure() {
        SqliteStatement statement(mConnection, "PRAGMA integrity_check");
        while (statement.step())
            if (const std::string line = statement.text(0); line != "ok") found("database: {}", line);
    }

    void readIndices() {
        SqliteStatement removed(mConnection, "SELECT number FROM removed_indices");
        while (removed.step())
            mRemoved.insert(removed.integer(0));
        SqliteStatement statement(
            mConnection, "SELECT number, name, uuid, created, settings, mappings, checksum FROM indices");
        while (statement.step()) {
            const std::string name = statement.text(1);
            ++mReport.indices;
            mKnown.insert(statement.integer(0));
            if (statement.integer(6) != schema::indexChecksum(name, statement.textView(2),
                                                              statement.integer(3), statement.textView(4),
                                                              statement.textView(5)))
                found("index [{}]: the checksum of its description is wrong", name);
            try {
                auto mapping =
                    std::make_shared<const Mapping>(Mapping::fromStored(Json::parse(statement.textView(5))));
                IndexInfo info{statement.integer(0), name, statement.text(2), statement.integer(3),
                               Json::object()};
                const std::int64_t number = info.number;
                mIndices[number] = std::make_unique<Index>(std::move(info), std::move(mapping), 0);
            } catch (const std::exception& e) {
                found("index [{}]: its mapping cannot be read: {}", name, e.what());
            }
        }
    }

    void checkSecurity() {
        SqliteStatement statement(mConnection, "SELECT kind, name, body, checksum FROM security");
        while (statement.step())
            if (statement.integer(3) !=
                schema::securityChecksum(statement.textView(0), statement.textView(1), statement.textView(2)))
                found("{} [{}]: the checksum is wrong", statement.text(0), statement.text(1));
    }

    void checkDocuments() {
        SqliteStatement count(mConnection, "SELECT count(*) FROM documents");
        count.step();
        const auto all = static_cast<std::size_t>(count.integer(0));
        SqliteStatement statement(mConnection,
                                  "SELECT row, id, version, source, checksum FROM documents ORDER BY row");
        while (statement.step()) {
            checkDocument(statement);
            if (++mReport.documents % kProgressStep == 0) mProgress(mReport.documents, all);
        }
        mProgress(mReport.documents, all);
        SqliteStatement twice(mConnection,
                              "SELECT row >> 40, id, count(*) FROM documents NOT INDEXED GROUP BY row >> "
                              "40, id HAVING count(*) > 1");
        while (twice.step())
            found("index number {}: identifier [{}] exists {} times", twice.integer(0), twice.text(1),
                  twice.integer(2));
    }

    void checkDocument(const SqliteStatement& row) {
        const std::int64_t number = row.integer(0) >> kSequenceBits;
        const std::string id = row.text(1);
        if (mRemoved.contains(number)) return;
        if (!mKnown.contains(number)) {
            found("document [{}] (row {}) belongs to no index", id, row.integer(0));
            return;
        }
        const auto index = mIndices.find(number);
        const std::string name = index == mIndices.end() ? std::to_string(number) : index->second->name();
        DocumentChange change{id, std::nullopt, DocumentChange::State{row.integer(0), nullptr}};
        if (row.integer(4) != schema::documentChecksum(row.integer(0), id, row.integer(2), row.textView(3))) {
            found("index [{}]: document [{}] (row {}): the checksum is wrong", name, id, row.integer(0));
        } else if (index != mIndices.end()) {
            try {
                change.added->content = index->second->prepare(parseStored(row.textView(3)), id);
                if (!change.added->content)
                    found("index [{}]: document [{}] has fields that the mapping lacks", name, id);
            } catch (const std::exception& e) {
                found("index [{}]: document [{}] does not fit the mapping: {}", name, id, e.what());
            }
        }
        if (index == mIndices.end()) return;
        index->second->apply({std::move(change)});
    }

    /// The snapshot has to equal an index that is built from the documents.
    void checkSnapshot(const Index& index) {
        const std::filesystem::path file = Snapshots::fileOf(mSnapshots, index.info());
        if (!std::filesystem::exists(file)) return;
        try {
            SnapshotReader reader(file);
            Index derived(index.info(), index.mapping(), index.lastRow());
            const RowId covered = derived.load(reader);
            reader.finish();
            const std::vector<RowId> now = index.rows();
            std::vector<RowId> gone, later;
            const std::vector<RowId> then = derived.rows();
            std::set_difference(then.begin(), then.end(), now.begin(), now.end(), std::back_inserter(gone));
            std::set_difference(now.begin(), now.end(), then.begin(), then.end(), std::back_inserter(later));
            if (!later.empty() && later.front() <= covered)
                found("index [{}]: {} lacks row {}", index.name(), file.filename().string(), later.front());
            // Field by field, only a snapshot without later changes can be compared.
            if (!gone.empty() || !later.empty()) return;
            derived.requireIntact();
            const IndexView expected(index), stored(derived);
            for (FieldId id = 0; id < expected.mapping().size(); ++id)
                if (fingerprint(expected, id) != fingerprint(stored, id))
                    found("index [{}]: the snapshot of field [{}] differs from the documents", index.name(),
                          expected.mapping().at(id).path);
        } catch (const SnapshotError& e) {
            found("index [{}]: {} (the service rebuilds it)", index.name(), e.what());
        }
    }

    /// Sums over the values of a field, independent of their order.
    static std::vector<std::uint64_t> fingerprint(const IndexView& view, FieldId id) {
        const FieldData* data = view.data(id);
        if (data == nullptr) return {0};
        std::vector<std::uint64_t> sums{data->present().cardinality()};
        const FieldType type = view.mapping().at(id).type;
        if (type == FieldType::Text) {
            const auto& text = static_cast<const TextData&>(*data);
            sums.insert(sums.end(), {text.statistics().documents, text.statistics().terms, 0});
            for (std::uint32_t term = 0; term < text.terms().size(); ++term)
                sums.back() +=
                    text.documentFrequency(term) * std::hash<std::string_view>{}(text.terms().at(term));
        } else if (type == FieldType::Keyword || type == FieldType::Boolean) {
            const auto& keywords = static_cast<const KeywordData&>(*data);
            sums.push_back(0);
            for (std::uint32_t value = 0; value < keywords.values().size(); ++value)
                sums.back() += keywords.documents(value).size() *
                               std::hash<std::string_view>{}(keywords.values().at(value));
        } else if (type == FieldType::Integer || type == FieldType::Floating) {
            const auto& numbers = static_cast<const NumberData&>(*data);
            sums.insert(sums.end(), {numbers.several().cardinality(), 0});
            for (const Ordinal ordinal : numbers.present() - numbers.several())
                sums.back() += static_cast<std::uint64_t>(numbers.single(ordinal)) * 0x9E3779B97F4A7C15ULL;
        } else if (type == FieldType::Vector) {
            const auto& vectors = static_cast<const VectorData&>(*data);
            for (const Ordinal ordinal : vectors.present())
                sums.push_back(std::bit_cast<std::uint32_t>(vectors.magnitude(ordinal)));
        }
        return sums;
    }

    SqliteConnection mConnection;
    std::filesystem::path mSnapshots;
    const Progress& mProgress;
    CheckReport mReport;
    std::set<std::int64_t> mKnown, mRemoved;
    std::map<std::int64_t, std::unique_ptr<Index>> mIndices;
};

} // namespace

CheckReport check(const std::filesystem::path& documents, const std::filesystem::path& snapshots,
                  const Progress& progress) {
    if (!std::filesystem::exists(documents))
        throw DataFolderError(fmt::format("there is no {}", documents.string()));
    try {
        return Checker(documents, snapshots, progress).run();
    } catch (const SqliteError& e) {
        if (!e.corrupt()) throw;
        CheckReport report;
        report.findings = 1;
        report.damage.push_back(fmt::format("database: {}", e.what()));
        return report;
    }
}

} // namespace kestrel::index
