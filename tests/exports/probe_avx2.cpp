// An inline function that the compiler must emit: what a vector source must not contain.
struct Shared {
  static int twice(int value) { return 2 * value; }
};

int (*g_sharedFunction)(int) = Shared::twice;
