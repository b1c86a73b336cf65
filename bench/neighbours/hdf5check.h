// The little that every use of the bare HDF5 API here needs.
#pragma once

#include <hdf5.h>

#include <stdexcept>
#include <string>

namespace neighbours {

template <typename Result>
Result check(Result result, const char* operation) {
  if (result < 0) throw std::runtime_error(std::string("HDF5: ") + operation + " failed");
  return result;
}

/// A handle that is closed at the end of its scope.
class Scoped {
 public:
  Scoped(hid_t handle, herr_t (*close)(hid_t), const char* operation)
      : handle_(check(handle, operation)), close_(close) {}
  ~Scoped() { close_(handle_); }
  Scoped(const Scoped&) = delete;
  Scoped& operator=(const Scoped&) = delete;
  operator hid_t() const { return handle_; }

 private:
  hid_t handle_;
  herr_t (*close_)(hid_t);
};

}  // namespace neighbours
