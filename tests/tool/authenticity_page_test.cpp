// SPDX-License-Identifier: Apache-2.0
//
// The examples of the page about authenticity, run as they stand.
#include <fstream>
#include <sstream>

#include "tool_test.h"

namespace tool {
namespace {

// The text of the code block behind "<!-- example: NAME -->".
std::string example(const std::string& name) {
  std::ifstream page(AUTHENTICITY_PAGE);
  std::string text;
  bool found = false;
  bool inside = false;
  for (std::string line; std::getline(page, line);) {
    found = found || line == "<!-- example: " + name + " -->";
    if (inside && line == "```") {
      return text;
    }
    text += inside ? line + "\n" : "";
    inside = inside || (found && line == "```sh");
  }
  ADD_FAILURE() << "the page has no example " << name;
  return "false";
}

class AuthenticityPageTest : public ToolTest {
 protected:
  AuthenticityPageTest() {
    put("zImage", support::pattern(kImageSize, 1));
    put("rootfs.squashfs", support::pattern(kImageSize, 2));
  }

  std::filesystem::path file(const std::string& name) const { return folder_.path() / name; }
  void put(const std::string& name, const sim::Bytes& bytes) const {
    std::ofstream(file(name), std::ios::binary) << support::text(bytes);
  }
  sim::Bytes get(const std::string& name) const {
    std::ifstream in(file(name), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return support::bytes(text.str());
  }
  // Runs lines on the build host, in the folder. Its exit code.
  int run_on_host(const std::string& lines) const {
    put("lines", support::bytes("set -e\ncd '" + folder_.path().string() + "'\nPATH=$(dirname '" +
                                PACKAGE_TOOL "'):$PATH\n" + lines));
    const std::string command = "sh '" + file("lines").string() + "' >/dev/null 2>&1";
    return WEXITSTATUS(system(command.c_str()));
  }
  // The same on the device, where "zozale" is the tool.
  Ended run_example_on_device(const std::string& lines) {
    return run_on_device({"/bin/sh", "-ec", "zozale() { " DEVICE_TOOL " \"$@\"; }\n" + lines});
  }
  void copy_to_device() {
    put_package(get("upgrade.package"));
    device().write_file(std::string(support::kPackagePath) + ".p7s", get("upgrade.package.p7s"));
    device().write_file("/etc_ro/authority.pem", get("authority.pem"));
  }

 private:
  support::TempFolder folder_;
};

TEST_F(AuthenticityPageTest, TheExampleEndsInAnInstalledPackage) {
  ASSERT_EQ(run_on_host(example("make")), 0);
  ASSERT_EQ(run_on_host(example("sign")), 0);
  copy_to_device();

  const Ended run = run_example_on_device(example("install"));

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_TRUE(
      run.says("Signed by CN=Release 1,O=Example, trusted by CN=Example updates,O=Example."))
      << run;
  const sim::Bytes kernel = device().partition("kernel2").good();
  EXPECT_EQ(sim::Bytes(kernel.begin(), kernel.begin() + kImageSize), get("zImage"));
}

TEST_F(AuthenticityPageTest, TheExampleOfARevocationRevokes) {
  ASSERT_EQ(run_on_host(example("make")), 0);
  ASSERT_EQ(run_on_host(example("sign")), 0);

  ASSERT_EQ(run_on_host(example("revoke")), 0);

  EXPECT_EQ(run_on_host("zozale-package check upgrade.package --trust authority.pem"), 0);
  EXPECT_EQ(run_on_host("zozale-package check upgrade.package --trust trusted.pem"), 3);
}

}  // namespace
}  // namespace tool
