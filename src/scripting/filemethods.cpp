// Whole repositories in data files.
#include "scripting/families.h"
#include "scripting/method.h"

namespace vela::scripting {
namespace {

std::string given(const std::optional<Ascii<"option">>& option) {
  return option ? option->value : std::string();
}

void load(Repository repository, FileName<"file"> file, std::optional<Ascii<"option">> option) {
  repository.manager.load(file, given(option));
}

void save(Repository repository, FileName<"file"> file, std::optional<Ascii<"option">> option) {
  repository.manager.save(file, given(option));
}

struct VelaRepositoryLoad
    : Method<"load",
             "Bring everything in a saved file into the repository, beside what is there, with "
             "run numbers that follow; all or nothing.",
             &load, "nexstore:nex:CouldNotReadMatFile", "nexstore:nex:InvalidFile"> {};
struct VelaRepositorySave
    : Method<"save",
             "Save the runs of this session with everything that belongs to them to a file, "
             "which is replaced only by a whole one.",
             &save, "nexstore:nex:CouldNotWriteToMatFile"> {};

}  // namespace

void addFileMethods(Methods& methods) {
  methods.add<VelaRepositoryLoad, VelaRepositorySave>();
}

}  // namespace vela::scripting
