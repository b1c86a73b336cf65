#include "hostobject.h"

#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>
#include <vector>

#include "documentation.h"
#include "hostmethod.h"

namespace vela::python {
namespace {

using host::COSClassInfo;
using host::COSObject;

struct Object {
  PyObject_HEAD PyObject* weakReferences;
  std::shared_ptr<COSObject> held;
  /// Held while the object is being closed, without Python's lock.
  std::mutex closing;
};

struct PythonClass {
  PyTypeObject* type;
  const COSClassInfo* info;
  std::string qualifiedName;
};

/// Touched with Python's lock only.
struct Objects {
  std::vector<PythonClass> classes;
  std::unordered_map<const COSObject*, PyObject*> alive;
};

Objects& objects() {
  // Never destroyed: objects may die after every static one.
  static auto* const all = new Objects;
  return *all;
}

const PythonClass* classOf(PyTypeObject* type) {
  for (const PythonClass& each : objects().classes) {
    if (PyType_IsSubtype(type, each.type)) return &each;
  }
  return nullptr;
}

Object* asObject(PyObject* self) {
  return reinterpret_cast<Object*>(self);
}

PyObject* create(PyTypeObject* type, PyObject*, PyObject*) {
  PyObject* const self = type->tp_alloc(type, 0);
  if (!self) return nullptr;
  new (&asObject(self)->held) std::shared_ptr<COSObject>;
  new (&asObject(self)->closing) std::mutex;
  return self;
}

/// Lets go of the host's object, which may close a file and wait for other threads.
void letGo(Object* self) {
  std::shared_ptr<COSObject> last = std::move(self->held);
  if (!last) return;
  objects().alive.erase(last.get());
  withoutLockToTheEnd([&] { last.reset(); });
}

void hold(PyObject* self, std::shared_ptr<COSObject> object) {
  letGo(asObject(self));
  objects().alive[object.get()] = self;
  asObject(self)->held = std::move(object);
}

int initialize(PyObject* self, PyObject* args, PyObject* keywords) {
  return translating(-1, [&] {
    const COSClassInfo& info = *classOf(Py_TYPE(self))->info;
    auto object = std::make_shared<COSObject>(info);
    if (const host::COSMethodInfo* const constructor = info.constructor()) {
      callConstructor(*constructor, object, args, keywords);
    }
    hold(self, std::move(object));
    return 0;
  });
}

void destroy(PyObject* self) {
  PyTypeObject* const type = Py_TYPE(self);
  // First, so that nobody finds an object that is going away.
  objects().alive.erase(asObject(self)->held.get());
  if (asObject(self)->weakReferences) PyObject_ClearWeakRefs(self);
  {
    const py::error_scope keepsTheErrorThatIsSet;
    letGo(asObject(self));
  }
  asObject(self)->held.~shared_ptr();
  asObject(self)->closing.~mutex();
  type->tp_free(self);
  Py_DECREF(type);
}

std::string description(const Object& self) {
  if (!self.held) return "not initialized";
  std::unique_lock lock(const_cast<std::mutex&>(self.closing), std::try_to_lock);
  return lock ? self.held->instanceData().describe() : "being closed";
}

PyObject* represent(PyObject* self) {
  return translating<PyObject*>(nullptr, [&] {
    const py::object type = py::type::of(self);
    const std::string name = py::str(type.attr("__module__")).cast<std::string>() + "." +
                             type.attr("__qualname__").cast<std::string>();
    return py::str("<" + name + " " + description(*asObject(self)) + ">").release().ptr();
  });
}

void close(const std::shared_ptr<COSObject>& object, std::mutex& closing) {
  // Whoever is closing it already may wait for a call this thread is in.
  const std::unique_lock lock(closing, std::try_to_lock);
  if (lock) object->instanceData().close();
}

PyObject* close(PyObject* self, PyObject*) {
  return translating<PyObject*>(nullptr, [&] {
    const std::shared_ptr<COSObject> object = asObject(self)->held;
    if (object) withoutLockToTheEnd([&] { close(object, asObject(self)->closing); });
    return Py_NewRef(Py_None);
  });
}

PyObject* enter(PyObject* self, PyObject*) {
  return Py_NewRef(self);
}

PyObject* refuseCopy(PyObject* self, PyObject*) {
  PyErr_Format(PyExc_TypeError,
               "%s objects cannot be copied or pickled; pass the path and open it again",
               Py_TYPE(self)->tp_name);
  return nullptr;
}

PyMethodDef methods[] = {
    {"close", close, METH_NOARGS,
     "close($self, /)\n--\n\n"
     "Close a repository of the object's own; what is open in it is rolled back.\n\n"
     "The shared repository stays open. May be called again."},
    {"__enter__", enter, METH_NOARGS, nullptr},
    {"__exit__", close, METH_VARARGS, nullptr},
    {"__copy__", refuseCopy, METH_NOARGS, nullptr},
    {"__deepcopy__", refuseCopy, METH_VARARGS, nullptr},
    {"__reduce_ex__", refuseCopy, METH_VARARGS, nullptr},
    {nullptr, nullptr, 0, nullptr}};

PyMemberDef members[] = {
    {"__weaklistoffset__", T_PYSSIZET, offsetof(Object, weakReferences), READONLY, nullptr},
    {nullptr, 0, 0, 0, nullptr}};

py::object makeType(const COSClassInfo& info, const std::string& qualifiedName) {
  const std::string documentation = documentationOf(info);
  PyType_Slot slots[] = {{Py_tp_new, reinterpret_cast<void*>(create)},
                         {Py_tp_init, reinterpret_cast<void*>(initialize)},
                         {Py_tp_dealloc, reinterpret_cast<void*>(destroy)},
                         {Py_tp_repr, reinterpret_cast<void*>(represent)},
                         {Py_tp_methods, methods},
                         {Py_tp_members, members},
                         {Py_tp_doc, const_cast<char*>(documentation.c_str())},
                         {0, nullptr}};
  unsigned flags = Py_TPFLAGS_DEFAULT;
  if (!info.isSealed()) flags |= Py_TPFLAGS_BASETYPE;
  if (!info.mayBeConstructed()) flags |= Py_TPFLAGS_DISALLOW_INSTANTIATION;
  PyType_Spec spec = {qualifiedName.c_str(), sizeof(Object), 0, flags, slots};
  return checked(PyType_FromSpec(&spec));
}

}  // namespace

py::object makePythonClass(const COSClassInfo& info, const std::string& package) {
  objects().classes.push_back({nullptr, &info, package + "." + info.name()});
  PythonClass& made = objects().classes.back();
  const py::object type = makeType(info, made.qualifiedName);
  made.type = reinterpret_cast<PyTypeObject*>(py::object(type).release().ptr());
  for (const auto& method : info.methodInfos()) {
    if (method.get() == info.constructor()) continue;
    const py::object callable = makeMethod(*method, made.qualifiedName);
    const bool isStatic = !method->isInstanceMethod();
    type.attr(method->name().c_str()) =
        isStatic ? checked(PyStaticMethod_New(callable.ptr())) : callable;
  }
  return type;
}

bool isHostObject(PyObject* object) {
  return classOf(Py_TYPE(object)) != nullptr;
}

const std::shared_ptr<COSObject>& objectIn(PyObject* object) {
  return asObject(object)->held;
}

const std::shared_ptr<COSObject>& objectGiven(py::handle object, const Place& place,
                                              const std::string& expected) {
  if (!isHostObject(object.ptr()) || !objectIn(object.ptr())) {
    refuseType(place, expected, object);
  }
  return objectIn(object.ptr());
}

host::HostArray arrayOf(PyObject* object) {
  return host::arrayOfObject(objectIn(object), classOf(Py_TYPE(object))->qualifiedName);
}

py::object pythonObjectOf(const std::shared_ptr<COSObject>& object) {
  if (!object) return py::none();
  const auto found = objects().alive.find(object.get());
  if (found != objects().alive.end()) return py::reinterpret_borrow<py::object>(found->second);
  for (const PythonClass& each : objects().classes) {
    if (each.info != &object->classInfo()) continue;
    const py::object made = checked(create(each.type, nullptr, nullptr));
    hold(made.ptr(), object);
    return made;
  }
  throw py::type_error("an object of a class unknown to Python");
}

void closeAllObjects() {
  std::vector<std::pair<std::shared_ptr<PyObject>, std::shared_ptr<COSObject>>> all;
  {
    const LockHolder lock;
    for (const auto& [object, self] : objects().alive) {
      all.emplace_back(sharedReference(self), asObject(self)->held);
    }
  }
  for (const auto& [self, object] : all) close(object, asObject(self.get())->closing);
}

}  // namespace vela::python
