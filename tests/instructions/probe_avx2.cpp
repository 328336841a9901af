// What an object for AVX2 must not hold, and what it may.
__asm__(
    "vfmadd132ps %ymm0, %ymm0, %ymm0\n\t"
    "vpaddd %zmm0, %zmm0, %zmm0\n\t"
    "andn %eax, %eax, %eax\n\t"
    "vpaddd %ymm0, %ymm0, %ymm0\n\t"
    "pshufb %xmm1, %xmm0\n");
