# A guest in one sector: says READS on COM1 and then the first 64 bytes of its disk's sector 128, and
# writes that sector back with another first byte.
        .code16
        .globl _start
_start: cli
        xor     %ax, %ax
        mov     %ax, %ds
        mov     %ax, %ss
        mov     $0x7c00, %sp
        ljmp    $0, $1f
1:      cld
        mov     $0x3f8, %dx
        mov     $hello, %si
2:      lodsb
        test    %al, %al
        jz      3f
        out     %al, %dx
        jmp     2b
3:      mov     $packet, %si
        mov     $0x42, %ah              # extended read
        mov     $0x80, %dl
        int     $0x13
        mov     $0x8000, %si
        mov     $64, %cx
        mov     $0x3f8, %dx
4:      lodsb
        out     %al, %dx
        loop    4b
        movb    $'!', 0x8000
        mov     $packet, %si
        mov     $0x4300, %ax            # extended write
        mov     $0x80, %dl
        int     $0x13
5:      hlt
        jmp     5b

        .balign 4
packet: .byte   16, 0                   # one sector, at 0000:8000
        .word   1, 0x8000, 0
        .long   128, 0
hello:  .asciz  "READS "

        .org    446
        .byte   0x80,0,1,0, 0x83,0,1,0
        .long   1, 1
        .org    510
        .word   0xaa55
