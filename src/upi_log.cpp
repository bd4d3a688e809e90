// SPDX-License-Identifier: Apache-2.0
#include "upi_log.h"

#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "upi_public.h"

namespace {

constexpr int32_t kRotateAt = 0x100000;
constexpr int32_t kRemoveAt = 0x200000;

// The file's copy of a line is cut to this many characters; the console's copy never is.
constexpr size_t kFileLineLimit = 509;

constexpr char kTrailer[] = " \n ";
constexpr size_t kTrailerSize = sizeof(kTrailer) - 1;

FILE* s_FP_LOG;
int32_t cur_log_size;

// Making the work directory may fail and say so, and saying so opens the log.
bool making_work_directory;

template <size_t N>
void say(const char (&text)[N]) {
  fwrite(text, 1, N - 1, stdout);
}

char* put_text(char* at, const char* text, size_t size) {
  memcpy(at, text, size);
  return at + size;
}

// Writes a number in decimal, padded with zeros to `width` digits.
char* put_number(char* at, unsigned long number, int width) {
  char digits[20];
  int count = 0;
  do {
    digits[count++] = static_cast<char>('0' + number % 10);
    number /= 10;
  } while (number != 0 || count < width);
  while (count > 0) {
    *at++ = digits[--count];
  }
  return at;
}

char* put_signed(char* at, long number) {
  auto size = static_cast<unsigned long>(number);
  if (number < 0) {
    *at++ = '-';
    size = 0 - size;
  }
  return put_number(at, size, 1);
}

bool open_stream(const char* filename) {
  if (access(get_log_root_path(), R_OK) != 0 && !making_work_directory) {
    making_work_directory = true;
    upi_create_folder(get_log_root_path());
    making_work_directory = false;
    if (s_FP_LOG != nullptr) {
      return true;
    }
  }
  s_FP_LOG = fopen(filename, "a+");
  if (s_FP_LOG == nullptr) {
    printf("fopen %s failed \n", filename);
    return false;
  }
  fseek(s_FP_LOG, 0, SEEK_END);
  cur_log_size = static_cast<int32_t>(ftell(s_FP_LOG));
  return true;
}

void close_stream() {
  fclose(s_FP_LOG);
  s_FP_LOG = nullptr;
}

void rotate(const char* filename) {
  close_stream();
  cur_log_size = 0;
  char backup[1024] = {};
  snprintf(backup, sizeof(backup) - 1, "%s_bak", filename);
  if (rename(filename, backup) != 0) {
    printf("rename file fail:%s!\n", filename);
    if (cur_log_size >= kRemoveAt) {
      unlink(filename);
    }
  }
}

// Takes the count of bytes that one write to the stream reported, negative for an error.
void settle_write(const char* filename, int written) {
  if (written < 0) {
    printf("write failed  %d(%s)\n", errno, strerror(errno));
    close_stream();
    cur_log_size = 0;
    return;
  }
  fflush(s_FP_LOG);
  cur_log_size += written;
  if (cur_log_size >= kRotateAt) {
    rotate(filename);
  }
}

// upi_fwrite() for an entry that carries its trailer already, so that nothing is formatted again.
void append_entry(const char* entry, size_t size) {
  if (s_FP_LOG == nullptr && !open_stream(UPI_LOG_PATH)) {
    return;
  }
  const bool whole = fwrite(entry, 1, size, s_FP_LOG) == size;
  settle_write(UPI_LOG_PATH, whole ? static_cast<int>(size) : -1);
}

// One diagnostic on its way to its two destinations. The text behind the time is the same for
// both and is made once; each destination has a time of its own, put right before it. The line is
// complete, and logged, when its scope ends; errno is then what it was.
class Line {
 public:
  Line(const char* function, int line) {
    char* at = put_text(text_ + kTimeRoom, kSource, sizeof(kSource) - 1);
    at = put_text(at, function, strnlen(function, kNameLimit));
    *at++ = '-';
    at = put_signed(at, line);
    end_ = put_text(at, "]: ", 3);
  }
  ~Line() {
    *end_++ = '\n';
    to_console();
    to_file();
    errno = errno_;
  }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  void add(char character) { *end_++ = character; }

  __attribute__((format(printf, 2, 0))) void add(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const auto room = static_cast<size_t>(text_ + sizeof(text_) - kEndRoom - end_);
    const int length = vsnprintf(end_, room, format, arguments);
    if (length >= 0 && static_cast<size_t>(length) < room) {
      end_ += length;
    } else {
      // What fits is still more than the file gets.
      to_console();
      vprintf(format, again);
      end_ += strnlen(end_, room - 1);
      unprinted_ = end_;
    }
    va_end(again);
  }

  // Adds errno, as it was before the line, and its text.
  void add_errno() {
    const char* text = strerror(errno_);
    char* at = put_signed(end_, errno_);
    *at++ = '[';
    at = put_text(at, text, strnlen(text, kErrnoLimit));
    *at++ = ']';
    end_ = at;
  }

 private:
  static constexpr char kSource[] = "][fota_upi] [";
  static constexpr size_t kNameLimit = 128;
  static constexpr size_t kErrnoLimit = 256;
  static constexpr size_t kTimeRoom = 64;
  // For what may follow the message: errno, the line feed and the trailer.
  static constexpr size_t kEndRoom = kErrnoLimit + 32;

  // Puts the present time before the text; returns where the line begins.
  char* put_time() {
    const char* now = upi_get_time_us();
    const size_t size = strnlen(now, kTimeRoom - 1);
    char* start = text_ + kTimeRoom - size - 1;
    *start = '[';
    put_text(start + 1, now, size);
    return start;
  }

  void to_console() {
    const char* start = unprinted_ != nullptr ? unprinted_ : put_time();
    fwrite(start, 1, static_cast<size_t>(end_ - start), stdout);
  }

  void to_file() {
    char* start = put_time();
    const auto size = static_cast<size_t>(end_ - start);
    const char* end =
        put_text(start + (size < kFileLineLimit ? size : kFileLineLimit), kTrailer, kTrailerSize);
    append_entry(start, static_cast<size_t>(end - start));
  }

  const int errno_ = errno;
  char* end_;
  // What follows a message that outgrew the buffer, which is on the console already.
  const char* unprinted_ = nullptr;
  char text_[1600];
};

}  // namespace

namespace upi {

void log_line(const char* function, int line, const char* format, ...) {
  Line entry(function, line);
  va_list arguments;
  va_start(arguments, format);
  entry.add(format, arguments);
  va_end(arguments);
}

void log_errno(const char* function, int line, const char* format, ...) {
  Line entry(function, line);
  va_list arguments;
  va_start(arguments, format);
  entry.add(format, arguments);
  va_end(arguments);
  entry.add_errno();
}

void log_lines(const char* function, int line, const char* format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  const char* at = text;
  while (*at != '\0') {
    Line entry(function, line);
    while (*at != '\0' && *at++ != '\n') {
      entry.add(at[-1]);
    }
  }
}

void log_begin(const char* function, int line) {
  log_line(function, line, "%s func begin!", function);
}

void log_end(const char* function, int line) {
  log_line(function, line, "%s func end!", function);
}

}  // namespace upi

char* upi_get_time_us(void) {
  static char text[64];
  memset(text, 0, sizeof(text));
  timeval now = {};
  gettimeofday(&now, nullptr);
  char* at = put_signed(text, static_cast<long>(now.tv_sec));
  *at++ = ':';
  put_number(at, static_cast<unsigned long>(now.tv_usec), 6);
  return text;
}

unsigned int timestamp_now(void) {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<unsigned int>(now.tv_sec) * 1000000U +
         static_cast<unsigned int>(now.tv_nsec / 1000);
}

void upi_fwrite(char* filename, char* info) {
  if (filename == nullptr || *filename == '\0') {
    say("filename is err.\n");
    return;
  }
  if (s_FP_LOG == nullptr && !open_stream(filename)) {
    return;
  }
  settle_write(filename, fprintf(s_FP_LOG, "%s%s", info, kTrailer));
}

UPI_EXPORT void upi_close_logfile(void) {
  say("Close /cache/fota_ab/upi_ab.log file!\n");
  if (s_FP_LOG != nullptr) {
    close_stream();
  }
}
