// `vela salvage`: what can still be read of a damaged repository becomes runs of another one.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <iostream>

#include "kodiag/message.h"
#include "objects/salvage.h"
#include "text/utf8.h"
#include "tools/vela/context.h"
#include "tools/vela/repositories.h"
#include "tools/vela/runview.h"
#include "tools/vela/table.h"
#include "tools/vela/terminal.h"

namespace vela::tool {
namespace {

constexpr std::size_t kMostWarnings = 20;

void refuseOneFile(const std::string& damaged, const Context& context) {
  const std::string target = context.repository.empty()
                                 ? text::toUtf8(ObjectManager::persistentDMRPath())
                                 : context.repository;
  std::error_code none;
  if (std::filesystem::equivalent(damaged, target, none)) {
    kodiag::raise({"VELA:vela", "SalvageIntoItself"}, {{"Location", damaged}});
  }
}

void tellLosses(const std::vector<SalvageReport::Loss>& losses) {
  for (std::size_t i = 0; i < std::min(losses.size(), kMostWarnings); ++i) {
    warn(losses[i].text);
  }
  if (losses.size() > kMostWarnings) {
    warn("and " + counted(losses.size() - kMostWarnings, "further loss") + " (--json has all)");
  }
}

Json jsonOf(const SalvageReport& report, const std::string& damaged,
            const std::string& target) {
  Json runs = Json::array();
  for (const SalvageReport::Run& run : report.runs) {
    runs.push_back({{"id", run.id},
                    {"name", text::toUtf8(run.name)},
                    {"signals", run.signals},
                    {"samples", run.samples}});
  }
  Json losses = Json::array();
  for (const SalvageReport::Loss& loss : report.losses) {
    losses.push_back({{"run", text::toUtf8(loss.run)},
                      {"signal", text::toUtf8(loss.signal)},
                      {"chunks", loss.chunks},
                      {"text", loss.text}});
  }
  return {{"file", damaged},
          {"into", target},
          {"runs", std::move(runs)},
          {"losses", std::move(losses)}};
}

std::string tableOf(const SalvageReport& report) {
  Table table({{"RUN", Table::Align::right},
               {"NAME"},
               {"SIGNALS", Table::Align::right},
               {"SAMPLES", Table::Align::right}});
  for (const SalvageReport::Run& run : report.runs) {
    table.addRow({std::to_string(run.id), text::toUtf8(run.name), std::to_string(run.signals),
                  std::to_string(run.samples)});
  }
  return table.str();
}

ExitCode salvage(const Context& context, const std::string& damaged) {
  refuseOneFile(damaged, context);
  Salvage salvage(damaged);
  SalvageReport report;
  std::string target;
  if (!salvage.isEmpty()) {
    Repository repository = Repository::openForAdoption(context);
    ProgressBar bar("salvaging " + damaged, std::filesystem::file_size(damaged), context.quiet);
    report = salvage.storeInto(repository.manager(),
                               [&bar](std::uint64_t bytes) { bar.update(bytes); });
    repository.manager().setInstanceClosed();
    target = repository.location();
  } else if (salvage.losses().empty()) {
    if (!context.quiet) say(damaged + " is whole and holds no runs.");
  } else {
    kodiag::raise({"VELA:vela", "NothingToSalvage"}, {{"Location", damaged}});
  }

  if (context.json) {
    std::cout << jsonText(jsonOf(report, damaged, target));
  } else if (!report.runs.empty()) {
    std::cout << tableOf(report);
  }
  if (!context.quiet) tellLosses(report.losses);
  if (!context.quiet && !report.runs.empty()) {
    say("salvaged " + counted(report.runs.size(), "run") + " into " + target +
        (report.losses.empty() ? "; nothing was lost" : ""));
  }
  return report.losses.empty() ? kDone : kLoss;
}

}  // namespace

void addSalvageCommand(CLI::App& app, Context& context) {
  CLI::App* const command = app.add_subcommand(
      "salvage", "Bring what can be read of a damaged repository into another one");
  command->footer(
      "  vela salvage lab.dmr --into rescued.dmr\n\n"
      "DAMAGED may have garbled pages or lack its end; the \"-wal\" beside it is read too. A\n"
      "repository that could not be opened lies in a folder named \"...quarantine-DATE-PID\".\n"
      "DAMAGED itself is only read, and only when no process has it open. Its runs are stored\n"
      "as those of a session that is over; signals whose run is lost form a run "
      "\"Recovered\".\n"
      "A chunk of samples is brought over whole or not at all. The file keeps no checksums:\n"
      "single bytes changed inside samples cannot be noticed.\n"
      "Exit codes: 0 everything was read, 2 nothing could be read, 3 done with loss.");
  addCommonOptions(*command, context);
  auto damaged = std::make_shared<std::string>();
  command->add_option("DAMAGED", *damaged, "Repository file to read")
      ->required()
      ->check(CLI::ExistingFile);
  command->callback([&context, damaged] {
    context.command = [&context, damaged] { return salvage(context, *damaged); };
  });
}

}  // namespace vela::tool
