// What the program that reads a data file and the process that started it say to each other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "datafile/descriptor.h"

namespace datafile {

/// The reading program's ends of the conversation and of the file, as descriptors.
inline constexpr int kSocketNumber = 3;
inline constexpr int kFileNumber = 4;

/// No message is longer.
inline constexpr std::size_t kMostMessageBytes = std::size_t{64} << 10;
/// No request asks for more.
inline constexpr std::size_t kMostRequestBytes = std::size_t{4} << 20;
inline constexpr std::size_t kMostPieces = 256;

/// A part of a variable. A request is an array of them, with the memory file they are to be
/// written to one behind the other.
struct Piece {
  std::uint64_t variable;  ///< its place in the order in which variables were told
  std::uint64_t offset;
  std::uint64_t length;
};

/// What the reading program says. It begins with `working`, repeated while it has work, then
/// tells all `variables` in any number of messages and ends with `listed`; from then on it
/// answers each request with `read`. `unreadable` and `refused` end the conversation.
enum class Answer : std::uint32_t {
  working,
  unreadable,  ///< with the reason: it is no data file or not as it was written
  refused,     ///< with the reason: there is something in it that is none of ours
  variables,   ///< with their entries
  listed,
  read,  ///< with the number of pieces that are complete, and what is wrong with the next
};

struct Message {
  Answer answer = Answer::working;
  std::uint32_t count = 0;  ///< of pieces
  std::string body;
};

struct Entry {
  std::uint64_t bytes;
  std::string name;
};

/// An entry in the body of a message: bytes and length of the name (8 bytes each), the name.
void append(std::string& body, std::uint64_t bytes, std::string_view name);
/// The entries in a body; nothing when it is not made of them.
std::optional<std::vector<Entry>> entriesIn(std::string_view body);

// Sending and receiving. Errors of the socket and a process that is gone are false or nothing;
// so is a message that is none.
bool send(int socket, Answer answer, std::uint32_t count, std::string_view body);
std::optional<Message> receiveMessage(int socket);
/// Never waits: a process that does not listen is as good as gone.
bool sendRequest(int socket, std::span<const Piece> pieces, int memoryFile);
struct Request {
  std::vector<Piece> pieces;
  Descriptor memoryFile;
};
std::optional<Request> receiveRequest(int socket);

}  // namespace datafile
