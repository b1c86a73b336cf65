#include "objects/dataserializationutil.h"

#include <algorithm>
#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#include <boost/iostreams/device/array.hpp>
#include <boost/iostreams/device/back_inserter.hpp>
#include <boost/iostreams/stream.hpp>
#include <boost/serialization/vector.hpp>
#include <cstring>
#include <string_view>
#include <utility>

#include "kodiag/message.h"

namespace vela {
namespace {

[[noreturn]] void raiseBroken(const std::string& reason) {
  kodiag::raise({"nexstore:nex", "InvalidData"},
                {{"Operation", "Reading serialised chunk bytes"}, {"Reason", reason}});
}

// Archives begin with the length of a text and the text. Of other bytes the length would be
// believed, and memory reserved for it.
bool hasSignature(const char* bytes, unsigned count) {
  constexpr std::string_view kText = "serialization::archive";
  constexpr std::size_t kLength = kText.size();
  return count >= sizeof kLength + kLength &&
         std::memcmp(bytes, &kLength, sizeof kLength) == 0 &&
         std::string_view(bytes + sizeof kLength, kLength) == kText;
}

// The archive names its length in front of the bytes. It is read by itself first, so that a
// false one cannot make us allocate.
std::size_t claimedLength(const char* bytes, unsigned count) {
  boost::iostreams::stream<boost::iostreams::array_source> stream(bytes, count);
  boost::archive::binary_iarchive archive(stream);
  boost::serialization::collection_size_type length(0);
  archive >> length;
  return static_cast<std::size_t>(std::as_const(length));
}

template <class T>
void concatenate(const std::vector<std::vector<T>>& parts, std::vector<T>& out) {
  std::size_t size = 0;
  for (const std::vector<T>& part : parts) size += part.size();
  out.resize(size);
  auto end = out.begin();
  for (const std::vector<T>& part : parts) end = std::copy(part.begin(), part.end(), end);
}

}  // namespace

void DataSerializationUtil::Serialize(const char* bytes, unsigned count,
                                      std::vector<char>& out) {
  const std::vector<char> copy(bytes, bytes + count);
  std::vector<char> archived;
  {
    boost::iostreams::stream<boost::iostreams::back_insert_device<std::vector<char>>> stream(
        archived);
    boost::archive::binary_oarchive archive(stream);
    archive << copy;
  }
  out.swap(archived);
}

void DataSerializationUtil::Deserialize(const char* bytes, unsigned count,
                                        std::vector<char>& out) {
  if (!hasSignature(bytes, count)) raiseBroken("they are no archive");
  std::vector<char> result;
  std::string failure;
  try {
    if (claimedLength(bytes, count) > count) {
      failure = "they are cut off";
    } else {
      boost::iostreams::stream<boost::iostreams::array_source> stream(bytes, count);
      boost::archive::binary_iarchive archive(stream);
      archive >> result;
    }
  } catch (const std::exception& error) {
    // Not only archives' own errors: false bytes make reading fail in other ways too.
    failure = error.what();
  }
  if (!failure.empty()) raiseBroken(failure);
  out.swap(result);
}

void DataSerializationUtil::deserializeDataChunks(std::vector<std::vector<char>>& chunks) {
  std::vector<std::vector<char>> results(chunks.size());
  for (std::size_t i = 0; i < chunks.size(); ++i) {
    if (chunks[i].size() > UINT32_MAX) raiseBroken("one chunk has more than 4 GiB");
    Deserialize(chunks[i].data(), static_cast<unsigned>(chunks[i].size()), results[i]);
  }
  chunks.swap(results);
}

void DataSerializationUtil::concatenateDataChunks(const std::vector<std::vector<char>>& chunks,
                                                  std::vector<char>& out) {
  concatenate(chunks, out);
}

void DataSerializationUtil::concatenateTimeChunks(
    const std::vector<std::vector<double>>& chunks, std::vector<double>& out) {
  concatenate(chunks, out);
}

void DataSerializationUtil::concatenateEpochIdxChunks(
    const std::vector<std::vector<unsigned>>& chunks, std::vector<unsigned>& out) {
  concatenate(chunks, out);
}

}  // namespace vela
