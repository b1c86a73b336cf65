#include "objects/textlist.h"

#include <cstdint>

#include "text/utf8.h"

namespace vela {
namespace {

constexpr std::size_t kLengthBytes = 4;

std::size_t lengthAt(const std::vector<char>& bytes, std::size_t position) {
  std::size_t length = 0;
  for (std::size_t i = kLengthBytes; i-- > 0;) {
    length = length << 8 | static_cast<unsigned char>(bytes[position + i]);
  }
  return length;
}

}  // namespace

std::vector<char> encodeTexts(const std::vector<std::wstring>& texts) {
  std::vector<char> bytes;
  for (const std::wstring& wide : texts) {
    const std::string utf8 = text::toUtf8(wide);
    for (std::size_t i = 0; i < kLengthBytes; ++i) {
      bytes.push_back(static_cast<char>(utf8.size() >> (8 * i) & 0xFF));
    }
    bytes.insert(bytes.end(), utf8.begin(), utf8.end());
  }
  return bytes;
}

std::vector<std::wstring> decodeTexts(const std::vector<char>& bytes) {
  std::vector<std::wstring> texts;
  std::size_t position = 0;
  while (bytes.size() - position >= kLengthBytes) {
    const std::size_t length = lengthAt(bytes, position);
    position += kLengthBytes;
    if (length > bytes.size() - position) break;
    texts.push_back(text::toWide({bytes.data() + position, length}));
    position += length;
  }
  return texts;
}

}  // namespace vela
