// SPDX-License-Identifier: Apache-2.0
//
// The examination of a package: everything that a device would refuse or mishandle.
#ifndef ZOZALE_PACKAGE_CHECK_H
#define ZOZALE_PACKAGE_CHECK_H

#include "common/file.h"
#include "common/finding.h"
#include "common/partition_table.h"
#include "package_view.h"

namespace zozale {

// Examines head, tables, names, ranges and every digest; with a table (may be null) also whether a
// device that has it would take the partitions. Ends for any bytes: it reads each entry's range at
// most once and nothing outside the source. Throws Error when reading fails.
Findings check_package(const ByteSource& source, const PartitionTable* table);

// The same without reading a payload byte: head, tables, names and ranges, not the digests.
Findings check_structure(const PackageView& package, const PartitionTable* table);

// The digest over everything behind the head; an error when the head's differs.
Findings check_content_digest(const ByteSource& source, const PackageView& package);

// The digest over an entry's range; an error when the entry's differs or the range is not within
// the file.
Findings check_entry_digest(const ByteSource& source, const PackageEntry& entry);

}  // namespace zozale

#endif
