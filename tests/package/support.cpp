// SPDX-License-Identifier: Apache-2.0
#include "support.h"

#include <fcntl.h>
#include <openssl/sha.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace package_test {
namespace {

namespace fs = std::filesystem;

fs::path make_folder() {
  std::string name = (fs::temp_directory_path() / "package-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("no temporary folder");
  }
  return name;
}

[[noreturn]] void become_tool(const fs::path& folder, const std::vector<std::string>& arguments,
                              const fs::path& out, const fs::path& err) {
  std::vector<char*> argv = {const_cast<char*>("zozale-package")};
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  const int flags = O_WRONLY | O_CREAT | O_TRUNC;
  const bool ready = chdir(folder.c_str()) == 0 && dup2(open("/dev/null", O_RDONLY), 0) == 0 &&
                     dup2(open(out.c_str(), flags, 0600), 1) == 1 &&
                     dup2(open(err.c_str(), flags, 0600), 2) == 2;
  if (ready) {
    execv(PACKAGE_TOOL, argv.data());
  }
  _exit(127);
}

template <typename Record>
void append_records(std::string& bytes, const std::vector<Record>& records) {
  bytes.append(reinterpret_cast<const char*>(records.data()), records.size() * sizeof(Record));
}

template <typename Record>
Record named_record(const std::string& name) {
  Record record{};
  memcpy(record.name, name.data(), std::min(name.size(), sizeof(record.name)));
  return record;
}

// Searches the first seed whose pattern has a digest with, or without, a zero byte.
std::string image_where(size_t size, bool zero_byte) {
  for (uint32_t seed = 0;; ++seed) {
    std::string image = pattern(size, seed);
    const zozale::Digest digest = sha512(image);
    if ((std::count(digest.begin(), digest.end(), 0) > 0) == zero_byte) {
      return image;
    }
  }
}

void append_entries(std::string& text, const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    text += "name=" + name + "\nsystem_type=0\npartition_type=0\n";
  }
}

}  // namespace

std::string read_bytes(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << path;
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

FolderTest::FolderTest() : folder_(make_folder()) {}

FolderTest::~FolderTest() {
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

std::string FolderTest::write(const std::string& name, const std::string& bytes) const {
  const fs::path file = folder_ / name;
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << bytes;
  return file.string();
}

std::string FolderTest::write_sparse(const std::string& name, uint64_t size) const {
  std::string file = write(name, "");
  fs::resize_file(file, size);
  return file;
}

std::vector<std::string> FolderTest::files() const {
  std::vector<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(folder_)) {
    if (!entry.is_directory()) {
      names.push_back(fs::relative(entry.path(), folder_).string());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

RunResult run_tool(const fs::path& folder, const std::vector<std::string>& arguments) {
  const fs::path answers = make_folder();
  const fs::path out = answers / "out";
  const fs::path err = answers / "err";
  const pid_t child = fork();
  if (child == 0) {
    become_tool(folder, arguments, out, err);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  RunResult result = {code, read_bytes(out), read_bytes(err)};
  fs::remove_all(answers);
  return result;
}

RawPackage::RawPackage() {
  memcpy(head.magic_word, "FOTA", 4);
}

RawPackage& RawPackage::partition(const std::string& name, const std::string& image) {
  partitions.push_back(named_record<partition_head_info_t>(name));
  images_.push_back(image);
  return *this;
}

RawPackage& RawPackage::extra(const std::string& name, const std::string& content) {
  extras.push_back(named_record<extra_head_info_t>(name));
  contents_.push_back(content);
  return *this;
}

RawPackage& RawPackage::layout() {
  head.partition_num = static_cast<int32_t>(partitions.size());
  head.extra_num = static_cast<int32_t>(extras.size());
  size_t position = 256 + 128 * partitions.size() + 120 * extras.size();
  const auto place = [this, &position](auto& record, const std::string& bytes) {
    const zozale::Digest digest = sha512(bytes);
    memcpy(record.hash, digest.data(), digest.size());
    record.offset = static_cast<int32_t>(position);
    record.len = static_cast<int32_t>(bytes.size());
    position += bytes.size();
    payload += bytes;
  };
  for (size_t i = 0; i < partitions.size(); ++i) {
    place(partitions[i], images_[i]);
  }
  for (size_t i = 0; i < extras.size(); ++i) {
    place(extras[i], contents_[i]);
  }
  return *this;
}

std::string RawPackage::bytes_unsealed() const {
  std::string bytes(reinterpret_cast<const char*>(&head), sizeof(head));
  append_records(bytes, partitions);
  append_records(bytes, extras);
  return bytes + payload;
}

std::string RawPackage::bytes() const {
  std::string bytes = bytes_unsealed();
  const zozale::Digest digest = sha512(bytes.substr(256));
  memcpy(bytes.data() + offsetof(upgrade_package_head_info_t, hash), digest.data(), digest.size());
  return bytes;
}

zozale::Digest sha512(const std::string& bytes) {
  zozale::Digest digest{};
  SHA512(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), digest.data());
  return digest;
}

std::mt19937 seeded(uint32_t seed) {
  return std::mt19937(seed);
}

std::string pattern(size_t size, uint32_t seed) {
  std::mt19937 random = seeded(seed);
  std::string bytes(size, '\0');
  std::generate(bytes.begin(), bytes.end(),
                [&random] { return static_cast<char>(random() & 0xFFU); });
  return bytes;
}

std::string image_with_zero_byte(size_t size) {
  return image_where(size, true);
}

std::string image_without_zero_byte(size_t size) {
  return image_where(size, false);
}

std::string table_text(const std::vector<std::string>& platform,
                       const std::vector<std::string>& oem) {
  std::string text =
      "[Head]\nmagic=SUPI\nplat=0\nplat_partition_num=" + std::to_string(platform.size()) +
      "\noem_partition_num=" + std::to_string(oem.size()) + "\n[Platform_Partition_Info]\n";
  append_entries(text, platform);
  text += "[Oem_Partition_Info]\n";
  append_entries(text, oem);
  return text;
}

std::vector<std::string> fields(const zozale::Findings& findings, zozale::Severity severity) {
  std::vector<std::string> list;
  for (const zozale::Finding& finding : findings) {
    if (finding.severity == severity) {
      list.push_back(finding.field + ": " + finding.value);
    }
  }
  return list;
}

std::vector<std::string> errors(const zozale::Findings& findings) {
  return fields(findings, zozale::Severity::kError);
}

std::vector<std::string> warnings(const zozale::Findings& findings) {
  return fields(findings, zozale::Severity::kWarning);
}

std::string text_of(const zozale::Findings& findings, const std::string& field) {
  std::vector<std::string> texts;
  for (const zozale::Finding& finding : findings) {
    if (finding.field == field) {
      texts.push_back(finding.text);
    }
  }
  EXPECT_EQ(texts.size(), 1U) << field;
  return texts.empty() ? "" : texts.front();
}

}  // namespace package_test
