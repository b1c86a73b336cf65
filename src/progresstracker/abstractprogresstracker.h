// Tells how far a long operation is to whoever wants to show it.
#pragma once

#include <memory>
#include <string>

namespace vela {

class ProgressTrackerFactory;

/// The progress of one operation: a message, a maximum and a value from 0 on.
///
/// Threads: a tracker is used by the thread that runs its operation; the factories are kept for
/// all threads.
class AbstractProgressTracker {
 public:
  AbstractProgressTracker(std::wstring message, unsigned maxValue, bool modal)
      : message_(std::move(message)), maxValue_(maxValue), modal_(modal) {}
  virtual ~AbstractProgressTracker() = default;
  AbstractProgressTracker(const AbstractProgressTracker&) = delete;
  AbstractProgressTracker& operator=(const AbstractProgressTracker&) = delete;

  const std::wstring& getMessage() const { return message_; }
  unsigned getMaxValue() const { return maxValue_; }
  unsigned getValue() const { return value_; }
  bool getIsModal() const { return modal_; }
  /// Leaves the value as it is, even beyond the new maximum.
  void changeMaxValue(const unsigned& maxValue) { maxValue_ = maxValue; }
  /// One step further, through updateValue(); goes on from 0 behind the largest number.
  void incrementValue() { updateValue(value_ + 1); }

  /// Stores the value; overridden to show it. What it throws stops the operation, which then
  /// leaves no trace.
  virtual void updateValue(const unsigned& value) { setValue(value); }

  /// A tracker of the factory registered under that key; null when there is none or it makes
  /// none.
  static std::unique_ptr<AbstractProgressTracker> createTracker(const std::string& key,
                                                                const std::wstring& message,
                                                                unsigned maxValue, bool modal);
  /// Registers the factory in place of one registered before; null removes.
  static void setFactory(const std::string& key,
                         std::shared_ptr<ProgressTrackerFactory> factory);
  static void removeFactory(const std::string& key);

 protected:
  void setValue(const unsigned& value) { value_ = value; }

 private:
  std::wstring message_;
  unsigned maxValue_;
  unsigned value_ = 0;
  bool modal_;
};

/// Makes the trackers of one key.
class ProgressTrackerFactory {
 public:
  virtual ~ProgressTrackerFactory() = default;
  /// May be null.
  virtual std::unique_ptr<AbstractProgressTracker> createTracker(const std::wstring& message,
                                                                 unsigned maxValue,
                                                                 bool modal) = 0;
};

}  // namespace vela
