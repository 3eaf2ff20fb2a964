#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kestrel_test {

/// A file system below SQLite, for every connection that is opened while it exists, and below all renames and
/// synchronisations of the process. It fails on demand, and when the power is cut it forgets what was not
/// synchronised: any part of the writes, files never synchronised, removals and renames.
class FaultyVfs {
public:
    enum class Operation { Open, Write, Sync, Truncate, Remove, Rename, Any, None };

    FaultyVfs();
    ~FaultyVfs();
    FaultyVfs(const FaultyVfs&) = delete;
    FaultyVfs& operator=(const FaultyVfs&) = delete;

    /// The n-th call from now on fails; 1 is the next one.
    void failAt(Operation operation, int n);
    bool hasFailed();
    /// The calls since startAgain or failAt that were the first of their kind on their file: 1 is the first
    /// of all.
    struct Call {
        Operation operation;
        int number;
    };
    std::vector<Call> firstCalls();
    /// From now on nothing reaches the files.
    void cutPower();
    /// The power is cut at the n-th call from now on.
    void cutPowerAt(int n);
    /// When all connections are closed: leaves the files as the disk has them, and restores the power.
    void forgetUnsynchronised(std::mt19937& random);
    /// For an empty folder: nothing has been written and nothing fails.
    void startAgain();

    // For the methods of the files.
    struct Write {
        std::int64_t offset;
        std::vector<char> bytes; ///< empty when the file was cut at the offset
    };
    struct State {
        std::optional<std::vector<char>> onDisk; ///< as last synchronised; nothing when it never was
        std::vector<Write> pending;
    };
    /// An SQLite code when the call has to fail.
    int before(Operation operation, const std::string& path);
    State& stateOf(const std::string& path) { return mFiles[path]; }
    void removed(const std::string& path);
    /// What was removed or renamed stays so.
    void folderSynchronised();
    /// Outside SQLite: 0 when the call may be made.
    int beforeRename(const std::string& from, const std::string& to);
    int beforeSync(const std::string& path);
    std::mutex& mutex() { return mMutex; }
    sqlite3_vfs* base() const { return mBase; }

private:
    void clear();

    struct Rename {
        std::string from, to;
        std::optional<std::vector<char>> replaced; ///< what had the name before
        bool contentOnDisk;
    };

    std::mutex mMutex;
    std::vector<Rename> mRenames;        ///< those that may not be on the disk
    std::set<std::string> mSynchronised; ///< files outside SQLite
    bool mCutsPower = false;
    std::map<std::string, State> mFiles;
    std::map<std::string, std::vector<char>>
        mRemoved; ///< content of files whose removal may not be on the disk
    Operation mFailing = Operation::None;
    int mCountdown = 0;
    int mCalls = 0;
    std::map<std::pair<Operation, std::string>, int> mFirstCalls;
    bool mFailed = false;
    bool mPower = true;
    sqlite3_vfs* mBase;
    sqlite3_vfs mVfs{};
};

} // namespace kestrel_test
