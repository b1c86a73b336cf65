// Numbers, places and the naming of runs.
#include "scripting/families.h"
#include "scripting/method.h"

namespace vela::scripting {
namespace {

void setShowRunAtTop(Repository repository, Flag<"flag"> flag) {
  Set::setShowRunAtTop(flag, repository.manager);
}

void setRunNameTemplate(Repository repository, Wide<"template"> text) {
  Set::setRunNameTemplate(text, repository.manager);
}

void setHighestRunNumber(Repository repository, Int32<"number"> number) {
  Set::setHighestRunNumber(repository.manager, number);
}

struct VelaRepositoryGetRunNumber
    : RunGetter<"getRunNumber", &Set::getRunNumber, Int32<"number">,
                "Number of a run; 0 when it has none."> {};
struct VelaRepositorySetRunNumber
    : RunSetter<"setRunNumber", &Set::setRunNumber, Int32<"number">,
                "Give a run a number; the highest number stays."> {};
struct VelaRepositoryGetRunIndex
    : RunGetter<"getRunIndex", &Set::getOrderIndex, Int32<"index">,
                "Place of a run in the lists, which ascend; may be negative."> {};
struct VelaRepositorySetRunIndex : RunSetter<"setRunIndex", &Set::setOrderIndex, Int32<"index">,
                                             "Give a run a place in the lists."> {};
struct VelaRepositoryGetRunNameTemplate
    : RepositoryGetter<"getRunNameTemplate", &Set::getRunNameTemplate, Wide<"template">,
                       "Template of the names of new runs."> {};
struct VelaRepositorySetRunNameTemplate
    : Method<"setRunNameTemplate", "Set the template of the names of new runs.",
             &setRunNameTemplate> {};
struct VelaRepositoryRestoreRunNameTemplate
    : RepositoryAction<"restoreRunNameTemplate", &Set::restoreRunNameTemplate,
                       "Go back to the template of the preferences."> {};
struct VelaRepositoryGetHighestRunNumber
    : RepositoryGetter<"getHighestRunNumber", &Set::getHighestRunNumber, Int32<"number">,
                       "Highest run number given out; 0 before the first."> {};
struct VelaRepositorySetHighestRunNumber
    : Method<"setHighestRunNumber", "Set after which number the next run is numbered.",
             &setHighestRunNumber> {};
struct VelaRepositoryGetShowRunAtTop
    : RepositoryGetter<"getShowRunAtTop", &Set::getShowRunAtTop, Flag<"flag">,
                       "Whether new runs go to the top of the lists."> {};
struct VelaRepositorySetShowRunAtTop
    : Method<"setShowRunAtTop", "Set whether new runs go to the top of the lists.",
             &setShowRunAtTop> {};

}  // namespace

void addRunNumberingMethods(Methods& methods) {
  methods.add<VelaRepositoryGetRunNumber, VelaRepositorySetRunNumber, VelaRepositoryGetRunIndex,
              VelaRepositorySetRunIndex, VelaRepositoryGetRunNameTemplate,
              VelaRepositorySetRunNameTemplate, VelaRepositoryRestoreRunNameTemplate,
              VelaRepositoryGetHighestRunNumber, VelaRepositorySetHighestRunNumber,
              VelaRepositoryGetShowRunAtTop, VelaRepositorySetShowRunAtTop>();
}

}  // namespace vela::scripting
