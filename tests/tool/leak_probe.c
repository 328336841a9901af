/* Loses a block of memory, so that a test can see that losses are found. */
#include <stdlib.h>

int main(void) {
  char* volatile block = malloc(100);
  if (block) *block = 1;
  block = NULL;
  return 0;
}
