// Replaced by the wizard's start-up; kept minimal until then.
int main() { return 0; }
