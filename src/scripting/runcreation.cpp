// New runs.
#include "objects/strings.h"
#include "scripting/families.h"
#include "scripting/method.h"

namespace vela::scripting {
namespace {

/// Makes a numbered run of that name; `finish` completes it in the same unit of work.
template <class Finish>
Int32<"runID"> newRun(ObjectManager& manager, const std::wstring& name, Finish&& finish) {
  int id = 0;
  manager.inTransaction([&] {
    Set run(manager, true);
    run.setName(name);
    finish(run);
    id = run.getID();
  });
  return {id};
}

Int32<"runID"> createRun(Repository repository, Wide<"name"> name) {
  return newRun(repository.manager, name, [](Set&) {});
}

Int32<"runID"> createEmptyRun(Repository repository, Wide<"name"> name, Any<"value"> value) {
  return newRun(repository.manager, name, [&](Set& run) {
    const host::HostArray& application = value;
    if (application.isText()) {
      run.setApplication(Set::getAppFromString(application.toString()));
    }
  });
}

Int32<"runID"> createViewRun(Repository repository, Wide<"name"> name) {
  return newRun(repository.manager, name, [](Set& run) {
    run.getObjectReference().setPropertyInt32(strings::Visible, 1);
  });
}

Int32<"runID"> createComparisonRun(Repository repository, Wide<"name"> name,
                                   Int32<"baselineID"> baseline,
                                   Int32<"compareToID"> compareTo) {
  return newRun(repository.manager, name, [&](Set& run) {
    run.setBaselineSetID(baseline);
    run.setCompareToSetID(compareTo);
    run.setApplication(Set::Application::VELAComparison);
  });
}

Int32<"runID"> copyRun(Repository, Run run, Ascii<"application"> application) {
  return {run->clone(Set::getAppFromString(application))->getID()};
}

struct VelaRepositoryCreateRun
    : Method<"createRun", "Create a run with the next run number.", &createRun> {};
struct VelaRepositoryCreateEmptyRun
    : Method<"createEmptyRun",
             "Create a run with the next run number; a text as second input names its "
             "application, anything else there has no effect.",
             &createEmptyRun> {};
struct VelaRepositoryCreateViewRun
    : Method<"createViewRun", "Create a run with the next run number that lists show.",
             &createViewRun> {};
struct VelaRepositoryCreateComparisonRun
    : Method<"createComparisonRun",
             "Create a run for the comparison of two runs; 0 stands for none.",
             &createComparisonRun, "KODD:kodd:NoSuchObject"> {};
struct VelaRepositoryCopyRun
    : Method<"copyRun", "Copy a run with its signals and metadata into a new run.", &copyRun> {
};

}  // namespace

void addRunCreationMethods(Methods& methods) {
  methods
      .add<VelaRepositoryCreateRun, VelaRepositoryCreateEmptyRun, VelaRepositoryCreateViewRun,
           VelaRepositoryCreateComparisonRun, VelaRepositoryCopyRun>();
}

}  // namespace vela::scripting
