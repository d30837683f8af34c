// The least that starting a program can cost.
int main() { return 0; }
