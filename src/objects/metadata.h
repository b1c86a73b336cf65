// Named values attached to a run or a signal.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kodd/entryvalue.h"
#include "objectmanager/objectmanager.h"

namespace vela::metadata {

/// An entry value with the storage behind it: blobs and arrays point into `bytes`/`array`.
struct Value {
  kodd::EntryValue value;
  std::vector<char> bytes;
  std::shared_ptr<const host::HostArray> array;
};

/// The value under that name; undefined when there is none.
Value get(ObjectManager& manager, int ownerID, const std::string& name);
/// Stores the value under that name, in place of an earlier one of whatever kind; an undefined
/// value removes the entry.
///
/// \param parentType  class of the owner
/// \throws "nexstore:nex:InvalidData" for a kind that metadata cannot hold or an integer beyond
///         64 signed bits; the earlier value is then unchanged
void set(ObjectManager& manager, int ownerID, const std::string& parentType,
         const std::string& name, const kodd::EntryValue& value);
/// The names, oldest entry first; a value of another kind makes a new entry.
std::vector<std::string> names(ObjectManager& manager, int ownerID);

}  // namespace vela::metadata
