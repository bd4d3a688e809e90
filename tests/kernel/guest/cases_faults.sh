# SPDX-License-Identifier: Apache-2.0
# Flash that fails while it is used.

# The installation failed, only the target suffers, and nobody will boot it.
install_fails() {
  exits 1 zozale install
  equal "status of $target" $unbootable "$(view_status $target)"
  equal "status of $running" $bootable "$(view_status $running)"
  equal "stored upgrade status" 5 "$(cat /nv/fota_ab_upgrade_status)"
}

# The good blocks of a partition start with the first N bytes of a file.
starts_with() {
  dump "$1"
  head -c "$3" /tmp/dump >/tmp/found
  head -c "$3" "$2" >/tmp/wanted
  cmp /tmp/found /tmp/wanted || fail "$1 to start with $3 bytes of $2"
}

# Erased once before the image is written and once for it: with one erase left it fails in between.
install_on_worn_block() {
  new_ready_device "weakblocks=$(chip_block "$(of $target rootfs)" 2):$1"
  download first
  install_fails
  said "MEMERASE"
  starts_with "$(of $target rootfs)" /media/first/rootfs $((2 * block_size))
  holds "$(of $target kernel)" /media/first/kernel
  erased "$(of $target oemdata)"
  equal "good blocks" 16 "$(good_blocks "$(of $target rootfs)")"
}
case_worn_block() { install_on_worn_block 0; }
case_block_wears_out_meanwhile() { install_on_worn_block 1; }

case_worn_block_behind_the_image() {
  new_ready_device "weakblocks=$(chip_block "$(of $target rootfs)" 12):0"
  download first
  exits 0 zozale install
  system_holds $target first
  records_in "0 1" A 0 $bootable $bootable
}

# Neither copy can be written: each is tried in block 0 first, whose erase fails and takes what was
# there. The backup stays.
case_worn_flags_block() {
  new_device "weakblocks=$(chip_block flags 0):1"
  exits 0 zozale init-flags
  exits 1 zozale switch B
  records_in "1 2" A 0 $bootable $bootable
  equal "boot target" $code_A "$(view_boot_to)"
}

# The backup's place is worn out: the main copy alone is changed, which counts as success.
case_worn_flags_backup() {
  new_device "weakblocks=$(chip_block flags 1):1"
  exits 0 zozale init-flags
  exits 0 zozale switch B
  records_in 0 B 1 $bootable $bootable
  records_in 2 A 0 $bootable $bootable
}

case_page_fails() {
  new_ready_device "weakpages=$(chip_page "$(of $target rootfs)" 1 5):0"
  download first
  install_fails
  said "Input/output error"
  starts_with "$(of $target rootfs)" /media/first/rootfs $((block_size + 5 * 2048))
  detail "page 5 of block 1; the pages before it are written"
}

case_uncorrectable_page() {
  new_ready_device "gravepages=$(chip_page "$(of $target rootfs)" 3 9):0"
  download first
  install_fails
  said "Image data check hash failed"
}

case_uncorrectable_page_of_flags() {
  new_device "gravepages=$(chip_page flags 0 0):0"
  exits 0 zozale init-flags
  records_in 1 A 0 $bootable $bootable
  exits 0 zozale status
  download blocks
  exits 0 zozale install
  holds "$(of $target rootfs)" /media/blocks/rootfs
  records_in 1 A 0 $bootable $bootable
}

sum() {
  awk '{ total += $1 } END { print total }'
}

install_and_sync() {
  exits 0 zozale install
  system_holds $target first
  exits 0 zozale sync
  holds "$(of $target rootfs)" /media/medium/rootfs
  holds "$(of $target kernel)" /media/first/kernel
}

# nandsim turns bits in about one read of a thousand, by chance: goes on until some were turned.
survives_bit_flips() {
  new_ready_device "$@"
  provision "$(of $running kernel)" /media/first/kernel
  provision "$(of $running rootfs)" /media/medium/rootfs
  download first
  flips=0 rounds=0
  while [ $flips -lt 3 ] && [ $rounds -lt 12 ]; do
    install_and_sync
    flips=$(cat /sys/class/mtd/mtd?/corrected_bits | sum)
    rounds=$((rounds + 1))
  done
  [ $flips -ge 3 ] || fail "some bits to be corrected"
  equal "uncorrectable pages" 0 "$(cat /sys/class/mtd/mtd?/ecc_failures | sum)"
  detail "$flips bits corrected"
}
case_bit_flips() { survives_bit_flips bitflips=1; }
case_bit_flips_bch() { survives_bit_flips bch=8 bitflips=8; }
