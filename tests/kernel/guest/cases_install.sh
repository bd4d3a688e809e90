# SPDX-License-Identifier: Apache-2.0
# Packages installed into the system that does not run, on sound flash and past bad blocks.

# The target's status became bootable, the running system's is untouched, nothing boots otherwise.
record_tells_success() {
  records_in "${1:-0 1}" A 0 $bootable $bootable
  all_protected
}

case_install() {
  new_ready_device
  provision "$(of $running rootfs)" /media/blocks/rootfs
  reset_counts
  download first
  exits 0 zozale install
  system_holds $target first
  record_tells_success
  holds "$(of $running rootfs)" /media/blocks/rootfs
  for name in kernel rootfs oemdata; do
    equal "operations on $(of $running $name)" "0 0" \
      "$(erases "$(of $running $name)") $(programs "$(of $running $name)")"
  done
  detail "$(system_operations) operations, all on system $target"
}

case_install_over_another() {
  new_ready_device
  download first
  exits 0 zozale install
  download second
  exits 0 zozale install
  system_holds $target second
  record_tells_success
}

case_install_again() {
  new_ready_device
  download first
  exits 0 zozale install
  reset_counts
  exits 0 zozale install
  equal "operations on system partitions" 0 "$(system_operations)"
  system_holds $target first
  record_tells_success
  detail "0 erases of system partitions, $(erases flags) of flags"
}

# One partition as long as the name says; each needs one erase of all of it and one per block.
install_length() {
  new_ready_device
  download "$1"
  exits 0 zozale install
  holds "$(of $target rootfs)" "/media/$1/rootfs"
  equal "erased blocks" $((16 + $2)) "$(erases "$(of $target rootfs)")"
  equal "programmed pages" $(($2 * pages_per_block)) "$(programs "$(of $target rootfs)")"
  exits 0 zozale install
  equal "erased blocks after the second time" $((16 + $2)) "$(erases "$(of $target rootfs)")"
  record_tells_success
  detail "$(wc -c <"/media/$1/rootfs") bytes in $2 blocks"
}
case_length_blocks() { install_length blocks 3; }
case_length_blocks_less_1() { install_length blocks-less-1 3; }
case_length_blocks_plus_1() { install_length blocks-plus-1 4; }
case_length_one_byte() { install_length one-byte 1; }

# install_past PACKAGE LENGTH BAD ...: an image of LENGTH blocks into the target's rootfs, of which
# the blocks BAD are bad from the factory.
install_past() {
  package=$1 length=$2 places=
  shift 2
  for block in "$@"; do
    places="$places $(of $target rootfs):$block"
  done
  new_ready_device "badblocks=$(chip_blocks $places)"
  equal "good blocks" $((16 - $#)) "$(good_blocks "$(of $target rootfs)")"
  download $package
  exits 0 zozale install
  holds "$(of $target rootfs)" /media/$package/rootfs
  equal "erased blocks" $((16 - $# + length)) "$(erases "$(of $target rootfs)")"
  record_tells_success
  detail "$length blocks, bad: $*"
}
case_first_block_bad() { install_past blocks-plus-1 4 0; }
case_middle_block_bad() { install_past blocks-plus-1 4 2; }
case_last_block_bad() { install_past large 15 15; }
case_three_blocks_bad_in_a_row() { install_past blocks-plus-1 4 1 2 3; }
case_first_middle_and_last_bad() { install_past blocks-plus-1 4 0 2 15; }

case_bad_blocks_everywhere() {
  new_ready_device "badblocks=$(chip_blocks flags:1 flags:4 kernel:0 kernel2:1 kernel2:2 rootfs:3 \
    rootfs:15 rootfs2:0 rootfs2:1 rootfs2:7 oemdata:0 oemdata2:0 oemdata2:7)"
  download first
  exits 0 zozale install
  system_holds $target first
  record_tells_success "0 2"
  exits 0 zozale doctor
}

case_flags_with_bad_leading_blocks() {
  new_device "badblocks=$(chip_blocks flags:0 flags:1 flags:3)"
  exits 0 zozale init-flags
  records_in "2 4 5 6 7 8 9" A 0 $bootable $bootable
  download blocks
  exits 0 zozale install
  exits 0 zozale switch B
  records_in "2 4" B 1 $bootable $bootable
  holds "$(of $target rootfs)" /media/blocks/rootfs
  all_protected
  detail "copies in blocks 2 and 4"
}

case_too_large() {
  new_ready_device "badblocks=$(chip_blocks "$(of $target rootfs)":0 "$(of $target rootfs)":8)"
  download large
  exits 4 zozale install
  said "needs 15 blocks, $(of $target rootfs) has 14 good of 16"
  equal "flash operations" 0 "$(operations)"
  detail "refused: needs 15 blocks, 14 are good"
}

# A host that does not count: the library fails at the block that is not there.
case_too_large_for_a_bare_host() {
  new_ready_device "badblocks=$(chip_blocks "$(of $target rootfs)":0 "$(of $target rootfs)":8)"
  download large
  exits 1 kernel_bare_host upgrade
  said "Start address\[[0-9]*\] out of partition total size\[2097152\]!"
  head -c $((14 * block_size)) /media/large/rootfs >/tmp/image
  holds "$(of $target rootfs)" /tmp/image
  equal "status of $target" $unbootable "$(view_status $target)"
  equal "status of $running" $bootable "$(view_status $running)"
}
