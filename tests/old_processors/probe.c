/* Executes one instruction of the set named by the argument. */
#include <string.h>

int main(int count, char** arguments) {
  const char* set = count == 2 ? arguments[1] : "";
  if (!strcmp(set, "sse2")) {
    __asm__ volatile("paddd %%xmm0, %%xmm1" ::: "xmm1");
  } else if (!strcmp(set, "sse3")) {
    __asm__ volatile("haddps %%xmm0, %%xmm1" ::: "xmm1");
  } else if (!strcmp(set, "ssse3")) {
    __asm__ volatile("pshufb %%xmm0, %%xmm1" ::: "xmm1");
  } else if (!strcmp(set, "sse41")) {
    __asm__ volatile("pmulld %%xmm0, %%xmm1" ::: "xmm1");
  } else if (!strcmp(set, "avx")) {
    __asm__ volatile("vpaddd %%xmm0, %%xmm0, %%xmm1" ::: "xmm1");
  } else {
    return 2;
  }
  return 0;
}
