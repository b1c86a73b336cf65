#include "datafile/beginnings.h"

#include <algorithm>

namespace datafile {
namespace {

/// Of a variable that nobody expected.
constexpr std::uint64_t kFewBytes = std::uint64_t{32} << 10;
/// Of any.
constexpr std::uint64_t kMostBytes = std::uint64_t{1} << 20;
/// Requested together, with the last one beyond.
constexpr std::uint64_t kTogetherBytes = std::uint64_t{2} << 20;

static_assert(kTogetherBytes + kMostBytes <= kMostRequestBytes);

bool holds(const RemoteContents::Delivery* delivery, std::uint32_t variable) {
  return delivery && std::ranges::find(delivery->pieces, variable, &Piece::variable) !=
                         delivery->pieces.end();
}

Part partOf(const std::shared_ptr<RemoteContents::Delivery>& delivery, std::uint32_t variable) {
  std::uint64_t place = 0;
  for (std::size_t i = 0; i < delivery->complete; ++i) {
    const Piece& piece = delivery->pieces[i];
    if (piece.variable == variable) {
      return {delivery, delivery->memory.bytes().subspan(place, piece.length)};
    }
    place += piece.length;
  }
  return {delivery, {}};
}

}  // namespace

Beginnings::Beginnings(RemoteContents& contents)
    : contents_(contents), bytesOfEach_(kFewBytes) {}

void Beginnings::expect(std::vector<std::uint32_t> variables, std::uint64_t bytesOfEach) {
  bytesOfEach_ = std::min(bytesOfEach, kMostBytes);
  expected_ = std::move(variables);
  next_ = 0;
  coming_ = nullptr;
}

Part Beginnings::of(std::uint32_t variable) {
  if (!holds(here_.get(), variable)) {
    const bool isExpected = next_ < expected_.size() && expected_[next_] == variable;
    if (holds(coming_.get(), variable)) {
      here_ = std::move(coming_);
      coming_ = requestNext();
    } else if (isExpected) {
      here_ = requestNext();
      coming_ = requestNext();
    } else {
      here_ = contents_.request({pieceOf(variable)});
    }
  }
  contents_.await(*here_);
  Part part = partOf(here_, variable);
  const bool isBehindAnother = part.bytes.empty() && here_->pieces.front().variable != variable;
  if (!isBehindAnother) return part;
  // It was not read because one before it could not be.
  here_ = contents_.request({pieceOf(variable)});
  contents_.await(*here_);
  return partOf(here_, variable);
}

Piece Beginnings::pieceOf(std::uint32_t variable) const {
  return {variable, 0, std::min(contents_.variables()[variable].bytes, bytesOfEach_)};
}

Beginnings::Delivery Beginnings::requestNext() {
  std::vector<Piece> pieces;
  std::uint64_t bytes = 0;
  while (next_ < expected_.size() && pieces.size() < kMostPieces && bytes < kTogetherBytes) {
    pieces.push_back(pieceOf(expected_[next_++]));
    bytes += pieces.back().length;
  }
  return pieces.empty() ? nullptr : contents_.request(std::move(pieces));
}

}  // namespace datafile
