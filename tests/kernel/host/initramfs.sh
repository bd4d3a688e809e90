# SPDX-License-Identifier: Apache-2.0
# Packing a guest's root file system; to be sourced, with `root` being the folder that becomes it.

# Copies a program with its libraries, as /bin/NAME.
add_program() {
  local library
  cp "$1" "$root/bin/"
  for library in $(ldd "$1" 2>/dev/null | grep -o '/[^ ]*'); do
    [ -e "$root/lib/${library##*/}" ] || cp "$library" "$root/lib/"
  done
}

# new_root CACHE SOURCE MODULE: busybox, mtd-utils, kernel modules and the first process.
new_root() {
  local program
  rm -rf "$root"
  mkdir -p "$root"/{bin,lib,modules,test,proc,sys,dev,tmp,nv,cache,etc_ro}
  ln -s lib "$root/lib64"
  cp "$(command -v busybox)" "$root/bin/"
  for program in nanddump nandwrite flash_erase; do
    add_program "$(command -v "$program" || echo "/usr/sbin/$program")"
  done
  find "$1/lib/modules" -name '*.ko' \
    \( -name bch.ko -o -name mtd.ko -o -name nandcore.ko -o -name nand.ko -o -name nandsim.ko \) \
    -exec cp {} "$root/modules/" \;
  cp "$3" "$root/modules/"
  cp "$2/guest/init" "$root/init"
}

# pack_root FILE
pack_root() {
  (cd "$root" && find . | cpio --quiet -o -H newc -R 0:0) >"$1"
}
