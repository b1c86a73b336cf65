// A file of saved runs, opened and read through once.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "datafile/datafile.h"
#include "saving/objectrow.h"
#include "saving/savedformat.h"

namespace vela::saving {

/// The objects in a file, and what of them has to be known before the first is made.
///
/// Everything but the samples is read and checked by the constructor, which keeps a few bytes
/// an object. Errors: "nexstore:nex:CouldNotReadMatFile" and "InvalidFile".
class SavedFile {
 public:
  SavedFile(ObjectManager& manager, const datafile::DataFileReader& file);

  using Extent = datafile::DataFileReader::Extent;

  struct Enumerator {
    int id;
    int value;
    std::string label;
  };

  /// IDs in the order in which the objects were made; of data types, those that others stand
  /// for come first.
  const std::vector<int>& ofClass(const std::string& className) const;
  std::size_t count() const { return classes_.size(); }

  /// Runs with their places in the list, in that order.
  const std::vector<std::pair<int, int>>& runs() const { return runs_; }
  /// Objects that number a run, in the order of the numbers.
  std::vector<int> numbersInOrder() const;
  /// Enumerators by the definition they belong to.
  const std::vector<Enumerator>& enumerators(int definition) const;

  /// To be called before the objects are read once more, class by class as they are saved.
  void expectObjects(Extent extent) const;
  /// Reads an object into the row; stops before the chunks of a signal.
  ///
  /// \returns whether they follow
  bool readFields(datafile::DataFileReader::Variable& from, ObjectRow& row, int id) const;

  const datafile::DataFileReader& reader() const { return file_; }

 private:
  void readHeaders();
  void readHeader(const std::string& variable);
  void checkObjects(ObjectManager& manager);
  void checkLinks(ObjectRow& row, int id) const;
  void note(const ObjectRow& row, int id);
  void orderDataTypes();
  void refuseCircle(const std::map<int, int>& links, const std::string& what) const;

  const datafile::DataFileReader& file_;
  Descriptor descriptor_;
  std::map<int, const std::string*> classes_;  ///< by ID
  std::map<std::string, std::vector<int>> byClass_;
  std::vector<std::pair<int, int>> runs_;
  std::vector<std::pair<int, int>> numbers_;  ///< run number and object
  std::map<int, std::vector<Enumerator>> enumerators_;
  std::map<int, int> parents_;    ///< of signals that have one
  std::map<int, int> standsFor_;  ///< of data types that stand for another
};

}  // namespace vela::saving
