#include "formats/provenance.h"

#include <openssl/evp.h>

#include <array>
#include <memory>
#include <new>
#include <system_error>
#include <vector>

#include "formats/bytesource.h"

namespace formats {
namespace {

constexpr std::size_t kReadBytes = std::size_t{1} << 20;

class Sha256 {
 public:
  Sha256() : context_(EVP_MD_CTX_new(), &EVP_MD_CTX_free) {
    if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) {
      throw std::bad_alloc();
    }
  }

  void add(std::span<const char> bytes) {
    if (EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) != 1)
      throw std::bad_alloc();
  }

  std::string hexadecimal() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
    unsigned size = 0;
    if (EVP_DigestFinal_ex(context_.get(), digest.data(), &size) != 1) throw std::bad_alloc();
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (unsigned i = 0; i < size; ++i) {
      text += kDigits[digest[i] >> 4];
      text += kDigits[digest[i] & 0xF];
    }
    return text;
  }

 private:
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context_;
};

std::filesystem::path absolutePath(const std::filesystem::path& path) {
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(path, error);
  return error ? path : absolute.lexically_normal();
}

}  // namespace

Provenance provenanceOf(const std::filesystem::path& path, const ReadOptions& options) {
  ByteSource source(path);
  Sha256 hash;
  std::vector<char> bytes(kReadBytes);
  while (const std::size_t count = source.read(bytes)) hash.add({bytes.data(), count});
  return {displayName(absolutePath(path)), source.offset(), hash.hexadecimal(),
          optionsText(options)};
}

}  // namespace formats
