// SPDX-License-Identifier: Apache-2.0
#include "sweep.h"

#include <vector>

#include "random.h"

namespace cuts {
namespace {

using sim::CutKind;
using sim::PowerCut;

constexpr std::uint32_t kWord = 4;

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
  bool writes_only_the_record() const {
    return !scenario_.operation->installs && !scenario_.operation->overwrites_record;
  }
  std::uint64_t possible_cuts() const;
  std::uint64_t possible_word_cuts() const;
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
  const std::uint32_t page_size = scenario_.shape->page_size;
  const std::uint64_t begin = page_in_block_ * page_size;
  if (!writes_only_the_record() || begin >= sim::kRecordSize) {
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

std::uint64_t Sweep::possible_cuts() const {
  constexpr std::uint64_t kEraseCuts = 4;
  constexpr std::uint64_t kProgramCuts = 6;
  return kEraseCuts * trial_.uncut().erases + kProgramCuts * trial_.uncut().programs;
}

// Each copy of the record is a block, all of its pages programmed. Behind the last byte of a page
// the cut is the one after it.
std::uint64_t Sweep::possible_word_cuts() const {
  if (!options_.every_word || !writes_only_the_record()) {
    return 0;
  }
  const std::uint64_t copies = trial_.uncut().programs / scenario_.shape->pages_per_block;
  return copies * (sim::kRecordSize / kWord - sim::kRecordSize / scenario_.shape->page_size);
}

void Sweep::check_count() {
  const FlashCount& uncut = trial_.uncut();
  const bool all_met = seen_.erases == uncut.erases && seen_.programs == uncut.programs;
  const std::uint64_t tried = tally_.cuts + tally_.word_cuts;
  const std::uint64_t possible = possible_cuts() + possible_word_cuts();
  if (tally_.failures == 0 &&
      (!all_met || tally_.cuts != possible_cuts() || tally_.word_cuts != possible_word_cuts())) {
    ++tally_.failures;
    on_failure_(scenario_.name(), std::to_string(tried) + " cuts were tried, " +
                                      std::to_string(possible) + " are possible");
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
