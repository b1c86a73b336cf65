// Data files with bytes changed behind a checksum that holds, as a stranger could make them.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>

#include "datafile/seal.h"

namespace datafile {

class Mutations {
 public:
  Mutations(const std::string& original, unsigned seed) : random_(seed) {
    std::ifstream file(original, std::ios::binary);
    whole_.assign(std::istreambuf_iterator<char>(file), {});
    if (whole_.size() <= kSealBytes) throw std::runtime_error(original + " is no data file");
  }

  /// Writes the next one.
  void write(const std::string& path) {
    std::string changed = whole_;
    for (auto changes = 1 + random_() % 6; changes > 0; --changes) change(changed);
    if (random_() % 20 == 0) changed.resize(kSealBytes + random_() % changed.size());
    std::ofstream(path, std::ios::binary) << changed;
    const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (file < 0 || seal(file) != 0) throw std::runtime_error(path + " cannot be written");
    close(file);
  }

 private:
  void change(std::string& bytes) {
    static constexpr std::uint64_t kTelling[] = {
        0, 1, 2, 0x7f, 0x80, 0xff, 0xffff, 0x7fffffff, 0x80000000, 0xffffffff, ~0ULL};
    const std::size_t length = std::size_t{1} << random_() % 4;
    const std::size_t last = bytes.size() - length;
    const std::size_t place = kSealBytes + random_() % (last - kSealBytes);
    std::uint64_t number =
        random_() % 2 ? random_() : kTelling[random_() % std::size(kTelling)];
    if (random_() % 4 == 0) std::memcpy(&number, &bytes[random_() % last], length);
    std::memcpy(&bytes[place], &number, length);
  }

  std::string whole_;
  std::mt19937_64 random_;
};

}  // namespace datafile
