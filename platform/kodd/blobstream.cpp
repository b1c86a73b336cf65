#include <optional>
#include <span>
#include <utility>

#include "host/interrupt.h"
#include "kodd/datamodelrepository.h"
#include "kodd/preparedwriters.h"
#include "kodd/session.h"
#include "kodd/storedvalue.h"
#include "kodiag/diagnostics.h"
#include "kodiag/message.h"
#include "sqldb/blob.h"

namespace kodd {
using kodiag::util::diagnostics;

/// The open blob is let go when a unit ends and opened again at the next use.
struct BlobStream::Impl final : Pin {
  Impl(const PropertyRef& blobProperty, std::shared_ptr<Session> owner, Access wanted)
      : Pin(std::move(owner)), property(blobProperty), access(wanted) {}
  ~Impl() override { closeHere(); }

  using Pin::session;

  void letGo() noexcept override { blob.reset(); }
  void close() noexcept {
    release();
    blob.reset();
    objectID = 0;
    length = 0;
  }

  void closeHere() noexcept {
    const SessionUse use(*this);
    close();
  }
  /// Runs one operation on the connection of the open blob, or on one lent for it.
  template <class Body>
  void run(sqldb::Database::Access how, const char* operation, diagnostics& diag, Body&& body) {
    const SessionUse use(*this);
    perform(*session(), how, operation, diag, std::forward<Body>(body));
  }

  sqldb::Database::Access wanted() const {
    return access == Access::write ? sqldb::Database::Access::write
                                   : sqldb::Database::Access::read;
  }
  void open(int id);
  bool reopen(int id);
  void openAnew(int id);
  void checkWritable() const;
  /// The open blob, opened again when a unit has ended since; none when it is empty.
  sqldb::Blob* opened();
  std::optional<std::size_t> storedLength(int id) const;
  void checkRange(std::size_t offset, std::size_t count) const;
  void growTo(std::size_t byteCount);

  PropertyRef property;
  Access access;
  int objectID = 0;
  std::size_t length = 0;
  std::optional<sqldb::Blob> blob;
};

void BlobStream::Impl::open(int id) {
  session()->database("open a blob");
  checkProperty(property, property.isValid() ? ClassRef(property.info()->owner) : ClassRef());
  requireKind(*property.info(), isBlob, "bytes");
  if (access == Access::write) checkWritable();
  objectID = 0;
  if (!reopen(id)) openAnew(id);
  objectID = id;
}

bool BlobStream::Impl::reopen(int id) {
  if (!blob) return false;
  try {
    blob->reopen(id);
    length = static_cast<std::size_t>(blob->size());
    return true;
  } catch (const kodiag::except::ExceptionWithCauses& failure) {
    release();
    blob.reset();
    if (host::isInterruption(failure)) throw;
    // The object may be gone, or merely changed since: opening anew tells.
    return false;
  }
}

void BlobStream::Impl::openAnew(int id) {
  const bool writes = access == Access::write;
  const Layout& layout = session()->layout();
  try {
    blob.emplace(session()
                     ->database("open a blob")
                     .blob(layout.of(*property.info()->owner).table,
                           layout.of(*property.info()).name, id, wanted()));
    hold(writes);
    length = static_cast<std::size_t>(blob->size());
  } catch (const kodiag::except::ExceptionWithCauses& failure) {
    if (host::isInterruption(failure)) throw;
    const std::optional<std::size_t> stored = storedLength(id);
    if (!stored) raiseInvalidObject("Object " + std::to_string(id), "it is gone");
    // The engine opens no blob that a row from before its column was added does not hold yet.
    if (*stored > 0) throw;
    length = 0;
  }
}

void BlobStream::Impl::checkWritable() const {
  if (access == Access::read) {
    kodiag::raise({"KODD:kodd", "ReadOnly"}, {{"Operation", "write a blob"},
                                              {"Location", session()->location()},
                                              {"Reason", "the blob is open for reading"}});
  }
  if (!session()->isWriting()) {
    kodiag::raise({"KODD:kodd", "NoTransaction"}, {{"Operation", "write a blob in place"}});
  }
}

std::optional<std::size_t> BlobStream::Impl::storedLength(int id) const {
  const Layout& layout = session()->layout();
  sqldb::Statement query =
      session()
          ->database("open a blob")
          .statement("SELECT length(" + layout.of(*property.info()).name + ") FROM " +
                     layout.of(*property.info()->owner).table + " WHERE id=?");
  query.bind(1, id);
  if (!query.step()) return std::nullopt;
  return static_cast<std::size_t>(query.int64(0));
}

sqldb::Blob* BlobStream::Impl::opened() {
  session()->database("use a blob");
  if (objectID == 0) raiseInvalidObject("A blob stream", "no blob is open");
  if (!blob && length > 0) open(objectID);
  return blob ? &*blob : nullptr;
}

void BlobStream::Impl::checkRange(std::size_t offset, std::size_t count) const {
  // Compared this way round so that no sum of the two can overflow.
  if (offset <= length && count <= length - offset) return;
  raiseInvalidValue(*property.info(),
                    std::to_string(count) + " bytes at offset " + std::to_string(offset),
                    "the blob has " + std::to_string(length));
}

void BlobStream::Impl::growTo(std::size_t byteCount) {
  checkWritable();
  opened();
  if (byteCount <= length) return;
  release();
  blob.reset();
  const ColumnLayout& column = session()->layout().of(*property.info());
  sqldb::Statement update =
      session()
          ->database("grow a blob")
          .statement("UPDATE " + session()->layout().of(*property.info()->owner).table +
                     " SET " + column.name + "=CAST(" + column.name +
                     "||zeroblob(?) AS BLOB) WHERE id=?");
  update.bind(1, static_cast<long long>(byteCount - length));
  update.bind(2, objectID);
  const int id = objectID;
  if (update.run() == 0) raiseInvalidObject("Object " + std::to_string(id), "it is gone");
  open(id);
}

BlobStream::BlobStream(const PropertyRef& blobProperty, DataModelRepository& repository,
                       Access access)
    : impl_(std::make_unique<Impl>(blobProperty, repository.session_, access)) {}
BlobStream::~BlobStream() = default;
BlobStream::BlobStream(BlobStream&&) noexcept = default;
BlobStream& BlobStream::operator=(BlobStream&&) noexcept = default;

void BlobStream::open(int objectID, diagnostics& diag) {
  impl_->run(impl_->wanted(), "open a blob", diag, [&] { impl_->open(objectID); });
}

void BlobStream::close() {
  impl_->closeHere();
}

std::size_t BlobStream::size() const {
  return impl_->length;
}

void BlobStream::read(std::size_t offset, std::size_t length, void* into,
                      diagnostics& diag) const {
  impl_->run(sqldb::Database::Access::read, "read a blob", diag, [&] {
    const sqldb::Blob* blob = impl_->opened();
    impl_->checkRange(offset, length);
    if (length > 0) blob->read(offset, {static_cast<std::byte*>(into), length});
  });
}

void BlobStream::write(std::size_t offset, std::size_t length, const void* from,
                       diagnostics& diag) {
  impl_->run(sqldb::Database::Access::write, "write a blob", diag, [&] {
    impl_->checkWritable();
    sqldb::Blob* blob = impl_->opened();
    impl_->checkRange(offset, length);
    if (length > 0) blob->write(offset, {static_cast<const std::byte*>(from), length});
  });
}

void BlobStream::growTo(std::size_t byteCount, diagnostics& diag) {
  impl_->run(sqldb::Database::Access::write, "grow a blob", diag,
             [&] { impl_->growTo(byteCount); });
}

}  // namespace kodd
