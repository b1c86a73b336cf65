// What the tests of the scripting class share: objects of it in a folder of their own, and
// short forms to call methods as a host does.
#pragma once

#include <cstdlib>
#include <limits>
#include <map>
#include <utility>
#include <vector>

#include "host/classes/calls.h"
#include "kodd/hostarraycodec.h"
#include "scripting/module.h"
#include "scripting/wrapper.h"
#include "tests/objectmanager/managertest.h"

namespace vela::test {

using host::HostArray;
using host::HostArrays;

/// Calls whose error counts are written `idOf([&] { ... })`: the ID a script sees, empty when
/// there is no error.
inline std::string idOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const kodiag::except::ExceptionWithCauses& error) {
    return error.id();
  }
  return {};
}

/// Arrays from what tests write.
inline HostArray array(const HostArray& given) {
  return given;
}
inline HostArray array(const char* text) {
  return HostArray::text(text::toWide(text));
}
inline HostArray array(const wchar_t* text) {
  return HostArray::text(std::wstring(text));
}
inline HostArray array(const std::wstring& text) {
  return HostArray::text(text);
}
inline HostArray array(const std::vector<int>& numbers) {
  return HostArray::list(numbers);
}
template <host::ArrayElement Number>
HostArray array(Number number) {
  return HostArray::scalar(number);
}

inline std::vector<int> ints(const HostArray& list) {
  EXPECT_EQ(list.rank(), 1u);
  const std::span<const int> values = list.values<int>();
  return {values.begin(), values.end()};
}

/// An object of class "vela.Repository" and its methods.
class ScriptObject {
 public:
  explicit ScriptObject(const HostArrays& arguments)
      : object_(host::construct(classInfo(), arguments)) {}

  static const host::COSClassInfo& classInfo() {
    OBInitialize_nexstore();
    return *host::COSPackage::getPackage("vela")->findClass("Repository");
  }
  static const host::COSMethodInfo& method(const std::string& name) {
    const host::COSMethodInfo* const info = classInfo().findMethod(name);
    if (!info) throw std::runtime_error("no method " + name);
    return *info;
  }

  HostArray self() const { return host::arrayOfObject(object_, "vela.Repository"); }
  HostArrays callAll(const std::string& name, HostArrays arguments) const {
    const host::COSMethodInfo& info = method(name);
    if (info.isInstanceMethod()) arguments.insert(arguments.begin(), self());
    return host::callMethod(info, arguments);
  }
  /// The first output; an empty array when there is none.
  template <class... Arguments>
  HostArray operator()(const std::string& name, const Arguments&... arguments) const {
    const HostArrays results = callAll(name, {array(arguments)...});
    return results.empty() ? HostArray() : results.front();
  }
  template <class... Arguments>
  int id(const std::string& name, const Arguments&... arguments) const {
    return static_cast<int>((*this)(name, arguments...).toInt64());
  }

  const std::shared_ptr<host::COSObject>& object() const { return object_; }
  host::COSInstanceData& data() const { return object_->instanceData(); }
  ObjectManager& manager() const {
    return *dynamic_cast<scripting::ObjectManagerWrapper&>(data()).getObjMgr();
  }

 private:
  std::shared_ptr<host::COSObject> object_;
};

/// Everything stored of the classes that scripts reach: values by class, object and property.
using Census = std::map<std::pair<std::string, int>, std::map<std::string, HostArray>>;

inline Census censusOf(ObjectManager& manager) {
  Census census;
  manager.inReadUnit([&] {
    for (const char* const name :
         {"DataSet", "OutputMetaData", "Signal", "MetaData", "RunNumberByRunID", "PausedModel",
          "TestHarnessData", "MinMaxOrderIndex", "RunNameTemplate"}) {
      std::vector<std::string> properties;
      manager.getClass(name).getPropertyNames(properties);
      boost::ptr_vector<ObjectRef> objects;
      manager.findObjects(name, {}, objects);
      for (const ObjectRef& object : objects) {
        auto& values = census[{name, object.getObjectID()}];
        for (const std::string& property : properties) {
          if (manager.getPropertyRef(name, property).kind() == kodd::PropertyKind::collection) {
            continue;
          }
          kodd::EntryValue value;
          object.getProperty(property, value);
          values[property] = kodd::convertEntryValueToHostArray(value);
        }
      }
    }
  });
  return census;
}

/// A repository file of its own.
class ScriptingTest : public testing::Test {
 protected:
  ScriptingTest() : vela_({array((folder_ / "store.dmr").c_str())}) {}

  int run(const wchar_t* name = L"run") { return vela_.id("createRun", name); }
  /// A signal in the run, made beside the script class.
  int signalIn(int runID) {
    const int id = vela_.id("createObject", "Signal");
    vela_("addSignal", runID, id);
    return id;
  }
  HostArray property(int object, const char* name) {
    return vela_("getProperty", object, name);
  }
  void set(int object, const char* name, const HostArray& value) {
    vela_("setProperty", object, name, value);
  }

  TemporaryFolder folder_;
  ScriptObject vela_;
};

}  // namespace vela::test
