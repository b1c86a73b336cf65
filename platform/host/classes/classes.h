// The host's class system: packages, their classes, methods and objects.
#pragma once

#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/classes/signature.h"

namespace host {

/// One method of a class: what it is called, what it takes, and how it is called.
class COSMethodInfo {
 public:
  virtual ~COSMethodInfo() = default;

  virtual const std::string& name() const = 0;
  virtual const MethodSignature& signature() const = 0;
  /// One sentence that says what the method does.
  virtual const std::string& documentation() const = 0;
  /// The message IDs it can raise beside those of the store, "nexstore:nex:NoSuchRun".
  virtual const std::vector<std::string>& raisedIDs() const = 0;

  /// Does the work.
  ///
  /// The constructor is the method named like its class: the caller puts the new object into
  /// outputs[0] and the constructor fills its instance data.
  ///
  /// \param resultCount  receives the number of outputs that were filled
  /// \param outputs      one for each declared output
  /// \param inputs       those that were given, converted to their declared kinds
  /// \throws ExceptionWithCauses, or what a function of the host that was called back threw;
  ///         no output is to be used then
  virtual void invoke(int& resultCount, std::span<OutputValue> outputs,
                      std::span<const InputValue> inputs) const = 0;

  /// Whether an object of its class is the first input.
  bool isInstanceMethod() const;
};

/// What a class keeps for each of its objects.
class COSInstanceData {
 public:
  virtual ~COSInstanceData() = default;

  /// What the object stands for, a few words for people: "private '/tmp/a.dmr'", "closed".
  /// Never throws, never opens anything.
  virtual std::string describe() const noexcept = 0;
  /// Gives back what the object holds; its methods refuse to work from then on, where they need
  /// it. May be called again.
  virtual void close() = 0;
};

/// A class offered to the host.
class COSClassInfo {
 public:
  virtual ~COSClassInfo() = default;

  virtual const std::string& name() const = 0;
  virtual const std::string& shortDescription() const = 0;
  virtual const std::string& longDescription() const = 0;
  /// Made once; each name once.
  virtual const std::vector<std::unique_ptr<COSMethodInfo>>& methodInfos() const = 0;
  virtual std::unique_ptr<COSInstanceData> createInstanceData() const = 0;
  /// Never throws: called when an object dies.
  virtual void destroyInstanceData(std::unique_ptr<COSInstanceData> data) const noexcept = 0;
  virtual bool mayBeConstructed() const = 0;
  virtual bool hasProperty(std::string_view name) const = 0;
  /// Whether other classes may not derive from it.
  virtual bool isSealed() const = 0;

  /// Null when there is none.
  const COSMethodInfo* findMethod(std::string_view name) const;
  /// Null when there is none.
  const COSMethodInfo* constructor() const { return findMethod(name()); }
};

/// An object of a class. Threads: none of its own locking.
class COSObject {
 public:
  explicit COSObject(const COSClassInfo& classInfo);
  ~COSObject();
  COSObject(const COSObject&) = delete;
  COSObject& operator=(const COSObject&) = delete;

  const COSClassInfo& classInfo() const { return classInfo_; }
  COSInstanceData& instanceData() const { return *data_; }

 private:
  const COSClassInfo& classInfo_;
  std::unique_ptr<COSInstanceData> data_;
};

/// The array that holds an object, named by package and class.
HostArray arrayOfObject(const std::shared_ptr<COSObject>& object, const std::string& className);
/// The object in an array. \throws "nexstore:nex:HostArrayMismatch" when there is none
std::shared_ptr<COSObject> objectInArray(const HostArray& array);

class COSPackage;

/// A package offered to the host.
class COSPackageInfo {
 public:
  virtual ~COSPackageInfo() = default;

  virtual const std::string& name() const = 0;
  /// Asked for once, when somebody first looks at the classes of the package.
  virtual void addClasses(COSPackage& package) const = 0;
};

/// A registered package. Packages and classes live until the process ends. Threads: any.
class COSPackage {
 public:
  /// Null when no package of that name is registered.
  static COSPackage* getPackage(std::string_view name);
  /// \throws "nexstore:nex:PackageExists" when the name is taken
  static COSPackage& addPackage(std::unique_ptr<COSPackageInfo> info);
  /// All of them, in order of registration.
  static std::vector<COSPackage*> allPackages();

  const std::string& name() const { return info_->name(); }
  /// \throws "nexstore:nex:ClassExists" when the name is taken
  void addClass(std::unique_ptr<COSClassInfo> info);
  std::vector<const COSClassInfo*> classes();
  /// Null when there is none.
  const COSClassInfo* findClass(std::string_view name);

  explicit COSPackage(std::unique_ptr<COSPackageInfo> info) : info_(std::move(info)) {}
  COSPackage(const COSPackage&) = delete;
  COSPackage& operator=(const COSPackage&) = delete;

 private:
  void askForClasses();

  const std::unique_ptr<COSPackageInfo> info_;
  std::recursive_mutex lock_;
  bool asked_ = false;
  std::vector<std::unique_ptr<COSClassInfo>> classes_;
};

}  // namespace host
