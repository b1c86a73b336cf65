#include "formats/steadyfile.h"

#include <sys/stat.h>

#include <utility>

namespace formats {

SteadyFile::SteadyFile(std::filesystem::path path)
    : path_(std::move(path)), stamp_(stampNow()) {}

SteadyFile::Stamp SteadyFile::stampNow() const {
  struct stat status {};
  // A path that leads nowhere keeps a stamp that fits no file.
  if (stat(path_.c_str(), &status) != 0) return {};
  return {status.st_dev, status.st_ino, static_cast<std::uint64_t>(status.st_size),
          status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

void SteadyFile::endPass(ByteSource& source) {
  Content content = source.readToEnd();
  if (content_ && content != *content_) {
    refuseIfChanged();
    raiseChanged("reading it again gave other bytes");
  }
  content_ = std::move(content);
}

void SteadyFile::refuseIfChanged(std::vector<kodiag::Message> causes) const {
  const Stamp now = stampNow();
  if (now.device != stamp_.device || now.file != stamp_.file) {
    raiseChanged("its path leads to another file or to none", std::move(causes));
  }
  if (now.bytes != stamp_.bytes) {
    raiseChanged("it had " + std::to_string(stamp_.bytes) + " bytes and now has " +
                     std::to_string(now.bytes),
                 std::move(causes));
  }
  if (now.seconds != stamp_.seconds || now.nanoseconds != stamp_.nanoseconds) {
    raiseChanged("it was written to", std::move(causes));
  }
}

void SteadyFile::raiseChanged(const std::string& reason,
                              std::vector<kodiag::Message> causes) const {
  kodiag::raise({"VELA:vela", "SourceChanged"},
                {{"FileName", displayName(path_)}, {"Reason", reason}}, std::move(causes));
}

}  // namespace formats
