#!/bin/sh
# make-bootsector.sh OUTDIR: writes bootsector.img, a hard disk of 1 MiB (sparse), with the binutils,
# and bootsector.iso, a CD that boots the same sector, with xorriso.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
out=$1
mkdir -p "$out"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
as --32 -o "$work/sector.o" "$here/bootsector.S"
ld -m elf_i386 -Ttext 0x7c00 --oformat binary -o "$work/sector" "$work/sector.o"
test "$(stat -c %s "$work/sector")" = 512
mkdir "$work/cd"
cp "$work/sector" "$work/cd/sector"
xorriso -as mkisofs -quiet -o "$work/bootsector.iso" -V GUEST -b sector -c catalog \
  -no-emul-boot -boot-load-size 1 "$work/cd" 2>"$work/log" || { cat "$work/log" >&2; exit 1; }
truncate -s 1M "$work/sector"
mv "$work/sector" "$out/bootsector.img"
mv "$work/bootsector.iso" "$out/bootsector.iso"
