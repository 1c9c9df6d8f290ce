// A process that does nothing, with the application's libraries to load.
int main() {}
