// The floor of a boot's cost: a statically linked process that does nothing.
int main() { return 0; }
