#include "sqldb/damagedpages.h"

#include <sqlite3.h>

#include <atomic>
#include <cstring>
#include <map>
#include <new>
#include <set>
#include <string>
#include <vector>

namespace sqldb {
namespace {

constexpr std::uint32_t kLockedOffset = 0x40000000;  // of a page the engine never uses
constexpr std::uint32_t kMapEntryBytes = 5;

/// What the map says of a page. // Stored.
enum PageUse : unsigned char {
  kUnknown = 0,
  kRoot = 1,
  kFree = 2,
  kFirstOverflow = 3,
  kLaterOverflow = 4,
  kTree = 5
};

struct MapEntry {
  unsigned char use = kUnknown;
  std::uint32_t parent = 0;
};

std::uint32_t big32(const unsigned char* bytes) {
  return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
         std::uint32_t{bytes[2]} << 8 | bytes[3];
}

bool startsLikeATree(unsigned char firstByte) {
  return firstByte == 2 || firstByte == 5 || firstByte == 10 || firstByte == 13;
}

/// The wrapped file lies behind this in the memory the engine provides.
struct GuardedFile {
  sqlite3_file base;
  PageGuard* pages;
  sqlite3_file* inner() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

GuardedFile& guarded(sqlite3_file* file) {
  return *reinterpret_cast<GuardedFile*>(file);
}

sqlite3_file* inner(sqlite3_file* file) {
  return guarded(file).inner();
}

template <auto Method, class... Arguments>
int forward(sqlite3_file* file, Arguments... arguments) {
  return (inner(file)->pMethods->*Method)(inner(file), arguments...);
}

}  // namespace

struct PageGuard {
  PageGuard(std::uint32_t bytes, std::uint32_t present);
  ~PageGuard() { sqlite3_vfs_unregister(&layer); }

  int open(const char* path, sqlite3_file* file, int flags, int* outFlags);
  int read(sqlite3_file* file, void* into, int amount, sqlite3_int64 offset);
  void noteWritten(int amount, sqlite3_int64 offset);

  bool isLost(std::uint32_t page) const {
    return page > pagesPresent && !written.contains(page);
  }
  bool isGarbled(sqlite3_file* file, std::uint32_t page, const unsigned char* bytes);
  std::uint32_t pageCount(sqlite3_file* file) const;
  MapEntry entryOf(sqlite3_file* file, std::uint32_t page);
  std::uint32_t mapPageOf(std::uint32_t page) const;
  std::vector<MapEntry> readMap(sqlite3_file* file, std::uint32_t mapPage);

  std::uint32_t pageBytes;
  std::uint32_t pagesPresent;
  std::set<std::uint32_t> written;
  bool checking = false;
  /// By the number of the page they lie in; empty for those that cannot be believed.
  std::map<std::uint32_t, std::vector<MapEntry>> maps;

  sqlite3_vfs* host;
  std::string layerName;
  sqlite3_vfs layer{};
};

namespace {

const sqlite3_io_methods* guardedMethods() {
  // The first version: without shared memory the engine keeps the log's index to itself.
  static const sqlite3_io_methods methods = [] {
    sqlite3_io_methods m{};
    m.iVersion = 1;
    m.xClose = [](sqlite3_file* f) { return forward<&sqlite3_io_methods::xClose>(f); };
    m.xRead = [](sqlite3_file* f, void* into, int amount, sqlite3_int64 offset) {
      return guarded(f).pages->read(inner(f), into, amount, offset);
    };
    m.xWrite = [](sqlite3_file* f, const void* from, int amount, sqlite3_int64 offset) {
      guarded(f).pages->noteWritten(amount, offset);
      return forward<&sqlite3_io_methods::xWrite>(f, from, amount, offset);
    };
    m.xTruncate = [](sqlite3_file* f, sqlite3_int64 size) {
      return forward<&sqlite3_io_methods::xTruncate>(f, size);
    };
    m.xSync = [](sqlite3_file* f, int flags) {
      return forward<&sqlite3_io_methods::xSync>(f, flags);
    };
    m.xFileSize = [](sqlite3_file* f, sqlite3_int64* size) {
      return forward<&sqlite3_io_methods::xFileSize>(f, size);
    };
    m.xLock = [](sqlite3_file* f, int kind) {
      return forward<&sqlite3_io_methods::xLock>(f, kind);
    };
    m.xUnlock = [](sqlite3_file* f, int kind) {
      return forward<&sqlite3_io_methods::xUnlock>(f, kind);
    };
    m.xCheckReservedLock = [](sqlite3_file* f, int* reserved) {
      return forward<&sqlite3_io_methods::xCheckReservedLock>(f, reserved);
    };
    m.xFileControl = [](sqlite3_file* f, int operation, void* argument) {
      return forward<&sqlite3_io_methods::xFileControl>(f, operation, argument);
    };
    m.xSectorSize = [](sqlite3_file* f) {
      return forward<&sqlite3_io_methods::xSectorSize>(f);
    };
    m.xDeviceCharacteristics = [](sqlite3_file* f) {
      return forward<&sqlite3_io_methods::xDeviceCharacteristics>(f);
    };
    return m;
  }();
  return &methods;
}

}  // namespace

PageGuard::PageGuard(std::uint32_t bytes, std::uint32_t present)
    : pageBytes(bytes), pagesPresent(present), host(sqlite3_vfs_find(nullptr)) {
  static std::atomic<int> counter = 0;
  layerName = "vela-damaged-" + std::to_string(++counter);
  layer = *host;
  layer.szOsFile = static_cast<int>(sizeof(GuardedFile)) + host->szOsFile;
  layer.pNext = nullptr;
  layer.zName = layerName.c_str();
  layer.pAppData = this;
  layer.xOpen = [](sqlite3_vfs* self, const char* path, sqlite3_file* file, int flags,
                   int* outFlags) {
    return static_cast<PageGuard*>(self->pAppData)->open(path, file, flags, outFlags);
  };
  // The host's other functions expect to be given the host.
  layer.xDelete = [](sqlite3_vfs* self, const char* path, int sync) {
    sqlite3_vfs* const behind = static_cast<PageGuard*>(self->pAppData)->host;
    return behind->xDelete(behind, path, sync);
  };
  layer.xAccess = [](sqlite3_vfs* self, const char* path, int flags, int* result) {
    sqlite3_vfs* const behind = static_cast<PageGuard*>(self->pAppData)->host;
    return behind->xAccess(behind, path, flags, result);
  };
  layer.xFullPathname = [](sqlite3_vfs* self, const char* path, int bytesOut, char* out) {
    sqlite3_vfs* const behind = static_cast<PageGuard*>(self->pAppData)->host;
    return behind->xFullPathname(behind, path, bytesOut, out);
  };
  if (sqlite3_vfs_register(&layer, 0) != SQLITE_OK) throw std::bad_alloc();
}

int PageGuard::open(const char* path, sqlite3_file* file, int flags, int* outFlags) {
  if ((flags & SQLITE_OPEN_MAIN_DB) == 0) return host->xOpen(host, path, file, flags, outFlags);
  auto* const wrapper = new (file) GuardedFile{{nullptr}, this};
  const int code = host->xOpen(host, path, wrapper->inner(), flags, outFlags);
  // Without methods the engine takes the file for one that needs no closing.
  if (wrapper->inner()->pMethods != nullptr) wrapper->base.pMethods = guardedMethods();
  return code;
}

int PageGuard::read(sqlite3_file* file, void* into, int amount, sqlite3_int64 offset) {
  const auto bytes = static_cast<std::uint64_t>(amount);
  const auto place = static_cast<std::uint64_t>(offset);
  const auto page = static_cast<std::uint32_t>(place / pageBytes + 1);
  const bool isWholePage = bytes == pageBytes && place % pageBytes == 0;
  if (isWholePage && isLost(page)) return SQLITE_CORRUPT;
  const int code = file->pMethods->xRead(file, into, amount, offset);
  if (code != SQLITE_OK || !isWholePage || !checking) return code;
  return isGarbled(file, page, static_cast<const unsigned char*>(into)) ? SQLITE_CORRUPT
                                                                        : SQLITE_OK;
}

void PageGuard::noteWritten(int amount, sqlite3_int64 offset) {
  if (static_cast<std::uint64_t>(amount) != pageBytes) return;
  written.insert(
      static_cast<std::uint32_t>(static_cast<std::uint64_t>(offset) / pageBytes + 1));
}

bool PageGuard::isGarbled(sqlite3_file* file, std::uint32_t page, const unsigned char* bytes) {
  if (page == 1) return false;
  const MapEntry entry = entryOf(file, page);
  switch (entry.use) {
    case kRoot:
    case kTree:
      return !startsLikeATree(bytes[0]);
    case kFree:
      return true;
    case kFirstOverflow:
    case kLaterOverflow: {
      const std::uint32_t next = big32(bytes);
      if (next == 0) return false;
      if (next > pageCount(file)) return true;
      const MapEntry follower = entryOf(file, next);
      return follower.use != kUnknown &&
             (follower.use != kLaterOverflow || follower.parent != page);
    }
    default:
      return false;
  }
}

std::uint32_t PageGuard::pageCount(sqlite3_file* file) const {
  sqlite3_int64 bytes = 0;
  file->pMethods->xFileSize(file, &bytes);
  return static_cast<std::uint32_t>(static_cast<std::uint64_t>(bytes) / pageBytes);
}

MapEntry PageGuard::entryOf(sqlite3_file* file, std::uint32_t page) {
  const std::uint32_t mapPage = mapPageOf(page);
  if (page < 3 || page <= mapPage) return {};
  auto known = maps.find(mapPage);
  if (known == maps.end()) known = maps.emplace(mapPage, readMap(file, mapPage)).first;
  const std::uint32_t index = page - mapPage - 1;
  return index < known->second.size() ? known->second[index] : MapEntry{};
}

std::uint32_t PageGuard::mapPageOf(std::uint32_t page) const {
  if (page < 2) return 0;
  const std::uint32_t pagesPerMap = pageBytes / kMapEntryBytes + 1;
  const std::uint32_t mapPage = (page - 2) / pagesPerMap * pagesPerMap + 2;
  return mapPage == kLockedOffset / pageBytes + 1 ? mapPage + 1 : mapPage;
}

std::vector<MapEntry> PageGuard::readMap(sqlite3_file* file, std::uint32_t mapPage) {
  std::vector<unsigned char> bytes(pageBytes);
  const sqlite3_int64 offset = sqlite3_int64{mapPage - 1} * pageBytes;
  if (isLost(mapPage) || file->pMethods->xRead(file, bytes.data(), static_cast<int>(pageBytes),
                                               offset) != SQLITE_OK) {
    return {};
  }
  std::vector<MapEntry> entries;
  for (std::size_t at = 0; at + kMapEntryBytes <= pageBytes; at += kMapEntryBytes) {
    entries.push_back({bytes[at], big32(&bytes[at + 1])});
    if (entries.back().use > kTree) return {};
  }
  return entries;
}

DamagedPages::DamagedPages(std::uint32_t pageBytes, std::uint32_t pagesPresent)
    : guard_(std::make_unique<PageGuard>(pageBytes, pagesPresent)) {}

DamagedPages::~DamagedPages() = default;

const char* DamagedPages::name() const {
  return guard_->layerName.c_str();
}

void DamagedPages::beginChecking() {
  guard_->checking = true;
}

}  // namespace sqldb
