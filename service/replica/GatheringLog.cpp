#include "service/replica/GatheringLog.h"

#include <sqlite3.h>

#include <algorithm>
#include <new>
#include <string>

namespace tulo {

namespace {

constexpr const char* kName = "tulo-gathering";
constexpr const char* kReal = "unix-excl";

// Of the log's format: the header of a frame, and where in it a commit is told from the rest.
constexpr int kFrameHeader = 24;
constexpr int kCommitMark = 4;
constexpr int kCommitMarkSize = 4;
// What a large transaction gathers before it is written, and what is written at a time: SQLite's
// own files take less than 128 KiB.
constexpr std::size_t kMost = 1 << 16;

bool isCommit(const char* header) {
  for (int i = 0; i < kCommitMarkSize; ++i) {
    if (header[kCommitMark + i] != 0) return true;
  }
  return false;
}

// SQLite allocates the memory, and copies nothing of it; `real` lies behind it.
struct LogFile {
  sqlite3_file base;
  sqlite3_file* real;
  std::string* gathered;
  sqlite3_int64 begin;  // where the gathered bytes belong
  sqlite3_int64 end;    // of the last write
  bool commits;         // the frame begun last
};

LogFile& logOf(sqlite3_file* file) {
  return *reinterpret_cast<LogFile*>(file);
}

int writeReal(LogFile& log, const void* data, std::size_t size, sqlite3_int64 offset) {
  return log.real->pMethods->xWrite(log.real, data, static_cast<int>(size), offset);
}

int flush(LogFile& log) {
  if (log.gathered->empty()) return SQLITE_OK;
  int result = SQLITE_OK;
  const std::string& bytes = *log.gathered;
  for (std::size_t done = 0; result == SQLITE_OK && done < bytes.size(); done += kMost) {
    const std::size_t size = std::min(kMost, bytes.size() - done);
    result =
        writeReal(log, bytes.data() + done, size, log.begin + static_cast<sqlite3_int64>(done));
  }
  log.gathered->clear();
  return result;
}

int closeLog(sqlite3_file* file) {
  LogFile& log = logOf(file);
  const int flushed = flush(log);
  const int closed = log.real->pMethods->xClose(log.real);
  delete log.gathered;
  return flushed != SQLITE_OK ? flushed : closed;
}

int readLog(sqlite3_file* file, void* data, int size, sqlite3_int64 offset) {
  LogFile& log = logOf(file);
  const int flushed = flush(log);
  if (flushed != SQLITE_OK) return flushed;
  return log.real->pMethods->xRead(log.real, data, size, offset);
}

int writeLog(sqlite3_file* file, const void* data, int size, sqlite3_int64 offset) try {
  LogFile& log = logOf(file);
  const bool continues = offset == log.end;
  log.end = offset + size;
  const bool header = size == kFrameHeader;
  if (header) log.commits = isCommit(static_cast<const char*>(data));
  if (!continues) {
    // The start of the log, or something in it that is put right.
    const int flushed = flush(log);
    if (flushed != SQLITE_OK) return flushed;
    return writeReal(log, data, static_cast<std::size_t>(size), offset);
  }
  if (log.gathered->empty()) log.begin = offset;
  log.gathered->append(static_cast<const char*>(data), static_cast<std::size_t>(size));
  const bool whole = !header && log.commits;
  return whole || log.gathered->size() >= kMost ? flush(log) : SQLITE_OK;
} catch (const std::bad_alloc&) {
  return SQLITE_IOERR_NOMEM;
}

int truncateLog(sqlite3_file* file, sqlite3_int64 size) {
  LogFile& log = logOf(file);
  const int flushed = flush(log);
  return flushed != SQLITE_OK ? flushed : log.real->pMethods->xTruncate(log.real, size);
}

int syncLog(sqlite3_file* file, int flags) {
  LogFile& log = logOf(file);
  const int flushed = flush(log);
  return flushed != SQLITE_OK ? flushed : log.real->pMethods->xSync(log.real, flags);
}

int sizeOfLog(sqlite3_file* file, sqlite3_int64* size) {
  LogFile& log = logOf(file);
  const int flushed = flush(log);
  return flushed != SQLITE_OK ? flushed : log.real->pMethods->xFileSize(log.real, size);
}

int lockLog(sqlite3_file* file, int kind) {
  return logOf(file).real->pMethods->xLock(logOf(file).real, kind);
}

int unlockLog(sqlite3_file* file, int kind) {
  return logOf(file).real->pMethods->xUnlock(logOf(file).real, kind);
}

int checkLock(sqlite3_file* file, int* reserved) {
  return logOf(file).real->pMethods->xCheckReservedLock(logOf(file).real, reserved);
}

int controlLog(sqlite3_file* file, int operation, void* argument) {
  return logOf(file).real->pMethods->xFileControl(logOf(file).real, operation, argument);
}

int sectorSize(sqlite3_file* file) {
  return logOf(file).real->pMethods->xSectorSize(logOf(file).real);
}

int deviceCharacteristics(sqlite3_file* file) {
  return logOf(file).real->pMethods->xDeviceCharacteristics(logOf(file).real);
}

// The later methods are for database files only.
const sqlite3_io_methods kLogMethods = [] {
  sqlite3_io_methods methods = {};
  methods.iVersion = 1;
  methods.xClose = closeLog;
  methods.xRead = readLog;
  methods.xWrite = writeLog;
  methods.xTruncate = truncateLog;
  methods.xSync = syncLog;
  methods.xFileSize = sizeOfLog;
  methods.xLock = lockLog;
  methods.xUnlock = unlockLog;
  methods.xCheckReservedLock = checkLock;
  methods.xFileControl = controlLog;
  methods.xSectorSize = sectorSize;
  methods.xDeviceCharacteristics = deviceCharacteristics;
  return methods;
}();

int openFile(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* given) {
  sqlite3_vfs* real = sqlite3_vfs_find(kReal);
  if ((flags & SQLITE_OPEN_WAL) == 0) return real->xOpen(real, name, file, flags, given);
  LogFile& log = logOf(file);
  log = {};
  log.real = reinterpret_cast<sqlite3_file*>(&log + 1);
  log.end = -1;
  const int result = real->xOpen(real, name, log.real, flags, given);
  if (result != SQLITE_OK) return result;
  log.gathered = new (std::nothrow) std::string;
  if (!log.gathered) {
    log.real->pMethods->xClose(log.real);
    return SQLITE_NOMEM;
  }
  log.base.pMethods = &kLogMethods;
  return SQLITE_OK;
}

// The rest of the real one's functions do not look at which VFS they are called for.
sqlite3_vfs makeVfs() {
  sqlite3_vfs vfs = *sqlite3_vfs_find(kReal);
  vfs.zName = kName;
  vfs.szOsFile += static_cast<int>(sizeof(LogFile));
  vfs.pNext = nullptr;
  vfs.xOpen = openFile;
  return vfs;
}

}  // namespace

const char* gatheringVfs() {
  static sqlite3_vfs vfs = makeVfs();
  static const int registered = sqlite3_vfs_register(&vfs, 0);
  return registered == SQLITE_OK ? kName : kReal;
}

}  // namespace tulo
