// Handle to one stored object: properties by name, children, removal.
#pragma once

#include <boost/ptr_container/ptr_vector.hpp>
#include <memory>
#include <string>
#include <vector>

#include "kodd/constraints.h"
#include "kodd/entryvalue.h"
#include "kodd/metamodel.h"
#include "kodd/objectref.h"
#include "kodiag/diagnostics.h"

namespace vela {

class ObjectManager;

/// One stored object with its class and the manager through which it is reached.
///
/// Property names are resolved on every call; an unknown one raises "KODD:kodd:InvalidProperty"
/// and leaves the handle usable. A null or stale handle raises "KODD:kodd:InvalidObject". Every
/// failure is raised as ExceptionWithCauses. Borrows the manager, which must outlive the
/// handle.
class ObjectRef {
 public:
  ObjectRef(int tag, kodd::ObjectRef object, kodd::ClassRef cls, const std::string& type,
            ObjectManager& manager);
  /// The same with tag 0.
  ObjectRef(kodd::ObjectRef object, kodd::ClassRef cls, const std::string& type,
            ObjectManager& manager);
  /// Drops a bulk update that is still open on this handle; its bound values are not written.
  ~ObjectRef();
  ObjectRef(const ObjectRef&) = delete;
  ObjectRef& operator=(const ObjectRef&) = delete;

  /// A new handle to the same object.
  std::unique_ptr<ObjectRef> clone() const;

  int getTag() const;
  /// ID of the object; 0 for a null handle.
  int getObjectID() const;
  bool isNull() const { return getObjectID() == 0; }
  /// The class name, without a package.
  const std::string& getObjectType() const;
  kodd::ClassRef getClassRef() const;
  const kodd::ObjectRef& getObjRef() const;
  ObjectManager& getObjectManager() const;

  int getPropertyInt32(const std::string& name) const;
  long long getPropertyInt64(const std::string& name) const;
  double getPropertyReal64(const std::string& name) const;
  std::string getPropertyStdString(const std::string& name) const;
  std::wstring getPropertyUString(const std::string& name) const;
  void getProperty(const std::string& name, kodd::EntryValue& value) const;
  /// Raw bytes: copies at most `size` of them; `length` is the full length.
  void getProperty(const std::string& name, int size, void* buffer, int& length) const;
  /// The whole blob.
  void getProperty(const std::string& name, std::vector<char>& value) const;
  /// Null when the property names no object. \param targetClass class of the result
  void getPropertyObject(const std::string& name, std::unique_ptr<ObjectRef>& value,
                         const std::string& targetClass) const;

  void setPropertyInt32(const std::string& name, int value);
  void setPropertyInt64(const std::string& name, long long value);
  void setPropertyReal64(const std::string& name, double value);
  void setPropertyStdString(const std::string& name, const std::string& value);
  void setPropertyUString(const std::string& name, const std::wstring& value);
  void setPropertyConstBlob(const std::string& name, const kodd::const_BlobDescriptor& value);
  void setPropertyObject(const std::string& name, ObjectRef& value);
  void setProperty(const std::string& name, const kodd::EntryValue& value);

  /// Between these two, setPropertyWithBulkSupport binds instead of writing: the values are
  /// read, and written in one statement, at the commit. Getters see the old values until then.
  void beginBulkPropertyUpdate();
  void commitBulkPropertyUpdate();
  /// For int, long long, double, std::string, std::wstring, kodd::const_BlobDescriptor and
  /// kodd::ObjectRef. Inside a bulk update `value` must live until the commit.
  template <class T>
  void setPropertyWithBulkSupport(const std::string& name, const T* value);

  void addChild(ObjectRef& child);
  void removeChild(ObjectRef& child);
  bool isChild(ObjectRef& child);
  /// Appends the children of that class that satisfy every constraint, in creation order.
  void getChildren(const std::string& childClass, const kodd::MatchConstraints& constraints,
                   boost::ptr_vector<ObjectRef>& children) const;

  /// Removes the object in a unit of work of its own.
  /// \param diag  what went wrong; raised as well
  void removeObject(kodiag::util::diagnostics& diag);

 private:
  friend class ObjectManagerImpl;
  struct Record;

  void noteBulkPropertyUpdate(bool open);

  std::unique_ptr<Record> record_;
};

}  // namespace vela
