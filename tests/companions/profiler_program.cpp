// A stand-in for the profiler's program: only its version resource is read.
int main() { return 0; }
