// SPDX-License-Identifier: Apache-2.0
#include "fault_places.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

using sim::Op;

constexpr const char* kLogPath = "/cache/ovu_fota_ab/upi_ab.log";
constexpr const char* kLogFolder = "/cache/ovu_fota_ab";

bool starts_with(const std::string& text, const std::string& start) {
  return text.compare(0, start.size(), start) == 0;
}

bool is_partition(const FaultPlace& place) {
  return !place.where.empty() && place.where.front() != '/';
}

// On an MTD node: the character device's own answers, those of the flash driver below it, and
// those of a driver or a node that went away. A read that was corrected, or could not be, is an
// error with drivers that hand on what the ECC says.
std::vector<int> node_errors(Op op) {
  switch (op) {
    case Op::open:
      return {EACCES, EPERM, ENOENT, ENOTDIR, ELOOP,  ENODEV, ENXIO,
              EBUSY,  EROFS, EMFILE, ENFILE,  ENOMEM, EINTR,  EIO};
    case Op::close:
      return {EIO, EINTR};
    case Op::read:
      return {EIO,    EBADMSG, EUCLEAN, EINTR, EINVAL,    EFAULT,
              ENOMEM, EPERM,   EACCES,  EBUSY, ETIMEDOUT, ENODEV};
    case Op::write:
      return {EIO,    EROFS, EPERM,  EACCES, ENOSPC,    EINVAL,
              EFAULT, EBUSY, ENOMEM, EINTR,  ETIMEDOUT, ENODEV};
    case Op::lseek:
      return {EINVAL, EOVERFLOW, ESPIPE};
    case Op::memgetinfo:
      return {EIO, EFAULT, ENOTTY, EINVAL, EACCES, ENODEV};
    case Op::memerase:
    case Op::memerase64:
      return {EIO,    EROFS, EPERM,  EACCES, EINVAL,    EFAULT,
              ENOTTY, EBUSY, ENOMEM, EINTR,  ETIMEDOUT, ENODEV};
    case Op::memgetbadblock:
      return {EIO, EINVAL, EFAULT, ENOTTY, EACCES, EOPNOTSUPP, EBUSY, ETIMEDOUT, ENODEV};
    case Op::protect_lift:
    case Op::protect_restore:
      return {EIO, ENOTTY, EPERM, EACCES, EINVAL, EFAULT, EBUSY, ENODEV};
    default:
      return {EIO};  // the chip has one error
  }
}

// Looking up a path, whatever is done there.
std::vector<int> path_errors(std::vector<int> further) {
  further.insert(further.end(),
                 {EACCES, ENOENT, ENOTDIR, ELOOP, ENAMETOOLONG, EIO, EUCLEAN, ENOMEM});
  return further;
}

// EUCLEAN and EBADMSG: a file system that found its own structures damaged.
std::vector<int> file_errors(Op op) {
  switch (op) {
    case Op::open:
    case Op::fopen:
      return path_errors({EPERM, EMFILE, ENFILE, EOVERFLOW, EINTR});
    case Op::close:
    case Op::fclose:
      return {EIO, EINTR};
    case Op::read:
    case Op::stream_read:
      return {EIO, EINTR, EINVAL, EFAULT, EISDIR, EUCLEAN, EBADMSG, ENOMEM};
    case Op::lseek:
      return {EINVAL, EOVERFLOW, ESPIPE};
    case Op::stat:
      return path_errors({EOVERFLOW});
    case Op::access:
      return path_errors({EPERM, EROFS});
    case Op::mkdir:
      return path_errors({EPERM, EEXIST, ENOSPC, EROFS, EDQUOT, EMLINK});
    default:
      return {EIO};
  }
}

// Nothing at all, the least that is possible, and all but the last of it.
std::vector<std::uint32_t> short_counts(const FaultPlace& place) {
  constexpr std::uint32_t kPage = 512;
  if (place.op == Op::write) {
    return {0, kPage, 3 * kPage, 1};
  }
  const bool flash_or_package = is_partition(place) || starts_with(place.where, kLogFolder);
  if (place.op == Op::read && flash_or_package) {
    return is_partition(place) ? std::vector<std::uint32_t>{0, 1, 291}
                               : std::vector<std::uint32_t>{1, 3};
  }
  return place.op == Op::stream_read ? std::vector<std::uint32_t>{0, 1, 40}
                                     : std::vector<std::uint32_t>{};
}

}  // namespace

bool is_of_the_log(const sim::Call& call) {
  const bool of_its_folder = call.op == Op::access || call.op == Op::mkdir;
  return call.path == kLogPath || (of_its_folder && call.path == kLogFolder);
}

std::vector<FaultPlace> touched_places(const std::vector<sim::Call>& calls) {
  std::vector<FaultPlace> places;
  for (const sim::Call& call : calls) {
    const std::string where = call.partition.empty() ? call.path : call.partition;
    const auto known = std::find_if(places.begin(), places.end(), [&](const FaultPlace& place) {
      return place.op == call.op && place.where == where;
    });
    if (is_of_the_log(call)) {
      continue;
    }
    if (known == places.end()) {
      places.push_back({call.op, where, 1});
    } else {
      ++known->count;
    }
  }
  return places;
}

std::vector<sim::Fault> faults_at(const FaultPlace& place) {
  std::vector<sim::Fault> faults;
  for (const int error : is_partition(place) ? node_errors(place.op) : file_errors(place.op)) {
    faults.push_back({place.op, place.where, 1, error});
  }
  for (const std::uint32_t bytes : short_counts(place)) {
    faults.push_back({place.op, place.where, 1, 0, false, bytes});
  }
  return faults;
}

std::vector<sim::Fault> one_error_at(const FaultPlace& place) {
  std::vector<sim::Fault> faults = faults_at(place);
  const auto first_short = std::find_if(faults.begin(), faults.end(), [](const sim::Fault& fault) {
    return fault.bytes.has_value();
  });
  faults.erase(faults.begin() + 1, first_short);
  return faults;
}

std::string described(const sim::Fault& fault) {
  return std::string(sim::op_name(fault.op)) + " number " + std::to_string(fault.at) + " on \"" +
         fault.where + "\": " +
         (fault.bytes ? std::to_string(*fault.bytes) + " bytes" : std::strerror(fault.error));
}
