#include "host/features.h"

#include <map>
#include <mutex>
#include <utility>

#include "host/processmutex.h"
#include "kodiag/message.h"

namespace host {
namespace {

struct Registry {
  ProcessMutex mutex;
  std::map<std::string, Feature*, std::less<>> byName;
};

// Never destroyed: features are static objects of other units and outlive any order of ours.
Registry& registry() {
  static auto* const features = new Registry;
  return *features;
}

}  // namespace

Feature::Feature(std::string name, std::string description, std::string owningUnit,
                 std::string group, int trackingNumber, int defaultValue)
    : name_(std::move(name)),
      description_(std::move(description)),
      owningUnit_(std::move(owningUnit)),
      group_(std::move(group)),
      trackingNumber_(trackingNumber),
      defaultValue_(defaultValue),
      value_(defaultValue) {
  const std::lock_guard lock(registry().mutex);
  if (!registry().byName.emplace(name_, this).second) {
    kodiag::raise({"nexstore:nex", "FeatureExists"}, {{"FeatureName", name_}});
  }
}

Feature::~Feature() {
  const std::lock_guard lock(registry().mutex);
  registry().byName.erase(name_);
}

int Feature::value() const {
  accesses_.fetch_add(1, std::memory_order_relaxed);
  return value_;
}

int Feature::setFeatValFromC(int value) {
  return value_.exchange(value);
}

TestingHook::TestingHook(std::string name, std::string description, std::string owningUnit)
    : Feature(std::move(name), std::move(description), std::move(owningUnit), "Testing hooks",
              0, 0) {}

Feature* findFeature(std::string_view name) {
  const std::lock_guard lock(registry().mutex);
  const auto found = registry().byName.find(name);
  return found == registry().byName.end() ? nullptr : found->second;
}

std::vector<Feature*> allFeatures() {
  const std::lock_guard lock(registry().mutex);
  std::vector<Feature*> features;
  for (const auto& [name, feature] : registry().byName) features.push_back(feature);
  return features;
}

}  // namespace host
