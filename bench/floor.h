/* SPDX-License-Identifier: Apache-2.0 */
/* The platform's configuration store, as the library calls it. */
#ifndef BENCH_FLOOR_H
#define BENCH_FLOOR_H

int sc_cfg_set(const char* name, const char* value);
int sc_cfg_save(void);

#endif
