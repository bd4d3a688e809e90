// SPDX-License-Identifier: Apache-2.0
//
// Runs a fuzz target on files instead of a fuzzer's inputs: each argument is a file, or a folder
// of which every file is run. No file at all is a failure.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> files_of(const fs::path& argument) {
  if (!fs::is_directory(argument)) {
    return {argument};
  }
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(argument)) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// Memory of exactly the file's size: a byte read too far shows.
void run(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
  if (!in) {
    throw std::runtime_error(file.string() + ": cannot be read");
  }
  static_cast<void>(std::fprintf(stderr, "%s\n", file.c_str()));
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

int replay(int count, char** arguments) {
  size_t done = 0;
  for (int i = 1; i < count; ++i) {
    for (const fs::path& file : files_of(arguments[i])) {
      run(file);
      ++done;
    }
  }
  static_cast<void>(std::fprintf(stderr, "%zu inputs replayed\n", done));
  return done > 0 ? 0 : 1;
}

}  // namespace

int main(int count, char** arguments) {
  try {
    return replay(count, arguments);
  } catch (const std::exception& error) {
    static_cast<void>(std::fprintf(stderr, "replay: %s\n", error.what()));
    return 1;
  }
}
