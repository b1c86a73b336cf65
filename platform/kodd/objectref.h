// Handles to stored objects and to collections of them.
#pragma once

#include <compare>
#include <memory>
#include <string>
#include <vector>

#include "kodd/entryvalue.h"
#include "kodd/metamodel.h"
#include "kodiag/diagnostics.h"

namespace kodd {

class CollectionRef;
class MatchConstraints;
class Session;

/// Handle to one stored object: a small value, copied freely; empty when default-constructed.
///
/// It names the opening of the repository it came from. Used after that repository was closed,
/// replaced or reopened, every operation reports "InvalidObject", never another object's data.
/// Reading or writing an object that is gone reports "InvalidObject"; deleting it
/// "NoSuchObject". An int property is readable as int or long long, a link or reference as int
/// too; kinds that do not fit report "InvalidPropertyValue". Errors are left in the
/// diagnostics, nothing is thrown.
class ObjectRef {
 public:
  ObjectRef() = default;
  ObjectRef(std::shared_ptr<Session> session, ClassRef cls, int id)
      : session_(std::move(session)), class_(cls), id_(id) {}

  /// ID of the object, unique over all classes of the repository; 0 for an empty handle.
  int id() const { return id_; }
  void clear() { *this = ObjectRef(); }
  ClassRef objectClass(kodiag::util::diagnostics& diag) const;
  /// Reports what any use of the object would: that this handle is stale or the object gone.
  void requireLive(kodiag::util::diagnostics& diag) const;

  void getPropertyValue(const PropertyRef& prop, int& value,
                        kodiag::util::diagnostics& diag) const;
  void getPropertyValue(const PropertyRef& prop, long long& value,
                        kodiag::util::diagnostics& diag) const;
  void getPropertyValue(const PropertyRef& prop, double& value,
                        kodiag::util::diagnostics& diag) const;
  void getPropertyValue(const PropertyRef& prop, std::string& value,
                        kodiag::util::diagnostics& diag) const;
  void getPropertyValue(const PropertyRef& prop, std::wstring& value,
                        kodiag::util::diagnostics& diag) const;
  /// Blobs and host arrays arrive as a descriptor or pointer into storage of this thread, valid
  /// until its next call of this function.
  void getPropertyValue(const PropertyRef& prop, EntryValue& value,
                        kodiag::util::diagnostics& diag) const;
  /// Empty when the property names nothing or the object it names is gone.
  void getPropertyValue(const PropertyRef& prop, ObjectRef& value,
                        kodiag::util::diagnostics& diag) const;
  void getPropertyValue(const PropertyRef& prop, CollectionRef& value,
                        kodiag::util::diagnostics& diag) const;
  /// Raw bytes of a blob, string or number: copies at most `capacity` bytes; `length` is the
  /// full length.
  void getPropertyValue(const PropertyRef& prop, int capacity, void* buffer, int& length,
                        kodiag::util::diagnostics& diag) const;
  /// The whole blob.
  void getPropertyValue(const PropertyRef& prop, std::vector<char>& value,
                        kodiag::util::diagnostics& diag) const;

  void setPropertyValue(const PropertyRef& prop, const int& value,
                        kodiag::util::diagnostics& diag) const;
  void setPropertyValue(const PropertyRef& prop, const long long& value,
                        kodiag::util::diagnostics& diag) const;
  void setPropertyValue(const PropertyRef& prop, const double& value,
                        kodiag::util::diagnostics& diag) const;
  void setPropertyValue(const PropertyRef& prop, const std::string& value,
                        kodiag::util::diagnostics& diag) const;
  void setPropertyValue(const PropertyRef& prop, const std::wstring& value,
                        kodiag::util::diagnostics& diag) const;
  void setPropertyValue(const PropertyRef& prop, const const_BlobDescriptor& value,
                        kodiag::util::diagnostics& diag) const;
  /// An empty handle clears the reference; an object of another class or repository is refused.
  void setPropertyValue(const PropertyRef& prop, const ObjectRef& value,
                        kodiag::util::diagnostics& diag) const;
  /// Converts where nothing is lost (2.0 to an int property, 0 to a reference, text to wide
  /// text) and refuses everything else with "InvalidPropertyValue".
  void setPropertyValueLegacy(const PropertyRef& prop, const EntryValue& value,
                              kodiag::util::diagnostics& diag) const;

  void deleteObject(kodiag::util::diagnostics& diag);

  bool operator==(const ObjectRef& other) const {
    return session_ == other.session_ && id_ == other.id_;
  }
  /// By ID; equal IDs of different openings have some order.
  std::strong_ordering operator<=>(const ObjectRef& other) const {
    const std::strong_ordering byID = id_ <=> other.id_;
    return byID != 0 ? byID : session_ <=> other.session_;
  }

  const std::shared_ptr<Session>& session() const { return session_; }
  ClassRef cls() const { return class_; }

 private:
  std::shared_ptr<Session> session_;
  ClassRef class_;
  int id_ = 0;
};

/// The objects of one class that belong to one parent.
class CollectionRef {
 public:
  CollectionRef() = default;
  CollectionRef(ObjectRef parent, PropertyRef property)
      : parent_(std::move(parent)), property_(property) {}

  /// Makes the object a member; one that belonged to another parent moves here.
  void push_back(const ObjectRef& object, kodiag::util::diagnostics& diag);
  /// Takes the object out; no-op when it is no member.
  void remove(ObjectRef& object, kodiag::util::diagnostics& diag);
  /// Appends the members that satisfy every constraint, in creation order.
  void findObjects(const MatchConstraints& constraints, std::vector<ObjectRef>& results,
                   kodiag::util::diagnostics& diag) const;

 private:
  ObjectRef parent_;
  PropertyRef property_;
};

}  // namespace kodd
