// SPDX-License-Identifier: Apache-2.0
//
// The page about the JSON documents against the documents.
#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "tests/pki/pki.h"
#include "tool_test.h"

namespace tool {
namespace {

using Members = std::set<std::string>;
using nlohmann::json;

// "partitions[].name" for each member; objects and lists of objects count by their members.
void collect(const json& value, const std::string& path, Members& members) {
  if (value.is_object() && !value.empty()) {
    for (const auto& [key, member] : value.items()) {
      collect(member, path.empty() ? key : path + "." + key, members);
    }
  } else if (value.is_array() && !value.empty() && value.front().is_object()) {
    for (const json& element : value) {
      collect(element, path + "[]", members);
    }
  } else {
    members.insert(path);
  }
}

// The members in the tables of the page, by heading.
std::map<std::string, Members> documented() {
  std::map<std::string, Members> sections;
  std::ifstream page(JSON_PAGE);
  std::string heading;
  for (std::string line; std::getline(page, line);) {
    const std::size_t end = line.find("` |");
    if (line.rfind("## ", 0) == 0) {
      heading = line.substr(3);
    } else if (line.rfind("| `", 0) == 0 && end != std::string::npos) {
      sections[heading].insert(line.substr(3, end - 3));
    }
  }
  return sections;
}

class JsonPageTest : public ToolTest {
 protected:
  // Runs a command and keeps the members of each document that it prints.
  void run(Arguments command) {
    const std::string name = command.front();
    command.emplace_back("--json");
    const Ended run = zozale(command);
    if (name == "watch") {
      std::istringstream lines(run.out);
      for (std::string line; std::getline(lines, line);) {
        collect(json::parse(line), "", told_[name]);
      }
    } else {
      collect(run.json(), "", told_[name]);
    }
  }

  void run_all() {
    for (const char* command :
         {"status", "verify", "type", "install", "sync", "acknowledge", "doctor"}) {
      run({command});
    }
    run({"install", "--dry-run"});
    run({"sync", "--dry-run"});
    run({"verify", "--trust", "/etc_ro/trust.pem"});
    run({"install", "--trust", "/etc_ro/trust.pem"});
    run({"switch", "B"});
    run({"mark", "B", "successful"});
    run({"init-flags", "--force"});
    run({"watch", "--interval", "0.01", "--timeout", "0.02"});
  }

  std::map<std::string, Members> told_;
};

// An object that is null, or a list that is empty, in one run has its members in another.
bool is_parent(const std::string& member, const Members& members) {
  return std::any_of(members.begin(), members.end(), [&member](const std::string& other) {
    return other.rfind(member + ".", 0) == 0 || other.rfind(member + "[].", 0) == 0;
  });
}

TEST_F(JsonPageTest, NamesWhatIsPrintedAndNothingElse) {
  device().partition("kernel").poke(6 * device().partition("kernel").block_size(),
                                    support::bytes("hidden"));
  const sim::Bytes package = support::system_package(kImageSize).bytes();
  put_package(package);
  const pki::Identity release{pki::Wish()};
  device().write_file("/etc_ro/trust.pem", support::bytes(release.pem()));
  device().write_file(std::string(support::kPackagePath) + ".p7s",
                      support::bytes(pki::sign({package.begin(), package.end()}, {release})));
  run_all();
  device().store().put("fota_ab_upgrade_status", "3");
  run({"watch", "--interval", "0.01", "--timeout", "0.02"});
  support::PackageFile bad = support::system_package(kImageSize);
  bad.partitions[0].len = 0;
  bad.partitions[1].len = 0;
  put_package(bad);
  device().write_file("/etc_ro/systemPartitionInfo.conf", "");
  device().faults().add({sim::Op::memerase, "flags", 1, EIO, true, std::nullopt});
  run_all();
  device().partition("flags").wipe();
  run_all();

  const std::map<std::string, Members> sections = documented();
  const Members& common = sections.at("Every command");
  Members common_told;
  for (const auto& [command, members] : told_) {
    const Members& page = sections.at(command);
    for (const std::string& member : members) {
      EXPECT_TRUE(page.count(member) + common.count(member) > 0 || is_parent(member, page))
          << command << " prints " << member << ", which the page does not name";
      if (common.count(member) > 0) {
        common_told.insert(member);
      }
    }
    for (const std::string& member : page) {
      EXPECT_TRUE(members.count(member) > 0 || is_parent(member, members))
          << "the page names " << member << ", which " << command << " does not print";
    }
  }
  for (const std::string& member : common) {
    EXPECT_TRUE(common_told.count(member) > 0 || is_parent(member, common_told)) << member;
  }
}

}  // namespace
}  // namespace tool
