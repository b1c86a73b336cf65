#include "datafile/messages.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace datafile {
namespace {

struct Head {
  Answer answer;
  std::uint32_t count;
};

/// A message with room for one descriptor beside it.
struct Envelope {
  explicit Envelope(std::span<iovec> parts) {
    header.msg_iov = parts.data();
    header.msg_iovlen = parts.size();
  }

  void enclose(int descriptor) {
    makeRoom();
    cmsghdr* const control = CMSG_FIRSTHDR(&header);
    control->cmsg_level = SOL_SOCKET;
    control->cmsg_type = SCM_RIGHTS;
    control->cmsg_len = CMSG_LEN(sizeof descriptor);
    std::memcpy(CMSG_DATA(control), &descriptor, sizeof descriptor);
  }
  void makeRoom() {
    header.msg_control = room;
    header.msg_controllen = sizeof room;
  }
  Descriptor enclosed() {
    const cmsghdr* const control = CMSG_FIRSTHDR(&header);
    if (!control || control->cmsg_type != SCM_RIGHTS) return Descriptor();
    int descriptor = -1;
    std::memcpy(&descriptor, CMSG_DATA(control), sizeof descriptor);
    return Descriptor(descriptor);
  }

  msghdr header{};
  alignas(cmsghdr) char room[CMSG_SPACE(sizeof(int))]{};
};

bool sendWhole(int socket, const msghdr& header, int flags) {
  ssize_t count;
  do {
    count = sendmsg(socket, &header, flags | MSG_NOSIGNAL);
  } while (count < 0 && errno == EINTR);
  return count >= 0;
}

/// \returns the bytes of the message, 0 for none
std::size_t receiveWhole(int socket, msghdr& header) {
  ssize_t count;
  do {
    count = recvmsg(socket, &header, MSG_CMSG_CLOEXEC);
  } while (count < 0 && errno == EINTR);
  const bool isWhole = count > 0 && (header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) == 0;
  return isWhole ? static_cast<std::size_t>(count) : 0;
}

iovec part(const void* begin, std::size_t size) {
  return {const_cast<void*>(begin), size};
}

std::uint64_t takeNumber(std::string_view& body) {
  std::uint64_t number = 0;
  std::memcpy(&number, body.data(), sizeof number);
  body.remove_prefix(sizeof number);
  return number;
}

}  // namespace

void append(std::string& body, std::uint64_t bytes, std::string_view name) {
  const std::uint64_t numbers[] = {bytes, name.size()};
  body.append(reinterpret_cast<const char*>(numbers), sizeof numbers);
  body += name;
}

std::optional<std::vector<Entry>> entriesIn(std::string_view body) {
  std::vector<Entry> entries;
  while (!body.empty()) {
    if (body.size() < 2 * sizeof(std::uint64_t)) return std::nullopt;
    const std::uint64_t bytes = takeNumber(body);
    const std::uint64_t length = takeNumber(body);
    if (length > body.size()) return std::nullopt;
    entries.push_back({bytes, std::string(body.substr(0, length))});
    body.remove_prefix(length);
  }
  return entries;
}

bool send(int socket, Answer answer, std::uint32_t count, std::string_view body) {
  const Head head{answer, count};
  iovec parts[] = {part(&head, sizeof head), part(body.data(), body.size())};
  return sendWhole(socket, Envelope(parts).header, 0);
}

std::optional<Message> receiveMessage(int socket) {
  Message message;
  message.body.resize(kMostMessageBytes);
  Head head{};
  iovec parts[] = {part(&head, sizeof head), part(message.body.data(), message.body.size())};
  Envelope envelope(parts);
  const std::size_t count = receiveWhole(socket, envelope.header);
  if (count < sizeof head || head.answer > Answer::read) return std::nullopt;
  message.answer = head.answer;
  message.count = head.count;
  message.body.resize(count - sizeof head);
  return message;
}

bool sendRequest(int socket, std::span<const Piece> pieces, int memoryFile) {
  iovec parts[] = {part(pieces.data(), pieces.size_bytes())};
  Envelope envelope(parts);
  envelope.enclose(memoryFile);
  return sendWhole(socket, envelope.header, MSG_DONTWAIT);
}

std::optional<Request> receiveRequest(int socket) {
  Request request;
  request.pieces.resize(kMostPieces);
  iovec parts[] = {part(request.pieces.data(), kMostPieces * sizeof(Piece))};
  Envelope envelope(parts);
  envelope.makeRoom();
  const std::size_t count = receiveWhole(socket, envelope.header);
  request.memoryFile = envelope.enclosed();
  if (count == 0 || count % sizeof(Piece) != 0 || request.memoryFile < 0) return std::nullopt;
  request.pieces.resize(count / sizeof(Piece));
  return request;
}

}  // namespace datafile
