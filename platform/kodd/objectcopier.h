// Copies of many objects, made inside the file.
#pragma once

#include <memory>

#include "kodd/constraints.h"
#include "kodd/entryvalue.h"
#include "kodiag/diagnostics.h"

namespace kodd {

class DataModelRepository;

/// Copies sets of objects that refer to each other: first every set is added, then all are
/// copied with as few statements as a bounded use of memory allows. Blobs never leave the
/// store.
///
/// A reference or link of a copy leads to the copy of what its original names, or to what
/// stands in for that, and where there is neither, to the same object. Copies are created in
/// the order of their originals.
///
/// Use it within one writing unit of work, from the first add to the last question, and one at
/// a time on a repository: it keeps its notes in the connection. Errors as everywhere in kodd.
class ObjectCopier {
 public:
  explicit ObjectCopier(DataModelRepository& repository);
  ~ObjectCopier();
  ObjectCopier(ObjectCopier&&) noexcept;
  ObjectCopier& operator=(ObjectCopier&&) noexcept;

  /// Objects to copy; those that were added before are passed over. \returns how many are new
  long long add(const Selection& selection, kodiag::util::diagnostics& diag);
  /// References to `original`, which is not copied, become references to `standIn`, an object
  /// of its class.
  void substitute(int original, int standIn, kodiag::util::diagnostics& diag);
  /// Every copy gets this value in place of its original's. A reference stays as given.
  void give(const PropertyRef& property, const EntryValue& value,
            kodiag::util::diagnostics& diag);

  /// Makes the copies of what was added.
  void copy(kodiag::util::diagnostics& diag);
  /// The object that takes the place of `original` in the copies; 0 when there is none.
  int placeOf(int original, kodiag::util::diagnostics& diag);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kodd
