// What the headers that all tests share are compiled with; never run.
int main() {}
