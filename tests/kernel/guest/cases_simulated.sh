# SPDX-License-Identifier: Apache-2.0
# What the simulated device answers, holds and logs is what this kernel's flash does: the results
# of the same runs on it lie in /simulated.

# The bad blocks of the simulated device.
comparable_device() {
  bad=$(chip_blocks flags:1 kernel:0 kernel2:1 kernel2:2 rootfs:5 rootfs:6 rootfs2:0 rootfs2:3 \
    rootfs2:15 oemdata:7)
  new_device "badblocks=$bad" "$@"
}

# same WHAT SIMULATED REAL
same() {
  diff "$2" "$3" >/tmp/difference || {
    head -n 30 /tmp/difference
    fail "$1 to be the same on the simulated device and on a real kernel"
  }
}

case_device_answers() {
  comparable_device "weakblocks=$(chip_block rootfs 9):0" \
    "weakpages=$(chip_page rootfs 10 3):0" "gravepages=$(chip_page rootfs 11 2):0"
  mtd_checks "$(node rootfs)" worn=9 failing=10:3 unreadable=11:2 >/tmp/answers
  same "the recorded answers" /test/mtd_answers.txt /tmp/answers
  same "the answers" /simulated/answers /tmp/answers
  detail "$(wc -l </tmp/answers) requests, reads and writes"
}

tell() {
  status=0
  zozale $1 </dev/null >/dev/null 2>&1 || status=$?
  /test/plain-log /cache/ovu_fota_ab
  echo "$1: $status"
}

live() {
  grep -v '^#' /test/life.txt | while read -r line; do
    case $line in
      "download "*) download "${line#download }" ;;
      *) tell "$line" ;;
    esac
  done
}

case_life_as_simulated() {
  comparable_device
  live >/tmp/life
  for entry in $layout; do
    dump "${entry%:*}"
    echo "${entry%:*} $(sha512sum </tmp/dump)"
  done >/tmp/digests
  same "the log" "/simulated/log-$running" /tmp/life
  same "the flash" "/simulated/flash-$running" /tmp/digests
  detail "$(wc -l </tmp/life) log lines and every byte of flash"
}
