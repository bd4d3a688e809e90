// SPDX-License-Identifier: Apache-2.0
void early_link(void);

int main(void) {
  early_link();
  return 0;
}
