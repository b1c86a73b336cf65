// The pages of a damaged file as the engine may see them: what is lost or garbled answers with
// an error, not with zeros or noise.
#pragma once

#include <cstdint>
#include <memory>

namespace sqldb {

struct PageGuard;

/// A file layer of the engine's, registered under a name of its own, through which one damaged
/// file is opened.
///
/// A page behind the end of the file is lost, unless something has been written there since. A
/// page that contradicts the file's own map of its pages is garbled: a page of a tree without
/// the mark of one, a page of a long value that goes on in a page that does not follow it, a
/// free page. The map lies in pages of its own, which are believed only as a whole. Bytes
/// changed inside a value leave no trace.
/// Source: the engine's published file format (pages, pointer map)
class DamagedPages {
 public:
  /// \param pagesPresent  whole pages the file has
  DamagedPages(std::uint32_t pageBytes, std::uint32_t pagesPresent);
  ~DamagedPages();
  DamagedPages(const DamagedPages&) = delete;
  DamagedPages& operator=(const DamagedPages&) = delete;

  /// Name of the file layer, for opening the file.
  const char* name() const;
  /// From now on pages are compared with the map, which must not change any more.
  void beginChecking();

 private:
  std::unique_ptr<PageGuard> guard_;
};

}  // namespace sqldb
