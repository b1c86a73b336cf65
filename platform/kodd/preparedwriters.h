// Prepared writers: create, modify and delete many objects with statements prepared once.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "kodd/constraints.h"
#include "kodd/objectref.h"

namespace kodd {

class DataModelRepository;

/// Where a prepared writer reads its values: bound by address, read at every use.
class ValueSources {
 public:
  void setPropertyValueSource(const PropertyRef& prop, const int* value);
  void setPropertyValueSource(const PropertyRef& prop, const long long* value);
  void setPropertyValueSource(const PropertyRef& prop, const double* value);
  void setPropertyValueSource(const PropertyRef& prop, const std::string* value);
  void setPropertyValueSource(const PropertyRef& prop, const std::wstring* value);
  void setPropertyValueSource(const PropertyRef& prop, const const_BlobDescriptor* value);
  void setPropertyValueSource(const PropertyRef& prop, const ObjectRef* value);
  /// A reference or link given by ID, 0 for none; the caller vouches that it exists.
  void setPropertyIDSource(const PropertyRef& prop, const int* id);
  /// A blob of that many zero bytes, to be filled in place (BlobStream).
  void setPropertyZeroBlobSource(const PropertyRef& prop, const std::size_t* byteCount);

 protected:
  ValueSources(const ClassRef& cls, DataModelRepository& repository);
  ~ValueSources();
  ValueSources(ValueSources&&) noexcept;
  ValueSources& operator=(ValueSources&&) noexcept;

  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// Creates objects of one class; properties without a source get their defaults.
class ObjectConstructor : public ValueSources {
 public:
  ObjectConstructor(const ClassRef& cls, DataModelRepository& repository);
  ObjectConstructor(ObjectConstructor&&) noexcept = default;
  ~ObjectConstructor();

  ObjectRef createObject(kodiag::util::diagnostics& diag);
  /// The ID alone; 0 on failure. No handle is made.
  int createObjectID(kodiag::util::diagnostics& diag);
};

/// Writes the properties that have a source, in one statement per object.
class ObjectModifier : public ValueSources {
 public:
  ObjectModifier(const ClassRef& cls, DataModelRepository& repository);
  ObjectModifier(ObjectModifier&&) noexcept = default;
  ~ObjectModifier();

  void modifyObject(ObjectRef& object, kodiag::util::diagnostics& diag);
  /// \returns whether the object existed
  bool modifyObjectID(int id, kodiag::util::diagnostics& diag);
  /// Writes the same values to every selected object. \returns how many there were
  long long modifySelected(const Selection& selection, kodiag::util::diagnostics& diag);
};

/// Deletes objects of one class. Objects that are gone already are no error.
class ObjectDeleter {
 public:
  ObjectDeleter(const ClassRef& cls, DataModelRepository& repository);
  ~ObjectDeleter();
  ObjectDeleter(ObjectDeleter&&) noexcept;
  ObjectDeleter& operator=(ObjectDeleter&&) noexcept;

  void deleteObject(ObjectRef& object, kodiag::util::diagnostics& diag);
  void deleteObjects(std::span<const ObjectRef> objects, kodiag::util::diagnostics& diag);
  void deleteObjectIDs(std::span<const int> ids, kodiag::util::diagnostics& diag);
  /// One statement whatever their number. \returns how many there were
  long long deleteSelected(const Selection& selection, kodiag::util::diagnostics& diag);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// One blob property of one object after another, read and written in place.
///
/// Keep it open for one operation only: an open blob pins the state of the file it was opened
/// in. Offsets and lengths are bytes; a range beyond the end is an error. Errors as everywhere
/// in kodd.
class BlobStream {
 public:
  enum class Access { read, write };

  BlobStream(const PropertyRef& blobProperty, DataModelRepository& repository, Access access);
  ~BlobStream();
  BlobStream(BlobStream&&) noexcept;
  BlobStream& operator=(BlobStream&&) noexcept;

  /// Opens the blob of the object; an object that is gone is "InvalidObject".
  void open(int objectID, kodiag::util::diagnostics& diag);
  void close();
  std::size_t size() const;
  void read(std::size_t offset, std::size_t length, void* into,
            kodiag::util::diagnostics& diag) const;
  void write(std::size_t offset, std::size_t length, const void* from,
             kodiag::util::diagnostics& diag);
  /// Makes the blob longer, old bytes kept, new ones zero; stays open.
  void growTo(std::size_t byteCount, kodiag::util::diagnostics& diag);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kodd
