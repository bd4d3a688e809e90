# SPDX-License-Identifier: Apache-2.0
# The guest's flash itself: what the module adds to nandsim is what the library relies on.

case_named_partitions() {
  new_device
  for entry in $layout; do
    printf '%08x %08x "%s"\n' $((${entry#*:} * block_size)) $block_size "${entry%:*}"
  done >/tmp/wanted
  sed -e 1,2d -e 's/^mtd[0-9]*: //' /proc/mtd >/tmp/found
  diff /tmp/wanted /tmp/found || fail "these partitions in /proc/mtd"
  detail "$(wc -l </tmp/found) partitions on nandsim's master"
}

refuses_changes() {
  flash_erase "$(node "$1")" 0 1 >/tmp/output 2>&1 || true
  said "error 30 (Read-only file system)"
  exits 255 nandwrite --pad "$(node "$1")" /media/one-byte/rootfs
  said "error 30 (Read-only file system)"
}

takes_changes() {
  exits 0 flash_erase "$(node "$1")" 0 1
  exits 0 nandwrite --pad "$(node "$1")" /media/one-byte/rootfs
}

case_protected_from_the_start() {
  new_device
  for entry in $layout; do
    refuses_changes "${entry%:*}"
  done
  equal "flash operations" 0 "$(operations)"
  detail "erase and program answer EROFS on every partition"
}

# The library lifts on one descriptor and erases through another, which here is another process.
case_protection_per_partition() {
  new_device
  exits 0 kernel_protection lift "$(node kernel2)"
  takes_changes kernel2
  for name in flags kernel rootfs rootfs2; do
    refuses_changes $name
  done
  exits 0 kernel_protection restore "$(node kernel2)"
  refuses_changes kernel2
}

# ENOTTY, 25, is mainline's answer: only the named partitions know the requests.
case_requests_of_other_devices() {
  new_device
  exits 25 kernel_protection lift /dev/mtd0
  exits 25 kernel_protection restore /dev/mtd0
}

case_power_switch() {
  new_device
  exits 0 kernel_protection lift "$(node rootfs)"
  echo 30 >$parameters/operations_left
  exits 137 nandwrite --quiet --pad "$(node rootfs)" /media/blocks/rootfs
  equal "programmed pages" 30 "$(programs rootfs)"
  exits 137 nanddump --quiet --file=/tmp/dump "$(node rootfs)"
  exits 137 flash_erase --quiet "$(node rootfs)" 0 1
  echo Y >$parameters/power
  all_protected
  head -c $((30 * 2048)) /media/blocks/rootfs >/tmp/image
  holds rootfs /tmp/image
  detail "30 pages written before the power went"
}
