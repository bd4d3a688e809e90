// SPDX-License-Identifier: Apache-2.0
//
// The platform's configuration store, as a program on the device calls it.
#ifndef TESTS_SUPPORT_STORE_FUNCTIONS_H
#define TESTS_SUPPORT_STORE_FUNCTIONS_H

extern "C" {
int sc_cfg_get(const char* name, char* buffer, int length);
int sc_cfg_set(const char* name, const char* value);
int sc_cfg_save();
}

#endif
