// The base of every handle to a stored object of the domain.
#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>
#include <string>

#include "objectmanager/objectref.h"

namespace vela {

class ObjectManager;
class Set;

/// A handle to one stored object; caches nothing of it. May be empty.
///
/// Ownership: owns its ObjectRef, borrows the manager, which must outlive it.
/// Threads: used by one thread at a time.
class ORM {
 public:
  ORM() = default;
  /// Takes the reference and its manager; an empty pointer gives an empty handle.
  explicit ORM(std::unique_ptr<ObjectRef> object);
  virtual ~ORM() = default;
  ORM(ORM&&) noexcept = default;
  ORM& operator=(ORM&&) noexcept = default;

  virtual int getCheckSum() const = 0;

  bool isEmpty() const { return !object_; }
  /// \throws "KODD:kodd:InvalidObject" on an empty handle
  ObjectRef& getObjectReference() const;
  /// ID of the stored object, for uses by ID, which could not tell it from a later object.
  /// \throws "KODD:kodd:InvalidObject" on an empty or stale handle, and when the object is gone
  int liveID() const;
  /// Removes the stored object; the handle is left pointing at it.
  void remove() const;

 protected:
  /// \throws "KODD:kodd:InvalidObject" on an empty handle
  ObjectManager& manager() const;
  /// \throws "nexstore:nex:InvalidData" unless `other` is an object of the same repository;
  /// "KODD:kodd:InvalidObject" when it is empty
  void requireSameRepository(const ORM& other, const std::string& operation) const;

  ObjectManager* manager_ = nullptr;
  std::unique_ptr<ObjectRef> object_;
};

/// A handle to an object that belongs to a run.
class Element : public ORM {
 public:
  Element() = default;
  explicit Element(std::unique_ptr<ObjectRef> object) : ORM(std::move(object)) {}
  /// An empty handle: the derived class creates and attaches its stored object.
  explicit Element(ObjectManager&) {}

  /// Name of the stored class.
  virtual std::string getElementType() const = 0;

  /// ID of the run it belongs to, 0 when to none.
  int getParentSetID() const;
  /// Empty when it belongs to no run that is stored.
  boost::shared_ptr<Set> getParentSet() const;
};

}  // namespace vela
