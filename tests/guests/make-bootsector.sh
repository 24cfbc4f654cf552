#!/bin/sh
# make-bootsector.sh OUTDIR: writes bootsector.img, a hard disk of 1 MiB (sparse), with the binutils,
# and bootsector.iso, a CD that boots the same sector, with xorriso; and the sectors planter and reader
# of a guest that means harm.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
out=$1
mkdir -p "$out"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# sector NAME SOURCE
sector() {
  as --32 -o "$work/$1.o" "$here/$2"
  ld -m elf_i386 -Ttext 0x7c00 --oformat binary -o "$work/$1" "$work/$1.o"
  test "$(stat -c %s "$work/$1")" = 512
}
sector sector bootsector.S
sector planter planter.S
sector reader reader.S
mkdir "$work/cd"
cp "$work/sector" "$work/cd/sector"
xorriso -as mkisofs -quiet -o "$work/bootsector.iso" -V GUEST -b sector -c catalog \
  -no-emul-boot -boot-load-size 1 "$work/cd" 2>"$work/log" || { cat "$work/log" >&2; exit 1; }
truncate -s 1M "$work/sector"
mv "$work/sector" "$out/bootsector.img"
mv "$work/bootsector.iso" "$work/planter" "$work/reader" "$out"
