#include "saving/savedformat.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "host/functions.h"
#include "kodiag/message.h"

namespace vela::saving {
namespace {

/// The version since which references are records.
const std::string kVersionOfRecords = "8.5.0 (B15b)";
const std::string kHostVersionFunction = "version";

std::array<int, 3> numbersOf(const std::string& version) {
  std::array<int, 3> numbers{};
  std::sscanf(version.c_str(), "%d.%d.%d", &numbers[0], &numbers[1], &numbers[2]);
  return numbers;
}

}  // namespace

std::string variableName(const std::string& start, int objectID) {
  std::string name = start + std::to_string(objectID);
  std::ranges::replace(name, '-', '_');
  return name;
}

std::string hostVersion() {
  if (!host::hasFunction(kHostVersionFunction)) return kVersionOfRecords;
  return host::callFunction(kHostVersionFunction).front().toString();
}

bool isOlderVersion(const std::string& one, const std::string& other) {
  return numbersOf(one) < numbersOf(other);
}

bool hasBareReferences(const Descriptor& descriptor) {
  return isOlderVersion(descriptor.version, kVersionOfRecords);
}

host::HostArray toArray(const Descriptor& descriptor) {
  return host::HostArray::structure(
      {{kVersion, host::HostArray::text(descriptor.version)},
       {kDatabaseID, host::HostArray::text(descriptor.databaseID)}});
}

bool isSavedRepository(const datafile::DataFileReader& file) {
  if (!file.has(kDescriptor)) return false;
  const host::HostArray descriptor = file.get(kDescriptor);
  return descriptor.isStructure() && descriptor.isScalar() &&
         descriptor.fieldNames() == std::vector<std::string>{kVersion, kDatabaseID} &&
         descriptor.field(kVersion).isText() && descriptor.field(kDatabaseID).isText();
}

Descriptor readDescriptor(const datafile::DataFileReader& file) {
  if (!isSavedRepository(file)) refuseFile(file, "it does not describe itself as saved runs");
  const host::HostArray array = file.get(kDescriptor);
  Descriptor descriptor{array.field(kVersion).toString(), array.field(kDatabaseID).toString()};
  if (host::hasFunction(kHostVersionFunction) &&
      isOlderVersion(hostVersion(), descriptor.version)) {
    refuseFile(file, "it was saved by version " + descriptor.version + ", newer than " +
                         hostVersion());
  }
  return descriptor;
}

host::HostArray recordOf(int objectID, const std::string& className, host::HostArray data) {
  return host::HostArray::structure(
      {{kID, host::HostArray::scalar(static_cast<double>(objectID))},
       {kType, host::HostArray::text(className)},
       {kRecordData, std::move(data)}});
}

std::string reasonOf(const kodiag::Message& message) {
  const auto argument = [&](const char* name) {
    const auto place =
        std::ranges::find(message.arguments, name, &kodiag::Arguments::value_type::first);
    return place == message.arguments.end() ? std::string() : place->second;
  };
  if (message.id.key == "NoSuchVariable") {
    return "it has no variable \"" + argument("Variable") + "\"";
  }
  const std::string variable = argument("Variable");
  return (variable.empty() ? "" : "variable \"" + variable + "\": ") + argument("Reason");
}

void refuseFile(const datafile::DataFileReader& file, const std::string& reason) {
  kodiag::raise({"nexstore:nex", "InvalidFile"},
                {{"Location", file.path()}, {"Reason", reason}});
}

void requireFields(const datafile::DataFileReader& file, std::span<const std::string> expected,
                   std::span<const std::string> found, const std::string& ofWhat) {
  if (!std::ranges::equal(expected, found)) refuseFile(file, ofWhat + " has other fields");
}

}  // namespace vela::saving
