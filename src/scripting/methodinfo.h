// The base of the handlers: what they declare, and the frame every call goes through.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/classes/classes.h"
#include "scripting/arguments.h"

namespace vela::scripting {

/// One method of "vela.Repository". Threads: any number of calls at a time; those that
/// write to one repository take turns. Raises errors as scripts are to see them.
class NexCOSMethodInfo : public host::COSMethodInfo {
 public:
  const std::string& name() const final { return name_; }
  const host::MethodSignature& signature() const final { return signature_; }
  const std::string& documentation() const final { return documentation_; }
  const std::vector<std::string>& raisedIDs() const final { return raisedIDs_; }

  /// \throws "nexstore:nex:InputCount" for a number of inputs that is not declared
  void invoke(int& resultCount, std::span<host::OutputValue> outputs,
              std::span<const host::InputValue> inputs) const final;

 protected:
  NexCOSMethodInfo(std::string name, std::string documentation, host::MethodSignature signature,
                   RaisedIDs raisedIDs);

  /// Does the work; fills `outputs` only when it has succeeded.
  virtual void perform(std::span<host::OutputValue> outputs,
                       std::span<const host::InputValue> inputs) const = 0;

 private:
  std::string name_;
  host::MethodSignature signature_;
  std::string documentation_;
  std::vector<std::string> raisedIDs_;
};

/// The handlers of a class, in the order they were added.
class Methods {
 public:
  template <class... Handlers>
  void add() {
    (infos_.push_back(std::make_unique<Handlers>()), ...);
  }
  std::vector<std::unique_ptr<host::COSMethodInfo>> take() { return std::move(infos_); }

 private:
  std::vector<std::unique_ptr<host::COSMethodInfo>> infos_;
};

}  // namespace vela::scripting
