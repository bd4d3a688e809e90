// SPDX-License-Identifier: Apache-2.0
#include "sweep.h"

#include <vector>

#include "random.h"

namespace cuts {
namespace {

using sim::CutKind;
using sim::PowerCut;

PowerCut cut_of(std::uint64_t at, CutKind kind) {
  return {at, kind, std::nullopt, std::nullopt};
}

PowerCut torn(std::uint64_t at, std::uint32_t byte) {
  return {at, CutKind::torn, byte, std::nullopt};
}

// Every kind but the first, "before".
std::vector<PowerCut> other_erase_cuts(std::uint64_t at) {
  return {cut_of(at, CutKind::after), cut_of(at, CutKind::torn), cut_of(at, CutKind::unstable)};
}

std::vector<PowerCut> other_program_cuts(std::uint64_t at, std::uint32_t page_size) {
  constexpr std::uint32_t kInTheRecord = 20;
  return {cut_of(at, CutKind::after), torn(at, kInTheRecord), torn(at, page_size / 2),
          torn(at, page_size - 1), cut_of(at, CutKind::unstable)};
}

class Sweep {
 public:
  Sweep(const Scenario& scenario, const SweepOptions& options, const OnFailure& on_failure)
      : scenario_(scenario),
        options_(options),
        on_failure_(on_failure),
        random_(options.seed, scenario.name()),
        trial_(scenario) {}

  Tally run() {
    tally_.scenarios = 1;
    tally_.flash_operations = trial_.uncut().total();
    for (std::uint64_t at = 1; at <= tally_.flash_operations; ++at) {
      cut_at(at);
    }
    check_count();
    return tally_;
  }

 private:
  void cut_at(std::uint64_t at);
  void cut_record_words(std::uint64_t at);
  void check_count();

  std::uint64_t try_cut(const PowerCut& cut);
  void try_second(const PowerCut& first, std::uint64_t recovery);
  Trial::Result attempt(const NamedCut& cut);

  Scenario scenario_;
  SweepOptions options_;
  const OnFailure& on_failure_;
  Random random_;
  Trial trial_;
  Tally tally_;
  FlashCount seen_;                  // flash operations met so far
  std::uint64_t page_in_block_ = 0;  // of the next page program
};

// The first cut tells whether it is an erase or a program.
void Sweep::cut_at(std::uint64_t at) {
  const Trial::Result met = attempt({scenario_, cut_of(at, CutKind::before), std::nullopt});
  ++tally_.cuts;
  const bool erase = met.before_cut.erases > seen_.erases;
  seen_ = met.before_cut;
  const auto others =
      erase ? other_erase_cuts(at) : other_program_cuts(at, scenario_.shape->page_size);
  for (const PowerCut& cut : others) {
    const std::uint64_t recovery = try_cut(cut);
    ++tally_.cuts;
    if (options_.second_every != 0 && recovery != 0 && random_.once_in(options_.second_every)) {
      try_second(cut, recovery);
    }
  }
  if (options_.every_word && !erase) {
    cut_record_words(at);
  }
  page_in_block_ = erase ? 0 : page_in_block_ + 1;
}

// The setters only: the other operations write the same record among much else.
void Sweep::cut_record_words(std::uint64_t at) {
  constexpr std::uint32_t kWord = 4;
  const std::uint32_t page_size = scenario_.shape->page_size;
  const std::uint64_t begin = page_in_block_ * page_size;
  const Operation& operation = *scenario_.operation;
  if (operation.installs || operation.overwrites_record || begin >= sim::kRecordSize) {
    return;
  }
  for (std::uint32_t byte = kWord; byte < page_size && begin + byte <= sim::kRecordSize;
       byte += kWord) {
    try_cut(torn(at, byte));
    ++tally_.word_cuts;
  }
}

std::uint64_t Sweep::try_cut(const PowerCut& cut) {
  return attempt({scenario_, cut, std::nullopt}).recovery;
}

void Sweep::try_second(const PowerCut& first, std::uint64_t recovery) {
  PowerCut second;
  second.at = 1 + random_.below(recovery);
  second.kind = static_cast<CutKind>(random_.below(4));
  if (second.kind == CutKind::torn) {
    second.byte = static_cast<std::uint32_t>(random_.below(scenario_.shape->page_size));
  }
  attempt({scenario_, first, second});
  ++tally_.second_cuts;
}

Trial::Result Sweep::attempt(const NamedCut& cut) {
  try {
    return trial_.run(cut.first, cut.second);
  } catch (const Lost& lost) {
    ++tally_.failures;
    on_failure_(name_of(cut), lost.what());
    return {};
  }
}

void Sweep::check_count() {
  constexpr std::uint64_t kEraseCuts = 4;
  constexpr std::uint64_t kProgramCuts = 6;
  const FlashCount& uncut = trial_.uncut();
  const std::uint64_t wanted = kEraseCuts * uncut.erases + kProgramCuts * uncut.programs;
  const bool all_met = seen_.erases == uncut.erases && seen_.programs == uncut.programs;
  if (tally_.failures == 0 && (!all_met || tally_.cuts != wanted)) {
    ++tally_.failures;
    on_failure_(scenario_.name(), std::to_string(tally_.cuts) + " cuts were tried, " +
                                      std::to_string(wanted) + " are possible");
  }
}

}  // namespace

Tally& Tally::operator+=(const Tally& that) {
  scenarios += that.scenarios;
  flash_operations += that.flash_operations;
  cuts += that.cuts;
  word_cuts += that.word_cuts;
  second_cuts += that.second_cuts;
  failures += that.failures;
  return *this;
}

Tally sweep(const Scenario& scenario, const SweepOptions& options, const OnFailure& on_failure) {
  try {
    return Sweep(scenario, options, on_failure).run();
  } catch (const Lost& lost) {
    on_failure(scenario.name(), lost.what());
    Tally tally;
    tally.failures = 1;
    return tally;
  }
}

}  // namespace cuts
