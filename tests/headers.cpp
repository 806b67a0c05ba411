// The program that owns the tests' precompiled headers; it does nothing.
int main() {}
