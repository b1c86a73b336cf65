// The rows of runs that lists and display names are made from, each read with one statement.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "objectmanager/objectmanager.h"
#include "objects/set.h"

namespace vela {

/// What lists and display names need of a "DataSet" object.
struct RunRow {
  kodd::ObjectRef object;
  std::wstring name;
  double date = 0;
  int application = 0;
  kodd::ObjectRef baseline;   ///< empty when there is none or it is gone
  kodd::ObjectRef compareTo;  ///< likewise
};

/// Lets a query fill `row`, which must outlive it.
void addRunResults(kodd::ObjectQuery& query, const kodd::ClassRef& dataSet, RunRow& row);

/// The visible runs of an application, by order index, then in creation order.
class VisibleRuns {
 public:
  VisibleRuns(ObjectManager& manager, Set::Application application, Set::Sessions sessions);
  /// Those of one instance that nobody is writing any more.
  VisibleRuns(ObjectManager& manager, Set::Application application, long long instanceID);
  VisibleRuns(const VisibleRuns&) = delete;
  VisibleRuns& operator=(const VisibleRuns&) = delete;

  int count();
  void forEach(const std::function<void(const RunRow&)>& use);

 private:
  void constrain(kodd::ObjectQuery& query) const;

  ObjectManager& manager_;
  kodd::ClassRef dataSet_;
  const int yes_ = 1;
  const int no_ = 0;
  long long instanceID_;
  int application_;
  bool ofAllSessions_;
  bool finishedOnly_ = false;
};

}  // namespace vela
