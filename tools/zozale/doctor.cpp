// SPDX-License-Identifier: Apache-2.0
#include "zozale/doctor.h"

#include <algorithm>

#include "common/text.h"
#include "zozale/command_line.h"
#include "zozale/session.h"

namespace zozale::tool {
namespace {

const char* level_word(Level level) {
  switch (level) {
    case Level::kOk:
      return "ok";
    case Level::kNote:
      return "note";
    case Level::kWarning:
      return "warning";
    case Level::kError:
      return "error";
  }
  return "";
}

std::string in_column(const std::string& word) {
  constexpr size_t kColumn = 9;
  return "  " + word + std::string(kColumn - word.size(), ' ');
}

void tell(const Report& report, const std::vector<Remark>& remarks) {
  std::string area;
  for (const Remark& remark : remarks) {
    if (remark.area != area) {
      area = remark.area;
      report.say(area);
    }
    report.say(in_column(level_word(remark.level)) + remark.text);
    if (!remark.next.empty()) {
      report.say(in_column("") + "-> " + remark.next);
    }
  }
}

Json to_json(const std::vector<Remark>& remarks) {
  Json findings = Json::array();
  for (const Remark& remark : remarks) {
    findings.push_back({{"severity", level_word(remark.level)},
                        {"area", remark.area},
                        {"text", remark.text},
                        {"next", remark.next}});
  }
  return findings;
}

void examine_flash(Examination& examination, const std::optional<System>& running) {
  examination.enter("partitions");
  try {
    const MtdTable flash = MtdTable::read();
    examine_partitions(examination, flash);
    examine_flags(examination, flash, running);
  } catch (const Error& error) {
    examination.error(error);
  }
}

}  // namespace

void Examination::error(const Error& error) {
  const Trouble trouble = trouble_of(error);
  const std::string expected = trouble.expected.empty() ? "" : "; expected " + trouble.expected;
  const std::string found = trouble.found.empty() ? "" : ", found " + trouble.found;
  this->error(trouble.what + expected + found, trouble.next);
}

size_t Examination::count(Level level) const {
  return static_cast<size_t>(
      std::count_if(remarks_.begin(), remarks_.end(),
                    [level](const Remark& remark) { return remark.level == level; }));
}

std::optional<System> examine_command_line(Examination& examination) {
  examination.enter("running system");
  const std::string line = kernel_command_line();
  const std::optional<System> running = running_by_command_line();
  examination.data()["running"] = letter_or_null(running);
  examination.data()["command_line"] = line;
  if (running) {
    examination.ok(in_words(*running) + " runs, by the kernel command line; an upgrade goes to " +
                   in_words(other(*running)));
  } else {
    examination.error(
        "the kernel command line does not tell the running system: " + in_quotes(line),
        "let the boot loader add system=system_a or system=system_b, between blanks");
  }
  return running;
}

ExitCode doctor(Session& session) {
  Examination examination;
  const std::optional<System> running = examine_command_line(examination);
  examine_flash(examination, running);
  examine_store(examination);
  examine_work_folder(examination);
  examine_package(examination);

  const size_t errors = examination.count(Level::kError);
  Json& data = session.report.data();
  data = examination.data();
  data["findings"] = to_json(examination.remarks());
  data["fit"] = errors == 0;
  tell(session.report, examination.remarks());
  session.report.say(std::string(errors == 0 ? "The device is fit: " : "The device is NOT fit: ") +
                     counted(errors, "error") + ", " +
                     counted(examination.count(Level::kWarning), "warning") + ".");
  return errors == 0 ? kExitDone : kExitDeviceUnfit;
}

}  // namespace zozale::tool
