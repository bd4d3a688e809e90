# SPDX-License-Identifier: Apache-2.0
# What a person does with zozale on a device whose flash is in order.

case_init_flags() {
  new_device
  exits 0 zozale init-flags
  records_in "0 1 2 3 4 5 6 7" A 0 $bootable $bootable
  equal "erased blocks of flags" 8 "$(erases flags)"
  equal "operations on other partitions" 0 "$(system_operations)"
  all_protected
  detail "8 copies, byte for byte"
}

case_init_flags_keeps_a_record() {
  new_ready_device
  exits 0 zozale switch B
  reset_counts
  exits 2 zozale init-flags
  equal "flash operations" 0 "$(operations)"
  exits 0 zozale init-flags --force
  records_in "0 1 2 3 4 5 6 7" A 0 $bootable $bootable
}

case_status() {
  new_ready_device
  exits 0 zozale status --json
  said "\"running\": *\"$running\""
  equal "flash operations" 0 "$(operations)"
}

case_verify() {
  new_ready_device
  download first
  exits 0 zozale verify
  equal "flash operations" 0 "$(operations)"
  equal "stored upgrade status" 1 "$(cat /nv/fota_ab_upgrade_status)"
}

case_verify_damaged() {
  new_ready_device
  download damaged
  exits 3 zozale verify
  exits 3 zozale install
  equal "flash operations" 0 "$(operations)"
}

case_switch() {
  new_ready_device
  exits 0 zozale switch B
  records_in "0 1" B 1 $bootable $bootable
  exits 0 zozale acknowledge
  records_in "0 1" B 0 $bootable $bootable
  exits 0 zozale switch A
  records_in "0 1" A 1 $bootable $bootable
  equal "programmed pages of flags" $((3 * 2 * pages_per_block)) "$(programs flags)"
  equal "operations on other partitions" 0 "$(system_operations)"
  all_protected
}

case_mark() {
  new_ready_device
  exits 0 zozale mark A successful
  exits 0 zozale mark B unbootable
  records_in "0 1" A 0 $successful $unbootable
}

case_doctor() {
  new_ready_device "badblocks=$(chip_blocks flags:0 rootfs2:3 rootfs2:4)"
  exits 0 zozale doctor
  said "system $running runs"
  said "rootfs2 (mtd5): 16 blocks of 128.0 KiB, bad: 3, 4"
  said "main copy in block 1 is valid"
  said "backup copy in block 2 is valid"
  equal "flash operations" 0 "$(operations)"
}

case_doctor_without_record() {
  new_device "badblocks=$(chip_blocks flags:0 rootfs2:3 rootfs2:4)"
  exits 4 zozale doctor
  equal "flash operations" 0 "$(operations)"
}

# From the factory to an acknowledged new system that was copied over the old one. The machine
# cannot start into it: nandsim would forget everything; the other guest has that system running.
case_life_of_a_device() {
  new_ready_device
  provision "$(of $running rootfs)" /media/first/rootfs
  download second
  exits 0 zozale install
  exits 0 zozale switch $target
  equal "boot target" "$(code $target)" "$(view_boot_to)"
  exits 0 zozale mark $target successful
  exits 0 zozale acknowledge
  system_holds $target second
  exits 0 zozale switch $running
  exits 0 zozale sync
  holds "$(of $target rootfs)" /media/first/rootfs
  erased "$(of $target kernel)"
  exits 0 zozale doctor
}
