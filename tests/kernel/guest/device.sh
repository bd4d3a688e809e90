# SPDX-License-Identifier: Apache-2.0
# The device around the flash: its two systems, its boot flag record, the programs it runs.

case " $(cat /proc/cmdline) " in
  *" system=system_a "*) running=A target=B ;;
  *" system=system_b "*) running=B target=A ;;
esac

# Name of a system's partition: of A|B NAME
of() {
  case $1 in
    A) echo "$2" ;;
    B) echo "${2}2" ;;
  esac
}

# A device as it leaves the factory but for its boot flags: a chip with nandsim's arguments, the
# partition table file, an empty store and work folder.
new_device() {
  new_chip "$@"
  rm -rf /cache /nv /etc_ro
  mkdir -p /cache/ovu_fota_ab /nv /etc_ro
  cp /media/table.conf /etc_ro/systemPartitionInfo.conf
}

# The same, with the boot flags.
new_ready_device() {
  new_device "$@"
  exits 0 zozale init-flags --force
  reset_counts
}

download() {
  cp "/media/$1/package" /cache/ovu_fota_ab/upgrade.package
}

# Programs get the platform's store as its library.
zozale() {
  LD_PRELOAD=/lib/libkernel_store.so /bin/zozale "$@"
}

# --- The boot flag record ---

magic=464c4147
bootable=b0ab
successful=5ccf
unbootable=babe
code_A=875a
code_B=986b

code() {
  case $1 in
    A) echo $code_A ;;
    B) echo $code_B ;;
  esac
}

# A hexadecimal word as four bytes, least significant first.
word() {
  value=$((0x$1))
  printf '%b' "$(printf '\\0%03o\\0%03o\\0%03o\\0%03o' $((value & 255)) $((value >> 8 & 255)) \
    $((value >> 16 & 255)) $((value >> 24 & 255)))"
}

# A block with a record: record_block BOOT_TO FOTA_STATUS STATUS_A STATUS_B
record_block() {
  {
    for value in $magic "$(code "$1")" "$2" "$3" 0 "$4" 0 $magic abab; do
      word "$value"
    done
    head -c 256 /dev/zero
    ones $((block_size - 292))
  } >/tmp/record
}

# Blocks of flags hold that record: records_in "BLOCK ..." BOOT_TO FOTA_STATUS STATUS_A STATUS_B
records_in() {
  record_block "$2" "$3" "$4" "$5"
  for block in $1; do
    dump_block flags "$block"
    cmp /tmp/dump /tmp/record || fail "flags block $block to hold $2 $3 $4 $5"
  done
}

# The record that a boot loader goes by, as "BOOT_TO FOTA_STATUS STATUS_A STATUS_B" in hexadecimal:
# the copy in the first good block if both of its magics stand, else that in the second.
boot_view() {
  dump flags
  for block in 0 1; do
    # shellcheck disable=SC2046  # nine words
    set -- $(tail -c +$((block * block_size + 1)) /tmp/dump | hexdump -v -n 36 -e '9/4 "%x " "\n"')
    if [ "$1" = $magic ] && [ "$8" = $magic ]; then
      echo "$2 $3 $4 $6"
      return
    fi
  done
  echo none
}

view_boot_to() { boot_view | cut -d ' ' -f 1; }
# Status of system A or B.
view_status() {
  case $1 in
    A) boot_view | cut -d ' ' -f 3 ;;
    B) boot_view | cut -d ' ' -f 4 ;;
  esac
}
