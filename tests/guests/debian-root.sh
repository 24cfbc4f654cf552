# Sourced. What is where in Debian's packages that were unpacked below $work/root: Debian 12 has
# /bin and /lib, and plain modules; Debian 13 has all below /usr, and compressed modules. $initrd is
# the root that is made of them.

# put_busybox DIRECTORY
put_busybox() {
  local at
  for at in "$work/root/bin/busybox" "$work/root/usr/bin/busybox"; do
    if [[ -f $at ]]; then cp "$at" "$1/busybox"; return; fi
  done
  echo "$(basename "$0"): there is no busybox in the package busybox-static" >&2
  return 1
}

# modules_of VERSION: prints the directory of that kernel's modules.
modules_of() {
  local at
  for at in "$work/root/lib/modules/$1" "$work/root/usr/lib/modules/$1"; do
    if [[ -d $at/kernel ]]; then echo "$at"; return; fi
  done
  echo "$(basename "$0"): there are no modules of the kernel $1 in its package" >&2
  return 1
}

# add_module NAME: puts it and what it depends on, that first and each once, into $initrd/modules,
# and writes their order down. $modules is where they are.
add_module() {
  local object dependency made=$initrd/modules/$1.ko
  object=$(find "$modules/kernel" -name "$1.ko" -o -name "$1.ko.xz" | head -1)
  [[ -n $object && ! -e $made ]] || return 0
  case $object in
    *.xz) xz -dc "$object" >"$made" ;;
    *) cp "$object" "$made" ;;
  esac
  strip -g "$made"
  for dependency in $(strings -a "$made" | sed -n 's/^depends=//p' | tr , ' '); do
    add_module "$dependency"
  done
  echo "$1" >>"$initrd/modules/order"
}
