// SPDX-License-Identifier: Apache-2.0
//
// SHA-512, and what a device makes of a digest when it compares two.
#ifndef ZOZALE_TOOLS_COMMON_SHA512_H
#define ZOZALE_TOOLS_COMMON_SHA512_H

#include <openssl/sha.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "common/file.h"

namespace zozale {

using Digest = std::array<uint8_t, SHA512_DIGEST_LENGTH>;

// A running hash. Copying it is cheap: try a continuation on the copy.
class Sha512 {
 public:
  Sha512();
  void update(const void* bytes, size_t len);
  // The digest of all bytes so far; more may follow.
  Digest digest() const;

 private:
  SHA512_CTX context_;
};

std::string hex(const Digest& digest);

// Leading bytes of `digest` that a device compares: it compares digests as C strings, so the first
// zero byte is the last one that counts. 64 when there is none.
size_t compared_bytes(const Digest& digest);

bool has_zero_byte(const Digest& digest);

// The hash of [offset, offset + len), which must lie within the source. Throws Error when it
// cannot be read.
Sha512 hash_range(const ByteSource& source, uint64_t offset, uint64_t len);

}  // namespace zozale

#endif
