// mutations FILE COUNT SEED: reads COUNT changed forms of a data file, in a folder of its own
// below TMPDIR, and tells how they ended. Not a test of the suite, which reads a few hundred.
#include "mutations.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>

#include "datafile/datafile.h"
#include "kodiag/diagnostics.h"

namespace {

std::string outcomeOf(const std::string& path) {
  try {
    const datafile::DataFileReader reader(path);
    for (const std::string& name : reader.names()) reader.get(name);
    return "read";
  } catch (const kodiag::except::ExceptionWithCauses& error) {
    const kodiag::Message& message = error.innermost();
    std::string outcome = message.id.key;
    if (outcome != "Invalid") return outcome;
    for (const auto& [name, value] : message.arguments) {
      // What begins with the name of a variable is there in as many forms.
      if (name == "Reason" && value[0] != '"') outcome += ": " + value;
    }
    return outcome;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const std::string path =
      std::filesystem::temp_directory_path() / ("mutation" + std::to_string(getpid()) + ".dat");
  const int count = std::atoi(argv[2]);
  datafile::Mutations mutations(argv[1], static_cast<unsigned>(std::atoi(argv[3])));
  std::map<std::string, int> outcomes;
  double longest = 0;
  for (int done = 1; done <= count; ++done) {
    mutations.write(path);
    const auto begin = std::chrono::steady_clock::now();
    ++outcomes[outcomeOf(path)];
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    longest = std::max(longest, seconds.count());
    if (done % 5'000 != 0 && done != count) continue;
    std::cout << done << " files, " << longest << " s at most\n";
    for (const auto& [outcome, times] : outcomes)
      std::cout << "  " << times << " " << outcome << "\n";
    std::cout.flush();
  }
  std::filesystem::remove(path);
}
