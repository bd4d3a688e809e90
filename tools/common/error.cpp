// SPDX-License-Identifier: Apache-2.0
#include "common/error.h"

#include <system_error>

#include "common/text.h"

namespace zozale {

Error system_error(const std::string& action, const std::string& path, int errnum) {
  return {kExitFailed, "cannot " + action + " " + in_quotes(path) + ": " +
                           std::generic_category().message(errnum)};
}

}  // namespace zozale
