// SPDX-License-Identifier: Apache-2.0
#include "upi_hash.h"

#include <fcntl.h>
#include <openssl/sha.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "upi_img_interface.h"
#include "upi_log.h"
#include "upi_public.h"

namespace {

constexpr uint32_t kFileChunk = 4096;
constexpr uint32_t kImageChunk = 1024;

uint32_t file_chunk(unsigned int wanted) {
  return wanted == 0 || wanted > kFileChunk ? kFileChunk : wanted;
}

// Feeds `len` bytes from the descriptor's position to the digest. A read of nothing is no error:
// callers give ranges inside the file.
bool hash_range(SHA512_CTX* context, int fd, uint32_t len, uint32_t chunk) {
  unsigned char buffer[kFileChunk];
  while (len > 0) {
    const ssize_t got = read(fd, buffer, upi::smaller(len, chunk));
    if (got < 0) {
      UPI_LOG_AS("get_hash_SHA512_from_fd", "Get file content failed, error: %d[%s]!", errno,
                 strerror(errno));
      return false;
    }
    SHA512_Update(context, buffer, static_cast<size_t>(got));
    len -= static_cast<uint32_t>(got);
  }
  return true;
}

// Feeds the first `len` bytes of the partition's good blocks to the digest.
bool hash_image(SHA512_CTX* context, partition_mtd_info_t* mtd_info, uint32_t len) {
  unsigned char buffer[kImageChunk];
  for (uint32_t done = 0; done < len;) {
    const uint32_t chunk = upi::smaller(len - done, kImageChunk);
    if (VEMK_ReadImage(mtd_info, buffer, static_cast<int>(done), static_cast<int>(chunk)) < 0) {
      UPI_LOG_AS("check_image_hash", "Read image content fail!");
      return false;
    }
    SHA512_Update(context, buffer, chunk);
    done += chunk;
  }
  return true;
}

}  // namespace

int get_hash_SHA512_from_fd(int fd, unsigned int offset, unsigned int len,
                            unsigned int read_size_per_time, unsigned char* digest) {
  if (len == 0) {
    struct stat status = {};
    if (fstat(fd, &status) != 0) {
      UPI_LOG("Stat fd[%d] error:[%d]%s", fd, errno, strerror(errno));
      return -1;
    }
    len = static_cast<unsigned int>(status.st_size);
  }
  SHA512_CTX context;
  SHA512_Init(&context);
  const off_t position = lseek(fd, static_cast<off_t>(offset), SEEK_SET);
  if (position < 0) {
    UPI_LOG_ERRNO("Lseek failed with return value: %d, error:", static_cast<int>(position));
    return -1;
  }
  if (!hash_range(&context, fd, len, file_chunk(read_size_per_time))) {
    return -1;
  }
  SHA512_Final(digest, &context);
  return 0;
}

int get_hash_from_fd(int /*hash_type*/, int fd, unsigned int offset, unsigned int len,
                     unsigned int /*read_size_per_time*/, unsigned char* digest) {
  return get_hash_SHA512_from_fd(fd, offset, len, 0, digest);
}

int get_hash_from_file_path_segment(int hash_type, const char* file_path, unsigned int offset,
                                    unsigned int len, unsigned char* digest) {
  const int fd = open(file_path, O_RDONLY);
  if (fd < 0) {
    UPI_LOG_ERRNO("Open file[%s] return %d, error: ", file_path, fd);
    return -1;
  }
  const int result = get_hash_from_fd(hash_type, fd, offset, len, 0, digest);
  if (close(fd) != 0) {
    UPI_LOG_ERRNO("Close file[%s] return %d, error: ", file_path, result);
  }
  return result;
}

int get_hash_from_file_path_all(int hash_type, const char* file_path, unsigned char* digest) {
  return get_hash_from_file_path_segment(hash_type, file_path, 0, 0, digest);
}

int check_image_hash(partition_mtd_info_t* mtd_info, int len, char* digest) {
  UPI_LOG_BEGIN();
  SHA512_CTX context;
  SHA512_Init(&context);
  if (!hash_image(&context, mtd_info, len > 0 ? static_cast<uint32_t>(len) : 0)) {
    return -1;
  }
  unsigned char computed[SHA512_DIGEST_LENGTH];
  SHA512_Final(computed, &context);
  const int difference = hash_compare(digest, reinterpret_cast<char*>(computed), HASH_SHA512);
  UPI_LOG_END();
  return difference == 0 ? 0 : -1;
}
