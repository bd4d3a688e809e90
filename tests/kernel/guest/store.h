/* SPDX-License-Identifier: Apache-2.0 */
/* The configuration store that a platform gives the library. */
#ifndef KERNEL_GUEST_STORE_H
#define KERNEL_GUEST_STORE_H

int sc_cfg_set(const char* name, const char* value);
int sc_cfg_save(void);
int sc_cfg_get(const char* name, char* value, int value_size);

#endif
