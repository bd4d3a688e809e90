# SPDX-License-Identifier: Apache-2.0
# What a case expects. Each check ends the case, with a line that says what was expected.

fail() {
  echo "expected $*"
  exit 1
}

detail() {
  echo "$*" >/tmp/detail
}

# equal WHAT EXPECTED FOUND
equal() {
  [ "$2" = "$3" ] || fail "$1 to be $2, found $3"
}

# Runs a program and expects its exit status: exits STATUS PROGRAM ...
exits() {
  wanted=$1
  shift
  status=0
  "$@" >/tmp/output 2>&1 || status=$?
  tail -n 25 /tmp/output
  [ "$status" -eq "$wanted" ] || fail "\"$*\" to end with $wanted, found $status"
}

# The last program that `exits` ran said so.
said() {
  grep -q -e "$1" /tmp/output || fail "the words \"$1\""
}

# The partition's good blocks hold the file's bytes and are erased behind them.
holds() {
  dump "$1"
  {
    cat "$2"
    ones $(($(wc -c </tmp/dump) - $(wc -c <"$2")))
  } >/tmp/wanted
  cmp /tmp/dump /tmp/wanted || fail "$1 to hold $2"
}

erased() {
  dump "$1"
  ones "$(wc -c </tmp/dump)" >/tmp/wanted
  cmp /tmp/dump /tmp/wanted || fail "$1 to be erased"
}

# The partitions of a system hold the images of a package: system_holds A|B PACKAGE
system_holds() {
  for file in /media/"$2"/*; do
    name=${file##*/}
    [ "$name" = package ] || holds "$(of "$1" "$name")" "$file"
  done
}

all_protected() {
  ! grep lifted $parameters/state || fail "write protection of every partition"
}
