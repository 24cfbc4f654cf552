#!/bin/sh
# make-bootsector.sh OUTDIR: writes bootsector.img, a hard disk of 1 MiB (sparse), with the binutils.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
out=$1
mkdir -p "$out"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
as --32 -o "$work/sector.o" "$here/bootsector.S"
ld -m elf_i386 -Ttext 0x7c00 --oformat binary -o "$work/sector" "$work/sector.o"
test "$(stat -c %s "$work/sector")" = 512
truncate -s 1M "$work/sector"
mv "$work/sector" "$out/bootsector.img"
