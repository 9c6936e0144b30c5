// The least that a C++ program can be: what every start of a process costs, whatever it does.
int main() { return 0; }
