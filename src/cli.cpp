// Replaced by the command-line runner.
int main() { return 0; }
