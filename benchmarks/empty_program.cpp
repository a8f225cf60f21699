// A program that does nothing, linked as the tool is: what it takes to start is what the system itself takes.
int main() {}
