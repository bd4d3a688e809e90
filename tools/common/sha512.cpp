// SPDX-License-Identifier: Apache-2.0
#include "common/sha512.h"

#include <algorithm>

#include "common/text.h"

namespace zozale {

Sha512::Sha512() : context_() {
  SHA512_Init(&context_);
}

void Sha512::update(const void* bytes, size_t len) {
  SHA512_Update(&context_, bytes, len);
}

Digest Sha512::digest() const {
  SHA512_CTX context = context_;
  Digest digest{};
  SHA512_Final(digest.data(), &context);
  return digest;
}

std::string hex(const Digest& digest) {
  return hex(digest.data(), digest.size());
}

size_t compared_bytes(const Digest& digest) {
  const auto* zero = std::find(digest.begin(), digest.end(), 0);
  return zero == digest.end() ? digest.size() : static_cast<size_t>(zero - digest.begin()) + 1;
}

bool has_zero_byte(const Digest& digest) {
  return std::find(digest.begin(), digest.end(), 0) != digest.end();
}

Sha512 hash_range(const ByteSource& source, uint64_t offset, uint64_t len) {
  Sha512 hash;
  for_each_chunk(source, offset, len,
                 [&hash](const uint8_t* bytes, size_t count) { hash.update(bytes, count); });
  return hash;
}

}  // namespace zozale
