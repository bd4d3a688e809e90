# SPDX-License-Identifier: Apache-2.0
# The guest's flash: making a chip, where things lie on it, and reading it with mtd-utils alone.

block_size=131072
pages_per_block=64
layout="flags:10 kernel:12 kernel2:12 rootfs:16 rootfs2:16 oemdata:8 oemdata2:8"
parameters=/sys/module/platform_flash/parameters

# Number of the partition's block N on the chip.
chip_block() {
  first=0
  for entry in $layout; do
    [ "${entry%:*}" != "$1" ] || break
    first=$((first + ${entry#*:}))
  done
  echo $((first + $2))
}

# Number of page P of the partition's block N on the chip.
chip_page() {
  echo $(($(chip_block "$1" "$2") * pages_per_block + $3))
}

# "4,5,60" for the blocks 4 and 5 of one partition and another one's: chip_blocks PART:N ...
chip_blocks() {
  list=
  for place in "$@"; do
    list=$list,$(chip_block "${place%:*}" "${place#*:}")
  done
  echo "${list#,}"
}

# Blocks of a partition, good or bad.
blocks_of() {
  for entry in $layout; do
    [ "${entry%:*}" != "$1" ] || echo "${entry#*:}"
  done
}

node() {
  sed -n "s|^\(mtd[0-9]*\): .* \"$1\"\$|/dev/\1|p" /proc/mtd
}

# Replaces the chip by a fresh, erased one; arguments are nandsim's, which see for faults.
new_chip() {
  rmmod platform_flash nandsim 2>/dev/null || true
  dmesg -n 1
  insmod /modules/nandsim.ko id_bytes=0x20,0xaa,0x00,0x15 "$@"
  insmod /modules/platform_flash.ko layout="$(echo "$layout" | tr ' ' ,)"
}

# Puts an image on a partition without the library, as a factory does; protection stays.
provision() {
  echo N >$parameters/guard
  flash_erase --quiet "$(node "$1")" 0 0
  nandwrite --quiet --pad "$(node "$1")" "$2"
  echo Y >$parameters/guard
}

# The partition's good blocks, one behind the other.
dump() {
  nanddump --quiet --bb=skipbad --file=/tmp/dump "$(node "$1")" >/dev/null
}

# One block, good or bad.
dump_block() {
  nanddump --quiet --bb=dumpbad --startaddress=$(($2 * block_size)) --length=$block_size \
    --file=/tmp/dump "$(node "$1")" >/dev/null
}

good_blocks() {
  dump "$1"
  echo $(($(wc -c </tmp/dump) / block_size))
}

ones() {
  head -c "$1" /dev/zero | tr '\0' '\377'
}

# --- What the module tells ---

column() {
  awk -v name="$1" -v column="$2" '$1 == name { print $column }' $parameters/state
}
erases() { column "$1" 2; }
programs() { column "$1" 3; }
protection() { column "$1" 4; }

reset_counts() {
  echo 0 >$parameters/state
}

# Erases and programs of all partitions, or of those but flags with `all_erases kernel ...`.
operations() {
  awk '{ sum += $2 + $3 } END { print sum + 0 }' $parameters/state
}
system_operations() {
  awk '$1 != "flags" { sum += $2 + $3 } END { print sum + 0 }' $parameters/state
}
