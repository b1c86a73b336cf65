// What every call of the HDF5 library needs: its lock, silence, handles that close themselves.
#pragma once

#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>

namespace datafile {

/// Handles of the library.
using Id = std::int64_t;

/// A call of the library failed; what() is its own reason.
class LibraryError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Lets this thread alone use the library, which does not print its errors meanwhile.
class LibraryGuard {
 public:
  LibraryGuard();
  ~LibraryGuard();
  LibraryGuard(const LibraryGuard&) = delete;
  LibraryGuard& operator=(const LibraryGuard&) = delete;

 private:
  std::unique_lock<std::recursive_mutex> lock_;
  /// What prints errors otherwise, and its argument.
  int (*printer_)(Id, void*) = nullptr;
  void* argument_ = nullptr;
};

/// Passes a result on; a negative one is thrown as a LibraryError.
Id checked(Id result);

/// Closes its handle at the end of its life. To be used under a LibraryGuard.
class Handle {
 public:
  Handle() = default;
  /// \throws LibraryError when `id` is the result of a failed call
  Handle(Id id, int (*closer)(Id)) : id_(checked(id)), close_(closer) {}
  ~Handle() { close(); }
  Handle(Handle&& other) noexcept
      : id_(std::exchange(other.id_, kNone)), close_(other.close_) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(id_, other.id_);
    std::swap(close_, other.close_);
    return *this;
  }

  operator Id() const { return id_; }
  bool isOpen() const { return id_ != kNone; }
  /// \returns whether the library could do all that closing means
  bool close() noexcept {
    const Id id = std::exchange(id_, kNone);
    return id == kNone || close_(id) >= 0;
  }

 private:
  static constexpr Id kNone = -1;

  Id id_ = kNone;
  int (*close_)(Id) = nullptr;
};

}  // namespace datafile
