#include "formats/provenance.h"

#include <system_error>

#include "formats/bytesource.h"

namespace formats {
namespace {

std::filesystem::path absolutePath(const std::filesystem::path& path) {
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(path, error);
  return error ? path : absolute.lexically_normal();
}

}  // namespace

Provenance provenanceOf(const std::filesystem::path& path, const Summary& summary,
                        const ReadOptions& options) {
  return {displayName(absolutePath(path)), summary.content.bytes, summary.content.sha256,
          optionsText(options)};
}

}  // namespace formats
