/* For linkers of other systems, without their headers. */
int third(int a) { return a + 3; }
int second(int a) { return third(a) + third(a + 1); }
int first(int a) { return second(a) + third(a); }
