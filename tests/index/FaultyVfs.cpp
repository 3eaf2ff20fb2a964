#include "FaultyVfs.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace kestrel_test {

namespace {

using Operation = FaultyVfs::Operation;

FaultyVfs* active = nullptr; ///< there is one at a time

struct File {
    sqlite3_file base; // has to come first
    FaultyVfs* vfs;
    std::string* path; ///< null for files without a name
    sqlite3_file* real;
};

File& fileOf(sqlite3_file* file) {
    return *reinterpret_cast<File*>(file);
}

std::string nameOf(const File& file) {
    return file.path == nullptr ? std::string() : *file.path;
}

/// Forwards a method to the real file.
template <auto Method, typename... Arguments>
auto passOn(sqlite3_file* handle, Arguments... arguments) {
    sqlite3_file* const real = fileOf(handle).real;
    return (real->pMethods->*Method)(real, arguments...);
}

/// Remembers a change of the bytes from offset on; without data, that the file is cut there.
void remember(const File& file, std::int64_t offset, const void* data, int amount) {
    if (file.path == nullptr) return;
    const auto* const bytes = static_cast<const char*>(data);
    file.vfs->stateOf(*file.path).pending.push_back({offset, {bytes, bytes + amount}});
}

std::vector<char> contentOf(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

int closeFile(sqlite3_file* handle) {
    File& file = fileOf(handle);
    const int code = file.real->pMethods->xClose(file.real);
    std::free(file.real);
    delete file.path;
    return code;
}
int writeFile(sqlite3_file* handle, const void* data, int amount, sqlite3_int64 offset) {
    File& file = fileOf(handle);
    const std::lock_guard lock(file.vfs->mutex());
    if (const int code = file.vfs->before(Operation::Write, nameOf(file))) return code;
    remember(file, offset, data, amount);
    return file.real->pMethods->xWrite(file.real, data, amount, offset);
}
int truncateFile(sqlite3_file* handle, sqlite3_int64 size) {
    File& file = fileOf(handle);
    const std::lock_guard lock(file.vfs->mutex());
    if (const int code = file.vfs->before(Operation::Truncate, nameOf(file))) return code;
    remember(file, size, nullptr, 0);
    return file.real->pMethods->xTruncate(file.real, size);
}
int syncFile(sqlite3_file* handle, int) {
    // The disk of the test is this object's memory: nothing needs to reach a real one.
    File& file = fileOf(handle);
    const std::lock_guard lock(file.vfs->mutex());
    if (const int code = file.vfs->before(Operation::Sync, nameOf(file))) return code;
    if (file.path != nullptr) {
        FaultyVfs::State& state = file.vfs->stateOf(*file.path);
        // The system file system synchronises the folder of a new file too.
        if (!state.onDisk) file.vfs->folderSynchronised();
        state.pending.clear();
        state.onDisk = contentOf(*file.path);
    }
    return SQLITE_OK;
}
int controlFile(sqlite3_file* handle, int operation, void* argument) {
    // Hints about sizes would change files behind our back.
    if (operation == SQLITE_FCNTL_SIZE_HINT || operation == SQLITE_FCNTL_CHUNK_SIZE) return SQLITE_OK;
    File& file = fileOf(handle);
    return file.real->pMethods->xFileControl(file.real, operation, argument);
}
int characteristics(sqlite3_file*) {
    return SQLITE_IOCAP_POWERSAFE_OVERWRITE; // as the system file system: bytes beside a write stay
}

using Methods = sqlite3_io_methods;
const Methods kMethods{2,
                       closeFile,
                       passOn<&Methods::xRead>,
                       writeFile,
                       truncateFile,
                       syncFile,
                       passOn<&Methods::xFileSize>,
                       passOn<&Methods::xLock>,
                       passOn<&Methods::xUnlock>,
                       passOn<&Methods::xCheckReservedLock>,
                       controlFile,
                       passOn<&Methods::xSectorSize>,
                       characteristics,
                       passOn<&Methods::xShmMap>,
                       passOn<&Methods::xShmLock>,
                       passOn<&Methods::xShmBarrier>,
                       passOn<&Methods::xShmUnmap>,
                       nullptr,
                       nullptr};

FaultyVfs& vfsOf(sqlite3_vfs* vfs) {
    return *static_cast<FaultyVfs*>(vfs->pAppData);
}

int openFile(sqlite3_vfs* vfs, const char* name, sqlite3_file* handle, int flags, int* outFlags) {
    FaultyVfs& faulty = vfsOf(vfs);
    File& file = fileOf(handle);
    file.base.pMethods = nullptr;
    const std::lock_guard lock(faulty.mutex());
    if (const int code = faulty.before(Operation::Open, name == nullptr ? "" : name)) return code;
    const bool existed = name != nullptr && std::filesystem::exists(name);
    file.real = static_cast<sqlite3_file*>(std::calloc(1, static_cast<std::size_t>(faulty.base()->szOsFile)));
    const int code = faulty.base()->xOpen(faulty.base(), name, file.real, flags, outFlags);
    if (code != SQLITE_OK) {
        std::free(file.real);
        return code;
    }
    file.vfs = &faulty;
    file.path = name == nullptr ? nullptr : new std::string(name);
    // What was there when the test began counts as being on the disk.
    if (name != nullptr && existed && !faulty.stateOf(name).onDisk && faulty.stateOf(name).pending.empty())
        faulty.stateOf(name).onDisk = contentOf(name);
    file.base.pMethods = &kMethods;
    return SQLITE_OK;
}

int removeFile(sqlite3_vfs* vfs, const char* name, int syncFolder) {
    FaultyVfs& faulty = vfsOf(vfs);
    const std::lock_guard lock(faulty.mutex());
    if (const int code = faulty.before(Operation::Remove, name)) return code;
    if (syncFolder == 0) faulty.removed(name);
    return faulty.base()->xDelete(faulty.base(), name, 0);
}

void writeContent(const std::string& path, const std::vector<char>& content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(content.data(), static_cast<std::streamsize>(content.size()));
}

void redo(std::vector<char>& content, const FaultyVfs::Write& write) {
    const auto offset = static_cast<std::size_t>(write.offset);
    const std::size_t end = offset + write.bytes.size();
    content.resize(write.bytes.empty() ? end : std::max(content.size(), end));
    std::copy(write.bytes.begin(), write.bytes.end(), content.begin() + write.offset);
}

} // namespace

FaultyVfs::FaultyVfs() : mBase(sqlite3_vfs_find(nullptr)), mVfs(*mBase) {
    active = this;
    mVfs.zName = "faulty";
    mVfs.pAppData = this;
    mVfs.szOsFile = sizeof(File);
    mVfs.xOpen = &openFile;
    mVfs.xDelete = &removeFile;
    sqlite3_vfs_register(&mVfs, 1);
}

FaultyVfs::~FaultyVfs() {
    active = nullptr;
    sqlite3_vfs_unregister(&mVfs);
}

void FaultyVfs::failAt(Operation operation, int n) {
    const std::lock_guard lock(mMutex);
    mFailing = operation;
    mCountdown = n;
    mFailed = false;
    mCalls = 0;
    mFirstCalls.clear();
}

std::vector<FaultyVfs::Call> FaultyVfs::firstCalls() {
    const std::lock_guard lock(mMutex);
    std::vector<Call> calls;
    for (const auto& [call, number] : mFirstCalls)
        calls.push_back({call.first, number});
    return calls;
}

bool FaultyVfs::hasFailed() {
    const std::lock_guard lock(mMutex);
    return mFailed;
}

void FaultyVfs::cutPower() {
    const std::lock_guard lock(mMutex);
    mPower = false;
}

void FaultyVfs::cutPowerAt(int n) {
    failAt(Operation::Any, n);
    mCutsPower = true;
}

int FaultyVfs::before(Operation operation, const std::string& path) {
    mFirstCalls.try_emplace({operation, path}, ++mCalls);
    if (!mPower) return SQLITE_IOERR;
    if ((operation != mFailing && mFailing != Operation::Any) || --mCountdown != 0) return SQLITE_OK;
    mFailed = true;
    if (mCutsPower) {
        mPower = false;
        return SQLITE_IOERR;
    }
    switch (operation) {
    case Operation::Open:
        return SQLITE_CANTOPEN;
    case Operation::Write:
        return SQLITE_IOERR_WRITE;
    case Operation::Sync:
        return SQLITE_IOERR_FSYNC;
    case Operation::Truncate:
        return SQLITE_IOERR_TRUNCATE;
    default:
        return SQLITE_IOERR_DELETE;
    }
}

void FaultyVfs::removed(const std::string& path) {
    mRemoved[path] = contentOf(path);
    mFiles.erase(path);
}

void FaultyVfs::folderSynchronised() {
    mRemoved.clear();
    mRenames.clear();
}

int FaultyVfs::beforeRename(const std::string& from, const std::string& to) {
    const std::lock_guard lock(mMutex);
    if (before(Operation::Rename, from) != SQLITE_OK) return -1;
    const auto known = mFiles.find(from);
    const bool onDisk = known == mFiles.end() ? mSynchronised.contains(from)
                                              : known->second.onDisk && known->second.pending.empty();
    mRenames.push_back({from, to, std::nullopt, onDisk});
    if (std::filesystem::exists(to)) mRenames.back().replaced = contentOf(to);
    if (known != mFiles.end()) {
        mFiles[to] = std::move(known->second);
        mFiles.erase(from);
    }
    return 0;
}

int FaultyVfs::beforeSync(const std::string& path) {
    const std::lock_guard lock(mMutex);
    if (before(Operation::Sync, path) != SQLITE_OK) return -1;
    if (std::filesystem::is_directory(path))
        folderSynchronised();
    else
        mSynchronised.insert(path);
    return 0;
}

void FaultyVfs::forgetUnsynchronised(std::mt19937& random) {
    const std::lock_guard lock(mMutex);
    for (const auto& [path, content] : mRemoved)
        if (!std::filesystem::exists(path) && random() % 2 == 0) writeContent(path, content);
    for (const auto& [path, state] : mFiles) {
        if (!std::filesystem::exists(path)) continue;
        if (!state.onDisk) {
            std::filesystem::remove(path);
            continue;
        }
        std::vector<char> content = *state.onDisk;
        // Blocks reach the disk in any order: some of the later ones may be there without earlier ones.
        const bool keepsSome = random() % 3 != 0;
        for (const Write& write : state.pending)
            if (keepsSome && random() % 2 == 0) redo(content, write);
        writeContent(path, content);
    }
    for (const auto& [path, state] : mFiles)
        std::filesystem::remove(path + "-shm");
    std::reverse(mRenames.begin(), mRenames.end());
    for (const Rename& renamed : mRenames) {
        if (!renamed.contentOnDisk) writeContent(renamed.to, {});
        if (random() % 2 == 0 || !std::filesystem::exists(renamed.to)) continue;
        writeContent(renamed.from, contentOf(renamed.to));
        if (renamed.replaced)
            writeContent(renamed.to, *renamed.replaced);
        else
            std::filesystem::remove(renamed.to);
    }
    clear();
}

void FaultyVfs::startAgain() {
    const std::lock_guard lock(mMutex);
    clear();
}

void FaultyVfs::clear() {
    mFiles.clear();
    mRemoved.clear();
    mRenames.clear();
    mSynchronised.clear();
    mFirstCalls.clear();
    mCalls = 0;
    mFailing = Operation::None;
    mCutsPower = false;
    mPower = true;
}

} // namespace kestrel_test

// These take the place of the C library's functions in the test program and in the libraries that it uses.

extern "C" [[gnu::visibility("default")]] int rename(const char* from, const char* to) noexcept {
    static const auto real = reinterpret_cast<int (*)(const char*, const char*)>(dlsym(RTLD_NEXT, "rename"));
    if (kestrel_test::active != nullptr && kestrel_test::active->beforeRename(from, to) != 0) {
        errno = EIO;
        return -1;
    }
    return real(from, to);
}

extern "C" [[gnu::visibility("default")]] int fsync(int descriptor) {
    static const auto real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fsync"));
    if (kestrel_test::active == nullptr) return real(descriptor);
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    if (kestrel_test::active->beforeSync(std::filesystem::read_symlink(link)) == 0) return 0;
    errno = EIO;
    return -1;
}
