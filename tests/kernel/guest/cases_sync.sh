# SPDX-License-Identifier: Apache-2.0
# The running system copied over the other one.

# The running system holds the first package, the other one the second.
provision_both() {
  for name in kernel rootfs oemdata; do
    provision "$(of $running $name)" /media/first/$name
    provision "$(of $target $name)" /media/second/$name
  done
  reset_counts
}

synchronised() {
  system_holds $target first
  system_holds $running first
  records_in "0 1" A 0 $bootable $bootable
  all_protected
}

case_sync() {
  new_ready_device
  provision_both
  exits 0 zozale sync
  synchronised
  equal "stored sync status" 0 "$(cat /nv/fota_ab_aa_sync_status)"
  detail "system $running over system $target"
}

case_sync_again() {
  new_ready_device
  provision_both
  exits 0 zozale sync
  reset_counts
  exits 0 zozale sync
  equal "operations on system partitions" 0 "$(system_operations)"
  synchronised
  detail "0 erases of system partitions, $(erases flags) of flags"
}

case_sync_between_different_bad_blocks() {
  new_ready_device "badblocks=$(chip_blocks kernel:0 kernel:1 kernel2:2 rootfs:2 rootfs:15 \
    rootfs2:0 rootfs2:1 rootfs2:3 oemdata:0 oemdata2:7)"
  provision_both
  exits 0 zozale sync
  synchronised
}

case_sync_of_one_different_partition() {
  new_ready_device
  provision_both
  provision "$(of $target rootfs)" /media/first/rootfs
  provision "$(of $target kernel)" /media/first/kernel
  reset_counts
  exits 0 zozale sync
  synchronised
  equal "operations on $(of $target rootfs)" "0 0" \
    "$(erases "$(of $target rootfs)") $(programs "$(of $target rootfs)")"
  equal "erased blocks of $(of $target oemdata)" $((8 + 1)) "$(erases "$(of $target oemdata)")"
}

case_sync_into_too_few_good_blocks() {
  places=
  for block in 0 1 2 3 4 5 6 7 8 9 10 11 12; do
    places="$places $(of $target rootfs):$block"
  done
  new_ready_device "badblocks=$(chip_blocks $places)"
  provision "$(of $running rootfs)" /media/first/rootfs
  reset_counts
  exits 4 zozale sync
  equal "flash operations" 0 "$(operations)"
  exits 1 kernel_bare_host sync
  said "Write data to mtd fail!"
  equal "status of $target" $unbootable "$(view_status $target)"
  holds "$(of $running rootfs)" /media/first/rootfs
  detail "needs 4 blocks, 3 are good"
}

case_sync_from_an_uncorrectable_page() {
  new_ready_device "gravepages=$(chip_page "$(of $running rootfs)" 1 0):0"
  provision_both
  exits 1 zozale sync
  said "hash is different"
  equal "status of $target" $unbootable "$(view_status $target)"
  equal "status of $running" $bootable "$(view_status $running)"
}

case_sync_onto_a_worn_block() {
  new_ready_device "weakblocks=$(chip_block "$(of $target rootfs)" 1):2"
  provision_both
  exits 1 zozale sync
  equal "status of $target" $unbootable "$(view_status $target)"
  system_holds $running first
}
