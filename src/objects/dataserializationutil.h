// The form in which chunk bytes cross to the host, and the joining of chunks.
#pragma once

#include <vector>

namespace vela {

/// Chunk bytes as a byte vector in a boost binary archive, header included. Stored chunks are
/// raw bytes; the archive is for the host boundary alone.
struct DataSerializationUtil {
  static void Serialize(const char* bytes, unsigned count, std::vector<char>& out);
  /// \throws "nexstore:nex:InvalidData" when the bytes are no such archive, or one that claims
  ///         more than it holds; `out` is then unchanged
  static void Deserialize(const char* bytes, unsigned count, std::vector<char>& out);
  /// Replaces each element by its deserialised bytes; on an error none is changed.
  static void deserializeDataChunks(std::vector<std::vector<char>>& chunks);

  static void concatenateDataChunks(const std::vector<std::vector<char>>& chunks,
                                    std::vector<char>& out);
  static void concatenateTimeChunks(const std::vector<std::vector<double>>& chunks,
                                    std::vector<double>& out);
  static void concatenateEpochIdxChunks(const std::vector<std::vector<unsigned>>& chunks,
                                        std::vector<unsigned>& out);
};

}  // namespace vela
