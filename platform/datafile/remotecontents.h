// The variables of a data file, looked at and read by another process.
#pragma once

#include <chrono>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "datafile/memoryfile.h"
#include "datafile/messages.h"
#include "datafile/readingprogram.h"

namespace datafile {

/// Nothing the other process says is believed: lengths are compared with that of the file
/// before anything is made of them, bytes are looked at when nobody can change them any more.
///
/// Errors: ReadFailure, also when the process dies or says nothing for too long; and
/// "KODD:kodd:Interrupted".
class RemoteContents {
 public:
  /// \param file       as for ReadingProgram
  /// \param fileBytes  its length
  RemoteContents(int file, std::uint64_t fileBytes);

  /// In the order that pieces name them by.
  const std::vector<Entry>& variables() const { return variables_; }

  /// Pieces that were asked for.
  struct Delivery {
    std::vector<Piece> pieces;
    MemoryFile memory;
    bool isThere = false;
    std::size_t complete = 0;  ///< so many of the pieces can be used
    std::string reason;        ///< why the next one cannot

    Delivery(std::vector<Piece> wanted, std::size_t bytes)
        : pieces(std::move(wanted)), memory(bytes) {}
  };
  /// Asks for pieces, which are read meanwhile: kMostRequestBytes at most, and none empty.
  std::shared_ptr<Delivery> request(std::vector<Piece> pieces);
  /// Waits until it is there.
  void await(const Delivery& delivery);

 private:
  using Clock = std::chrono::steady_clock;

  Message receive();
  void waitUntil(Clock::time_point latest) const;
  [[noreturn]] void raiseEnded();
  void takeVariables(const std::string& body);
  void takeDelivery(const Message& message);

  std::uint64_t fileBytes_;
  Clock::duration patience_;  ///< for all waiting
  ReadingProgram program_;
  bool hasStarted_ = false;
  std::uint64_t toldBytes_ = 0;
  std::vector<Entry> variables_;
  std::deque<std::shared_ptr<Delivery>> awaited_;
};

}  // namespace datafile
