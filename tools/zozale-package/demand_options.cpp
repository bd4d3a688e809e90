// SPDX-License-Identifier: Apache-2.0
#include "demand_options.h"

#include <CLI/CLI.hpp>
#include <charconv>

#include "common/text.h"

namespace zozale {
namespace {

// Decimal digits and nothing else: a software version such as "1.5.0" is no number to compare.
int32_t parse_number(const std::string& option, const std::string& text) {
  int32_t number = 0;
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number);
  if (parsed.ec != std::errc() || parsed.ptr != end) {
    throw CLI::ValidationError(
        option, in_quotes(text) + " is no whole number from -2147483648 to 2147483647");
  }
  return number;
}

void add_number(CLI::App& command, const std::string& option, const std::string& description,
                std::optional<int32_t>& number) {
  command
      .add_option_function<std::string>(
          option,
          [option, &number](const std::string& text) { number = parse_number(option, text); },
          description)
      ->type_name("INT");
}

CheckTime parse_time(const std::string& text) {
  const auto time = parse_check_time(text);
  if (!time) {
    throw CLI::ValidationError("--time", in_quotes(text) +
                                             " is none of clock, signing, and a time in UTC such "
                                             "as 2026-11-21 or 2026-11-21T12:00:00Z");
  }
  return *time;
}

}  // namespace

CLI::Option* require_value(CLI::Option* option) {
  return option->check(CLI::Validator(
      [](const std::string& value) {
        return std::string(
            value.empty() ? "its value is empty; leave the option out, or name a file" : "");
      },
      ""));
}

void add_demand_options(CLI::App& command, Demands& demands) {
  CLI::Option* trust = require_value(
      command.add_option("--trust", demands.trust,
                         "Ask for a signature that leads to a certificate of this PEM file"));
  require_value(command.add_option("--signature", demands.signature,
                                   "The signature; beside the package if not given"))
      ->needs(trust);
  CLI::Option* time =
      command
          .add_option_function<std::string>(
              "--time", [&demands](const std::string& text) { demands.time = parse_time(text); },
              "When the signer's certificate has to be valid: clock (now, if not "
              "given), signing, or a time in UTC")
          ->needs(trust);
  command
      .add_flag_callback(
          "--no-check-time", [&demands] { demands.time.kind = CheckTime::Kind::kNone; },
          "Take expired certificates too")
      ->needs(trust)
      ->excludes(time);
  add_number(command, "--min-version", "Refuse a package of a lower version number",
             demands.min_version);
  add_number(command, "--plat", "Refuse a package for another platform number", demands.plat);
}

}  // namespace zozale
