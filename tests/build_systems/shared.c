/* The shared library of the samples. */
static int shared_low(int a) { return a ^ 5; }
int shared_unused(int a) { return shared_low(a) + 9; }
int shared_work(int a) { return shared_low(a) + shared_low(a + 1); }
