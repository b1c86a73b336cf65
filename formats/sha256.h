// SHA-256 of bytes that come piece by piece.
#pragma once

#include <memory>
#include <span>
#include <string>

struct evp_md_ctx_st;

namespace formats {

class Sha256 {
 public:
  Sha256();

  void add(std::span<const char> bytes);
  /// 64 lower-case digits; ends the sum.
  std::string hexadecimal();

 private:
  std::unique_ptr<evp_md_ctx_st, void (*)(evp_md_ctx_st*)> context_;
};

}  // namespace formats
