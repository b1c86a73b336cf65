// The first bytes of many variables, fetched together.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "datafile/remotecontents.h"

namespace datafile {

/// A part of a variable that was delivered.
struct Part {
  std::shared_ptr<const RemoteContents::Delivery> delivery;  ///< keeps the bytes
  std::span<const char> bytes;
};

/// Variables are small and many: asked for one by one, most of the time would go into waiting.
class Beginnings {
 public:
  explicit Beginnings(RemoteContents& contents);

  /// Which variables are asked for next, in this order, and how much of each will be needed at
  /// most. Others may come between.
  void expect(std::vector<std::uint32_t> variables, std::uint64_t bytesOfEach);

  /// The first bytes of a variable; how many, the delivery decides.
  ///
  /// The delivery may lack it: then it tells the reason.
  /// \throws ReadFailure
  Part of(std::uint32_t variable);

 private:
  using Delivery = std::shared_ptr<RemoteContents::Delivery>;

  Piece pieceOf(std::uint32_t variable) const;
  Delivery requestNext();

  RemoteContents& contents_;
  std::uint64_t bytesOfEach_;
  std::vector<std::uint32_t> expected_;
  std::size_t next_ = 0;  ///< of those expected, the first that was not requested
  Delivery here_;
  Delivery coming_;
};

}  // namespace datafile
