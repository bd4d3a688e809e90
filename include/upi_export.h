// SPDX-License-Identifier: Apache-2.0
//
// Marks what the library exports; everything else stays hidden.
#ifndef UPI_EXPORT_H
#define UPI_EXPORT_H

#define UPI_EXPORT __attribute__((visibility("default")))

#endif
