#include "datafile/hdf5calls.h"

#include <hdf5.h>

#include <type_traits>

namespace datafile {
namespace {

static_assert(std::is_same_v<hid_t, Id>);
static_assert(std::is_same_v<herr_t, int>);

std::recursive_mutex& libraryMutex() {
  static auto* const mutex = new std::recursive_mutex;
  return *mutex;
}

// The innermost description says most.
herr_t noteReason(unsigned, const H5E_error2_t* error, void* reason) {
  if (error->desc != nullptr) *static_cast<std::string*>(reason) = error->desc;
  return 1;
}

}  // namespace

LibraryGuard::LibraryGuard() : lock_(libraryMutex()) {
  H5Eget_auto2(H5E_DEFAULT, &printer_, &argument_);
  H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
}

LibraryGuard::~LibraryGuard() {
  H5Eset_auto2(H5E_DEFAULT, printer_, argument_);
}

Id checked(Id result) {
  if (result >= 0) return result;
  std::string reason = "the HDF5 library gave no reason";
  H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, noteReason, &reason);
  throw LibraryError(reason);
}

}  // namespace datafile
