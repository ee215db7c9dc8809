// SPDX-License-Identifier: GPL-3.0-or-later
#include "faultvfs/FaultVfs.h"

#include <cstring>
#include <mutex>
#include <sqlite3.h>

namespace ledgerfinch::testing {
namespace {

struct Fault {
    std::mutex mutex;
    unsigned operations = 0;
    int countdown = 0;
    int code = SQLITE_OK;
    bool lasting = false;
    bool struck = false;
};

Fault& fault() {
    static Fault theFault;
    return theFault;
}

/// SQLITE_OK, or the failure that is due.
int due(unsigned operation) {
    Fault& current = fault();
    const std::lock_guard guard(current.mutex);
    if ((current.operations & operation) == 0) return SQLITE_OK;
    if (current.countdown > 0 && --current.countdown > 0) return SQLITE_OK;
    if (current.struck && !current.lasting) return SQLITE_OK;
    current.struck = true;
    return current.code;
}

/// Our file, with the one of the default VFS behind it in the same block.
struct File {
    sqlite3_file base;
    sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

sqlite3_file* realOf(sqlite3_file* file) {
    return reinterpret_cast<File*>(file)->real();
}
sqlite3_vfs* realOf(sqlite3_vfs* vfs) {
    return static_cast<sqlite3_vfs*>(vfs->pAppData);
}

template <class Call>
int unlessDue(unsigned operation, Call call) {
    const int code = due(operation);
    return code == SQLITE_OK ? call() : code;
}

int closeFile(sqlite3_file* file) {
    return realOf(file)->pMethods ? realOf(file)->pMethods->xClose(realOf(file)) : SQLITE_OK;
}
int readFile(sqlite3_file* file, void* bytes, int size, sqlite3_int64 offset) {
    return unlessDue(FaultVfs::Read, [&] { return realOf(file)->pMethods->xRead(realOf(file), bytes, size, offset); });
}
int writeFile(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 offset) {
    const int code = due(FaultVfs::Write);
    if (code == SQLITE_OK) return realOf(file)->pMethods->xWrite(realOf(file), bytes, size, offset);
    // A write that fails may have written a part.
    realOf(file)->pMethods->xWrite(realOf(file), bytes, size / 2, offset);
    return code;
}
int truncateFile(sqlite3_file* file, sqlite3_int64 size) {
    return unlessDue(FaultVfs::Truncate, [&] { return realOf(file)->pMethods->xTruncate(realOf(file), size); });
}
int syncFile(sqlite3_file* file, int flags) {
    return unlessDue(FaultVfs::Sync, [&] { return realOf(file)->pMethods->xSync(realOf(file), flags); });
}
int fileSize(sqlite3_file* file, sqlite3_int64* size) {
    return realOf(file)->pMethods->xFileSize(realOf(file), size);
}
int lockFile(sqlite3_file* file, int level) {
    return unlessDue(FaultVfs::Lock, [&] { return realOf(file)->pMethods->xLock(realOf(file), level); });
}
int unlockFile(sqlite3_file* file, int level) {
    return realOf(file)->pMethods->xUnlock(realOf(file), level);
}
int checkReserved(sqlite3_file* file, int* result) {
    return realOf(file)->pMethods->xCheckReservedLock(realOf(file), result);
}
int controlFile(sqlite3_file* file, int what, void* argument) {
    return realOf(file)->pMethods->xFileControl(realOf(file), what, argument);
}
int sectorSize(sqlite3_file* file) {
    return realOf(file)->pMethods->xSectorSize(realOf(file));
}
int characteristics(sqlite3_file* file) {
    return realOf(file)->pMethods->xDeviceCharacteristics(realOf(file));
}
int mapShared(sqlite3_file* file, int region, int size, int extend, void volatile** address) {
    return realOf(file)->pMethods->xShmMap(realOf(file), region, size, extend, address);
}
int lockShared(sqlite3_file* file, int offset, int count, int flags) {
    const auto lock = [&] {
        return realOf(file)->pMethods->xShmLock(realOf(file), offset, count, flags);
    };
    return (flags & SQLITE_SHM_LOCK) != 0 ? unlessDue(FaultVfs::Lock, lock) : lock();
}
void barrier(sqlite3_file* file) {
    realOf(file)->pMethods->xShmBarrier(realOf(file));
}
int unmapShared(sqlite3_file* file, int remove) {
    return realOf(file)->pMethods->xShmUnmap(realOf(file), remove);
}
int fetchPage(sqlite3_file* file, sqlite3_int64 offset, int size, void** page) {
    return realOf(file)->pMethods->xFetch(realOf(file), offset, size, page);
}
int unfetchPage(sqlite3_file* file, sqlite3_int64 offset, void* page) {
    return realOf(file)->pMethods->xUnfetch(realOf(file), offset, page);
}

const sqlite3_io_methods kMethods = {3,           closeFile,   readFile,        writeFile,  truncateFile,
                                     syncFile,    fileSize,    lockFile,        unlockFile, checkReserved,
                                     controlFile, sectorSize,  characteristics, mapShared,  lockShared,
                                     barrier,     unmapShared, fetchPage,       unfetchPage};

int openFile(sqlite3_vfs* vfs, sqlite3_filename name, sqlite3_file* file, int flags, int* outFlags) {
    file->pMethods = nullptr;
    if (const int code = due(FaultVfs::Open); code != SQLITE_OK) return code;
    const int code = realOf(vfs)->xOpen(realOf(vfs), name, realOf(file), flags, outFlags);
    if (realOf(file)->pMethods) file->pMethods = &kMethods;
    return code;
}
int deleteFile(sqlite3_vfs* vfs, const char* name, int syncFolder) {
    return realOf(vfs)->xDelete(realOf(vfs), name, syncFolder);
}
int accessFile(sqlite3_vfs* vfs, const char* name, int flags, int* result) {
    return realOf(vfs)->xAccess(realOf(vfs), name, flags, result);
}
int fullPath(sqlite3_vfs* vfs, const char* name, int size, char* path) {
    return realOf(vfs)->xFullPathname(realOf(vfs), name, size, path);
}
int randomness(sqlite3_vfs* vfs, int size, char* bytes) {
    return realOf(vfs)->xRandomness(realOf(vfs), size, bytes);
}
int sleepFor(sqlite3_vfs* vfs, int microseconds) {
    return realOf(vfs)->xSleep(realOf(vfs), microseconds);
}
int currentTime(sqlite3_vfs* vfs, double* days) {
    return realOf(vfs)->xCurrentTime(realOf(vfs), days);
}
int lastError(sqlite3_vfs* vfs, int size, char* text) {
    return realOf(vfs)->xGetLastError(realOf(vfs), size, text);
}
int currentTime64(sqlite3_vfs* vfs, sqlite3_int64* time) {
    return realOf(vfs)->xCurrentTimeInt64(realOf(vfs), time);
}

} // namespace

void FaultVfs::install() {
    static sqlite3_vfs vfs = [] {
        sqlite3_vfs made{};
        sqlite3_vfs* real = sqlite3_vfs_find(nullptr);
        made.iVersion = 2;
        made.szOsFile = static_cast<int>(sizeof(File)) + real->szOsFile;
        made.mxPathname = real->mxPathname;
        made.zName = kName;
        made.pAppData = real;
        made.xOpen = openFile;
        made.xDelete = deleteFile;
        made.xAccess = accessFile;
        made.xFullPathname = fullPath;
        made.xRandomness = randomness;
        made.xSleep = sleepFor;
        made.xCurrentTime = currentTime;
        made.xGetLastError = lastError;
        made.xCurrentTimeInt64 = currentTime64;
        return made;
    }();
    sqlite3_vfs_register(&vfs, 0);
}

void FaultVfs::failAt(unsigned operations, int number, int code, Lasting lasting) {
    Fault& current = fault();
    const std::lock_guard guard(current.mutex);
    current.operations = operations;
    current.countdown = number;
    current.code = code;
    current.lasting = lasting == Lasting::Yes;
    current.struck = false;
}

void FaultVfs::clear() {
    Fault& current = fault();
    const std::lock_guard guard(current.mutex);
    current.operations = 0;
}

bool FaultVfs::hasStruck() {
    Fault& current = fault();
    const std::lock_guard guard(current.mutex);
    return current.struck;
}

} // namespace ledgerfinch::testing
