// What an object for SSSE3 must not hold, and what it may.
__asm__(
    "ptest %xmm1, %xmm0\n\t"
    "vpshufb %xmm1, %xmm0, %xmm0\n\t"
    "pshufb %xmm1, %xmm0\n\t"
    "lddqu -16(%rsp), %xmm0\n");
