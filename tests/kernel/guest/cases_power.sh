# SPDX-License-Identifier: Apache-2.0
# The power goes at the Nth flash operation; then the device starts again and the program is run
# again.

# cut_at N PROGRAM ...: runs a program that has N operations left, and starts the device again.
cut_at() {
  echo "-- power goes after $1 operations"
  echo "$1" >$parameters/operations_left
  shift
  exits 137 "$@"
  equal "power" N "$(cat $parameters/power)"
  echo Y >$parameters/power
}

# Points in a run of N operations: dense where the boot flags are rewritten (130 operations at the
# start and at the end, half of them for each copy) and where the first block is, some between.
cut_points() {
  {
    for point in 0 1 2 64 65 66 129 130 131 146 147; do
      echo $point
    done
    seq 180 61 $(($1 - 131))
    for point in 131 130 129 66 65 64 2 1; do
      echo $(($1 - point))
    done
  } | sort -nu
}

# A target that is bootable holds all of an image, the old one or the new one; the running system
# and the boot target are as they were.
still_boots() {
  equal "boot target" $code_A "$(view_boot_to)"
  equal "status of $running" $bootable "$(view_status $running)"
  running_untouched
  [ "$(view_status $target)" = $bootable ] || return 0
  dump "$(of $target rootfs)"
  for image in "$old_image" "$1"; do
    head -c "$(wc -c <"$image")" /tmp/dump | cmp -s - "$image" && return 0
  done
  fail "a bootable system $target to be complete"
}

running_untouched() {
  equal "operations on $(of $running rootfs)" "0 0" \
    "$(erases "$(of $running rootfs)") $(programs "$(of $running rootfs)")"
}

old_image=/media/blocks-plus-1/rootfs

# survives_cuts IMAGE COMMAND: COMMAND puts IMAGE on the target's rootfs.
survives_cuts() {
  new_ready_device
  provision "$(of $running rootfs)" /media/medium/rootfs
  provision "$(of $target rootfs)" $old_image
  download blocks
  reset_counts
  exits 0 zozale "$2"
  points=$(cut_points "$(operations)")
  for point in $points; do
    provision "$(of $target rootfs)" $old_image
    cut_at "$point" zozale "$2"
    still_boots "$1"
    exits 0 zozale "$2"
    holds "$(of $target rootfs)" "$1"
    records_in "0 1" A 0 $bootable $bootable
  done
  running_untouched
  holds "$(of $running rootfs)" /media/medium/rootfs
  detail "$(echo "$points" | wc -l) cuts"
}
case_power_cut_during_install() { survives_cuts /media/blocks/rootfs install; }
case_power_cut_during_sync() { survives_cuts /media/medium/rootfs sync; }

case_power_cut_during_switch() {
  new_ready_device
  for point in 0 1 2 33 64 65 66 67 100 129; do
    cut_at $point zozale switch B
    case $(view_boot_to) in
      "$code_A" | "$code_B") ;;
      *) fail "a boot target after $point operations" ;;
    esac
    exits 0 zozale switch B
    records_in "0 1" B 1 $bootable $bootable
    exits 0 zozale switch A
    exits 0 zozale acknowledge
  done
  detail "10 cuts in 130 operations"
}
