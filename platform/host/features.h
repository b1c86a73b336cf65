// Features: named process-wide switches that their owners register when the library is loaded.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/// One switch. A static object of the source file that reads it:
///
///     host::Feature staticDMR{"VELAStaticDMR", "VELA persistent DMR", "vela instance",
///                             vela::kFeatureGroup, 1195856, 1};
///
/// It is found by name from its construction to its destruction. Threads: any.
class Feature {
 public:
  /// \throws "nexstore:nex:FeatureExists" when the name is taken
  Feature(std::string name, std::string description, std::string owningUnit, std::string group,
          int trackingNumber, int defaultValue);
  ~Feature();
  Feature(const Feature&) = delete;
  Feature& operator=(const Feature&) = delete;

  /// The value now; counts an access.
  int value() const;
  /// Sets the value; returns the one before, without counting an access.
  int setFeatValFromC(int value);
  /// How often value() was called.
  std::uint64_t accessCount() const { return accesses_; }

  const std::string& name() const { return name_; }
  const std::string& description() const { return description_; }
  const std::string& owningUnit() const { return owningUnit_; }
  const std::string& group() const { return group_; }
  int trackingNumber() const { return trackingNumber_; }
  int defaultValue() const { return defaultValue_; }

 private:
  const std::string name_;
  const std::string description_;
  const std::string owningUnit_;
  const std::string group_;
  const int trackingNumber_;
  const int defaultValue_;
  std::atomic<int> value_;
  mutable std::atomic<std::uint64_t> accesses_ = 0;
};

/// A switch for tests: off (0) until a test sets it, listed under its own group.
class TestingHook : public Feature {
 public:
  TestingHook(std::string name, std::string description, std::string owningUnit);
};

/// The registered feature or testing hook of that name; null when there is none.
Feature* findFeature(std::string_view name);
/// All of them, by name.
std::vector<Feature*> allFeatures();

}  // namespace host
