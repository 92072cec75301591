/* The static library of the samples. */
int part_low(int a) { return a * 3 + 1; }
int part_unused(int a) { return part_low(a) + 5; }
int part_work(int a) { return part_low(a) * part_low(a + 1); }
