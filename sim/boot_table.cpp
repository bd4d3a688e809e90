// SPDX-License-Identifier: Apache-2.0
#include "sim/boot_table.h"

namespace sim {
namespace {

constexpr Health kSuccessful = Health::successful;
constexpr Health kBootable = Health::bootable;
constexpr Health kUnknown = Health::unknown;
constexpr Health kUsedUp = Health::used_up;
constexpr Health kUnbootable = Health::unbootable;

constexpr const char* kGood = "it has booted successfully before";
constexpr const char* kTry = "it is bootable and has attempts left";
constexpr const char* kDoubt = "its status is unknown and the other system is no better";
constexpr const char* kBetter = "the boot target's status is unknown, the other system's is good";
constexpr const char* kFallBack = "the boot target's attempts are used up";
constexpr const char* kAgain = "both systems' attempts are used up: both get new ones";
constexpr const char* kAlone = "its attempts are used up, but the other system must not be booted";
constexpr const char* kForbidden = "the boot target must not be booted";
constexpr const char* kSpent =
    "the boot target must not be booted; the other system's attempts are used up";
constexpr const char* kLast =
    "neither system must be booted: the last resort is to start them in turn";

}  // namespace

const std::array<BootRow, kHealthCount* kHealthCount> kBootTable = {{
    {kSuccessful, kSuccessful, Start::wanted, Note::nothing, kGood},
    {kSuccessful, kBootable, Start::wanted, Note::nothing, kGood},
    {kSuccessful, kUnknown, Start::wanted, Note::nothing, kGood},
    {kSuccessful, kUsedUp, Start::wanted, Note::nothing, kGood},
    {kSuccessful, kUnbootable, Start::wanted, Note::nothing, kGood},

    {kBootable, kSuccessful, Start::wanted, Note::count, kTry},
    {kBootable, kBootable, Start::wanted, Note::count, kTry},
    {kBootable, kUnknown, Start::wanted, Note::count, kTry},
    {kBootable, kUsedUp, Start::wanted, Note::count, kTry},
    {kBootable, kUnbootable, Start::wanted, Note::count, kTry},

    {kUnknown, kSuccessful, Start::other, Note::nothing, kBetter},
    {kUnknown, kBootable, Start::other, Note::count, kBetter},
    {kUnknown, kUnknown, Start::wanted, Note::count, kDoubt},
    {kUnknown, kUsedUp, Start::wanted, Note::count, kDoubt},
    {kUnknown, kUnbootable, Start::wanted, Note::count, kDoubt},

    {kUsedUp, kSuccessful, Start::other, Note::give_up, kFallBack},
    {kUsedUp, kBootable, Start::other, Note::give_up, kFallBack},
    {kUsedUp, kUnknown, Start::other, Note::give_up, kFallBack},
    {kUsedUp, kUsedUp, Start::wanted, Note::new_round, kAgain},
    {kUsedUp, kUnbootable, Start::wanted, Note::nothing, kAlone},

    {kUnbootable, kSuccessful, Start::other, Note::nothing, kForbidden},
    {kUnbootable, kBootable, Start::other, Note::count, kForbidden},
    {kUnbootable, kUnknown, Start::other, Note::count, kForbidden},
    {kUnbootable, kUsedUp, Start::other, Note::nothing, kSpent},
    {kUnbootable, kUnbootable, Start::wanted, Note::take_turns, kLast},
}};

const char* health_name(Health health) {
  constexpr std::array<const char*, kHealthCount> kNames = {"successful", "bootable", "unknown",
                                                            "used up", "unbootable"};
  return kNames.at(static_cast<std::size_t>(health));
}

const char* note_name(Note note) {
  constexpr std::array<const char*, 5> kNames = {"nothing", "count", "give up", "new round",
                                                 "take turns"};
  return kNames.at(static_cast<std::size_t>(note));
}

const BootRow& boot_row(Health wanted, Health other) {
  return kBootTable.at(static_cast<std::size_t>(wanted) * kHealthCount +
                       static_cast<std::size_t>(other));
}

}  // namespace sim
