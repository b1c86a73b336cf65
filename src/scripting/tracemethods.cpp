// Where the time goes.
#include "objectmanager/nextimer.h"
#include "scripting/families.h"
#include "scripting/method.h"
#include "velainstance.h"

namespace vela::scripting {
namespace {

Any<"log"> getQueryLog() {
  return {VelaInstance::getInstance().getQueryLog()};
}

void purgeQueryLog() {
  VelaInstance::getInstance().purgeQueryLog();
}

Any<"results"> getTracerResults() {
  return {*NexTimer::getInstance().getTimerResults()};
}

void resetTracer() {
  NexTimer::getInstance().reset();
}

struct VelaRepositoryGetQueryLog
    : Method<
          "getQueryLog",
          "Count and time, in seconds, of the object queries made so far: of the thread that "
          "loaded the library and of all threads.",
          &getQueryLog> {};
struct VelaRepositoryPurgeQueryLog
    : Method<"purgeQueryLog", "Begin the count of object queries anew.", &purgeQueryLog> {};
struct VelaRepositoryEnableDBTrace
    : Method<
          "enableDBTrace",
          "Let repositories opened from now on log every statement to \"dbtrace_log.txt\" in "
          "the current folder.",
          &ObjectManager::enableDBTrace> {};
struct VelaRepositoryEnableDBProfile
    : Method<"enableDBProfile",
             "Let repositories opened from now on log the duration of every statement in the "
             "current folder.",
             &ObjectManager::enableDBProfile> {};
struct VelaRepositoryGetTracerResults
    : Method<"getTracerResults",
             "What the stopwatch has measured: seconds in total and on average.",
             &getTracerResults> {};
struct VelaRepositoryResetTracer
    : Method<"resetTracer", "Set the stopwatch back.", &resetTracer> {};

}  // namespace

void addTraceMethods(Methods& methods) {
  methods.add<VelaRepositoryGetQueryLog, VelaRepositoryPurgeQueryLog,
              VelaRepositoryEnableDBTrace, VelaRepositoryEnableDBProfile,
              VelaRepositoryGetTracerResults, VelaRepositoryResetTracer>();
}

}  // namespace vela::scripting
