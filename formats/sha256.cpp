#include "formats/sha256.h"

#include <openssl/evp.h>

#include <array>
#include <new>

namespace formats {

Sha256::Sha256() : context_(EVP_MD_CTX_new(), &EVP_MD_CTX_free) {
  if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) {
    throw std::bad_alloc();
  }
}

void Sha256::add(std::span<const char> bytes) {
  if (EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) != 1) throw std::bad_alloc();
}

std::string Sha256::hexadecimal() {
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

}  // namespace formats
